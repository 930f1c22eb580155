/*
 * Where nat64d answers about a server: a stream socket beside those of servers. A client sends one word and a line
 * feed, `status`, `replay` or `reload`; one line of JSON comes back when it has been done.
 */
#ifndef TOOLS_DAEMON_SOCKET_H
#define TOOLS_DAEMON_SOCKET_H

#include <sys/un.h>

#include <string>

#include "fwx_host/smc.h"

/** Path of the socket of the nat64d of that server; empty for a name that no server can have. */
inline std::string daemon_socket_path(const std::string &server) {
    char path[sizeof(sockaddr_un::sun_path)];
    if (fwx_host_server_path(server.c_str(), path, sizeof path) != 0) return "";
    const std::string of_server = path;
    const size_t name_at = of_server.size() - server.size();
    return of_server.substr(0, name_at) + ".nat64d/" + server; /* no server's name begins with a dot */
}

#endif
