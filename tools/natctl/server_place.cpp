/* Implements server_place.h: looks for servers' sockets in the user's directory and tries to connect to them. */
#include "tools/natctl/server_place.h"

#include <pwd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <vector>

#include "fwx_host/smc.h"
#include "fwx_nat64/client.h"

namespace {

/** The path of a server's socket; empty for an invalid server name. */
std::string socket_path(const std::string &name) {
    char path[sizeof(sockaddr_un::sun_path)];
    return fwx_host_server_path(name.c_str(), path, sizeof path) == 0 ? path : "";
}

/** Connects to a socket. Returns 0 if a process listens there, otherwise an errno value. */
int try_socket(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) return errno;
    const int failed = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 ? 0 : errno;
    close(fd);
    return failed == EAGAIN ? 0 : failed; /* EAGAIN: a process listens, its queue is full */
}

std::string user_text() {
    const passwd *entry = getpwuid(geteuid());
    return (entry == nullptr ? "" : std::string(entry->pw_name) + ", ") + "uid " + std::to_string(geteuid());
}

std::string why_text(const std::string &path) {
    struct stat directory {};
    const std::string parent = std::filesystem::path(path).parent_path();
    const bool is_there = stat(parent.c_str(), &directory) == 0;
    const bool is_private = directory.st_uid == geteuid() && (directory.st_mode & 07777) == S_IRWXU;
    if (is_there && !is_private) return "other users can access the directory, which must be its user's with mode 0700";
    const int failed = try_socket(path);
    if (failed == ENOENT) return "there is no such socket";
    if (failed == ECONNREFUSED) return "its server has ended";
    return failed == 0 ? "a process listens there, but did not accept the connection" : std::strerror(failed);
}

}  // namespace

bool server_is_there(const std::string &name) {
    const std::string path = socket_path(name);
    return !path.empty() && try_socket(path) == 0;
}

std::vector<std::string> servers_there() {
    std::vector<std::string> names;
    const auto add = [](void *arg, const char *name) {
        if (server_is_there(name)) static_cast<std::vector<std::string> *>(arg)->emplace_back(name);
    };
    fwx_host_server_names(add, &names);
    std::sort(names.begin(), names.end());
    return names;
}

std::string servers_text() {
    std::string text;
    for (const std::string &name : servers_there()) {
        text += (text.empty() ? "running servers: " : ", ") + name;
    }
    return text.empty() ? "no server is running" : text;
}

std::string server_absence(const std::string &name) {
    const std::string path = socket_path(name);
    if (path.empty()) return "no server can have the name \"" + name + "\": it must be that of a file, and short";
    return "no server " + name + " for channel " FWX_NAT64_CHANNEL_NAME ": looked for the socket " + path + " as " +
           user_text() + ": " + why_text(path) + "; start one with: natctl serve " + name + "; " + servers_text();
}
