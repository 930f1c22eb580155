/* Where servers of other processes are looked for, and what a user can do about one that is not there. */
#ifndef TOOLS_NATCTL_SERVER_PLACE_H
#define TOOLS_NATCTL_SERVER_PLACE_H

#include <string>

/** Whether a process listens under a server name. */
bool server_is_there(const std::string &name);
/** Why there is no server of that name for this user, where it was looked for, and what to do. */
std::string server_absence(const std::string &name);

#endif
