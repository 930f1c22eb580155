/*
 * Where nat64d answers about a server: a stream socket beside those of servers. A client sends one word and a line
 * feed, `status`, `replay` or `reload`; one line of JSON comes back when it has been done.
 */
#ifndef TOOLS_DAEMON_SOCKET_H
#define TOOLS_DAEMON_SOCKET_H

#include <string>

#include "state/directory.h"

/** As fwx_host_user_listen takes it. */
inline std::string daemon_socket_name(const std::string &server) {
    return ".nat64d." + server;
}

/** Path of the socket of the nat64d of that server; empty for a name that no server can have. */
inline std::string daemon_socket_path(const std::string &server) {
    return path_beside_socket(server, daemon_socket_name(server));
}

#endif
