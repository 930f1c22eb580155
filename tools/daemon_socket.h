/*
 * The name of nat64d's control socket, a stream socket beside the servers' sockets. A client sends one word and a line
 * feed: `status`, `replay` or `reload`. nat64d answers with one line of JSON when the request is done.
 */
#ifndef TOOLS_DAEMON_SOCKET_H
#define TOOLS_DAEMON_SOCKET_H

#include <string>

#include "state/directory.h"

/** The name for fwx_host_user_listen. */
inline std::string daemon_socket_name(const std::string &server) {
    return ".nat64d." + server;
}

/** The path of the control socket of the nat64d for `server`; empty if that is not a valid server name. */
inline std::string daemon_socket_path(const std::string &server) {
    return path_beside_socket(server, daemon_socket_name(server));
}

#endif
