/* Where servers of other processes are looked for, and what a user can do about one that is not there. */
#ifndef TOOLS_NATCTL_SERVER_PLACE_H
#define TOOLS_NATCTL_SERVER_PLACE_H

#include <string>
#include <vector>

/** Whether a process listens under a server name. */
bool server_is_there(const std::string &name);
/** The servers of this user that listen now, in order. */
std::vector<std::string> servers_there();
/** `servers that are there now: alpha, beta`, or that there is none. */
std::string servers_text();
/** Why there is no server of that name for this user, where it was looked for, and what to do. */
std::string server_absence(const std::string &name);

#endif
