/* Where what concerns one server is kept. */
#ifndef STATE_DIRECTORY_H
#define STATE_DIRECTORY_H

#include <string>

/** Of a server: `$STATE_DIRECTORY/NAME`, else `$XDG_STATE_HOME/FOLDER/NAME`, else `~/.local/state/FOLDER/NAME`. */
std::string state_directory_of(const std::string &server, const std::string &folder = "natctl");
/** Path of a file of that name beside the socket of a server; empty for a name that no server can have. */
std::string path_beside_socket(const std::string &server, const std::string &name);
/** The file whose lock (state/lock.h) whoever changes a server has, be it natctl or nat64d: beside the server's socket,
 * so that it is the same wherever the state is kept. Empty for a name that no server can have. */
inline std::string lock_path_of(const std::string &server) {
    return path_beside_socket(server, "." + server); /* no server's name begins with a dot */
}
/** Makes a directory and those above it that are not there, with mode 0700; returns what went wrong, or nothing. */
std::string make_state_directory(const std::string &directory);

#endif
