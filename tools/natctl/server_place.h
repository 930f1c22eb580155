/* Finds servers of other processes, and explains to the user why one cannot be found. */
#ifndef TOOLS_NATCTL_SERVER_PLACE_H
#define TOOLS_NATCTL_SERVER_PLACE_H

#include <string>
#include <vector>

/** True if a process listens under a server name. */
bool server_is_there(const std::string &name);
/** The names of this user's running servers, sorted. */
std::vector<std::string> servers_there();
/** `running servers: alpha, beta`, or a text that there is none. */
std::string servers_text();
/** A text that says why this user has no server of that name, where natctl looked, and what to do. */
std::string server_absence(const std::string &name);

#endif
