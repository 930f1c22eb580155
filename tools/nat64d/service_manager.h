/* Notifications of a service of Type=notify to systemd. */
#ifndef TOOLS_NAT64D_SERVICE_MANAGER_H
#define TOOLS_NAT64D_SERVICE_MANAGER_H

#include <string>

/** Sends assignments, a line each: `READY=1\nSTATUS=in step`. Returns 0, also without systemd, or an errno value. */
int tell_service_manager(const std::string &assignments);

#endif
