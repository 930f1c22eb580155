/* Paths of the state that is stored for one server, and of the lock of this server. */
#ifndef STATE_DIRECTORY_H
#define STATE_DIRECTORY_H

#include <string>

#include "state/files.h"

/** The state directory of a server: `$STATE_DIRECTORY/NAME`, else `$XDG_STATE_HOME/FOLDER/NAME`, else
 * `~/.local/state/FOLDER/NAME`. */
std::string state_directory_of(const std::string &server, const std::string &folder = "natctl");
/** Path of a file beside the socket of a server. Empty if no server can have that name. */
std::string path_beside_socket(const std::string &server, const std::string &name);
/** The file whose lock (state/lock.h) natctl and nat64d take before they change a server. It is beside the server's
 * socket, so that it is the same file wherever they store their state. Empty if no server can have that name. */
inline std::string lock_path_of(const std::string &server) {
    return path_beside_socket(server, "." + server); /* no server's name begins with a dot */
}
/** Creates a directory and its missing parents durably, with mode 0700. @return an error with the path, or an empty
 * text. */
std::string make_state_directory(const std::string &directory, files_t &files = files_t::system());

#endif
