/*
 * Listens and connects at sockets in the user's directory. The directory is opened and checked before every use: its
 * owner is the user, its mode is 0700, and it is not a symbolic link. A name whose socket refuses connections belongs
 * to a dead process and is replaced, under a lock on the directory so that two servers cannot replace the same socket.
 */
#include "host/messaging/user_socket.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "fwx_host/errors.h"
#include "fwx_host/smc.h"
#include "host/loop/closer.h"

namespace {

constexpr mode_t owner_only = 0700;

/** The value of an environment variable; null when it is not set or empty. */
const char *value_of(const char *variable) {
    const char *value = getenv(variable);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

uint32_t address_of(user_socket_t kind, const char *name, sockaddr_un *address) {
    *address = {};
    address->sun_family = AF_UNIX;
    const bool has_dot = *name == '.';
    const bool is_directory = strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
    const bool can_be_file =
        *name != '\0' && has_dot == (kind == user_socket_t::SERVICE) && !is_directory && strchr(name, '/') == nullptr;
    char *path = address->sun_path;
    constexpr size_t room = sizeof(address->sun_path);
    int length = 0;
    if (const char *directory = value_of("FWX_HOST_DIR")) {
        length = snprintf(path, room, "%s/%s", directory, name);
    } else if (const char *runtime = value_of("XDG_RUNTIME_DIR")) {
        length = snprintf(path, room, "%s/fwx_host/%s", runtime, name);
    } else {
        length = snprintf(path, room, "/tmp/fwx_host-%u/%s", geteuid(), name);
    }
    return can_be_file && length > 0 && static_cast<size_t>(length) < room ? 0 : FWX_HOST_ERR_BAD_ARG;
}

/** Removes "/" and "/." from the end of a path, because with them a symbolic link would be followed. */
void drop_trailing(char *path) {
    size_t length = strlen(path);
    const auto ends_with = [&](const char *end) {
        const size_t size = strlen(end);
        return length > size && strcmp(path + length - size, end) == 0;
    };
    while (ends_with("/") || ends_with("/.")) {
        path[--length] = '\0';
    }
}

/** Opens the directory of an address, which is created if it does not exist, and checks that it is the user's alone. */
uint32_t directory_open(const sockaddr_un &address, descriptor_t *directory) {
    sockaddr_un copy = address;
    char *path = copy.sun_path;
    *strrchr(path, '/') = '\0';
    drop_trailing(path);
    const bool is_made = mkdir(path, owner_only) == 0;
    if (!is_made && errno != EEXIST) return static_cast<uint32_t>(errno);
    if (is_made && chmod(path, owner_only) != 0) return static_cast<uint32_t>(errno); /* whatever the umask is */
    *directory = descriptor_t(open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!directory->is_open()) {
        const bool is_other = errno == ENOTDIR || errno == ELOOP || errno == EACCES;
        return is_other ? FWX_HOST_ERR_FOREIGN : static_cast<uint32_t>(errno);
    }
    struct stat status {};
    if (fstat(directory->get(), &status) != 0) return static_cast<uint32_t>(errno);
    const bool is_private = status.st_uid == geteuid() && (status.st_mode & 07777) == owner_only;
    return is_private ? 0 : FWX_HOST_ERR_FOREIGN;
}

const sockaddr *generic(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

/** Creates a non-blocking socket. Not open, with errno set, when no descriptors are left. */
descriptor_t make_socket(user_socket_t kind) {
    return descriptor_t(socket(AF_UNIX, static_cast<int>(kind) | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
}

/** Returns 0 when the file at the address is the socket of a dead process. */
uint32_t check_dead(user_socket_t kind, const sockaddr_un &address) {
    struct stat status {};
    if (lstat(address.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) return FWX_HOST_ERR_NAME_TAKEN;
    const descriptor_t probe = make_socket(kind);
    if (!probe.is_open()) return static_cast<uint32_t>(errno);
    const bool is_refused = connect(probe.get(), generic(address), sizeof(address)) != 0 && errno == ECONNREFUSED;
    return is_refused ? 0 : FWX_HOST_ERR_NAME_TAKEN;
}

/* Locks the directory, so that two servers do not both replace a dead server's socket. A starting server holds the lock
 * for a moment only. A process that holds it longer is not a server, so this continues without the lock after 100 ms.
 */
void lock_for_a_moment(const descriptor_t &directory) {
    constexpr int tries = 100;
    constexpr timespec pause = {0, 1000000};
    for (int i = 0; i < tries && flock(directory.get(), LOCK_EX | LOCK_NB) != 0; ++i) {
        nanosleep(&pause, nullptr);
    }
}

/** Whether the process at the other end ran as this process's user when it connected or listened. */
bool is_own_users(const descriptor_t &socket) {
    ucred other{};
    socklen_t length = sizeof(other);
    return getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &other, &length) == 0 && other.uid == geteuid();
}

/** Whether a received message is queued, which may hold descriptors. */
bool has_message(const descriptor_t &socket) {
    int type = 0;
    socklen_t length = sizeof(type);
    getsockopt(socket.get(), SOL_SOCKET, SO_TYPE, &type, &length);
    char byte = 0;
    if (type == SOCK_STREAM) return recv(socket.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
    /* A message may be empty. With SO_PASSCRED each message has credentials, which tell it from the end of the stream.
     */
    const int on = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on));
    msghdr message{};
    return recvmsg(socket.get(), &message, MSG_PEEK | MSG_DONTWAIT) >= 0 && (message.msg_flags & MSG_CTRUNC) != 0;
}

}  // namespace

uint32_t user_socket_listen(user_socket_t kind, const char *name, user_entrance_t *entrance) {
    sockaddr_un address{};
    if (const uint32_t code = address_of(kind, name, &address)) return code;
    descriptor_t directory;
    if (const uint32_t code = directory_open(address, &directory)) return code;
    lock_for_a_moment(directory); /* until return */
    user_entrance_t made = {make_socket(kind), address.sun_path};
    if (!made.socket.is_open()) return static_cast<uint32_t>(errno);
    int failed = bind(made.socket.get(), generic(address), sizeof(address));
    if (failed != 0 && errno == EADDRINUSE) {
        if (const uint32_t code = check_dead(kind, address)) return code;
        unlink(address.sun_path);
        failed = bind(made.socket.get(), generic(address), sizeof(address));
    }
    struct stat status {};
    if (failed != 0 || listen(made.socket.get(), SOMAXCONN) != 0 || lstat(address.sun_path, &status) != 0) {
        return static_cast<uint32_t>(errno);
    }
    made.device = status.st_dev;
    made.file = status.st_ino;
    *entrance = std::move(made);
    return 0;
}

void user_socket_names(void (*fn)(void *arg, const char *name), void *arg) {
    sockaddr_un address{};
    descriptor_t directory;
    const bool is_ours =
        address_of(user_socket_t::SERVER, "any", &address) == 0 && directory_open(address, &directory) == 0;
    if (!is_ours) return;
    DIR *entries = fdopendir(dup(directory.get()));
    if (entries == nullptr) return;
    while (const dirent *entry = readdir(entries)) {
        struct stat status {};
        const bool is_socket =
            fstatat(directory.get(), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISSOCK(status.st_mode);
        if (is_socket && *entry->d_name != '.') fn(arg, entry->d_name);
    }
    closedir(entries);
}

extern "C" uint32_t fwx_host_server_path(const char *server_name, char *path, size_t size) {
    sockaddr_un address{};
    if (server_name == nullptr || path == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (const uint32_t code = address_of(user_socket_t::SERVER, server_name, &address)) return code;
    const int length = snprintf(path, size, "%s", address.sun_path);
    return static_cast<size_t>(length) < size ? 0 : FWX_HOST_ERR_BAD_ARG;
}

/* The inode number is not reused while the socket is open, so it identifies the file. Clients that were not accepted
 * yet may have sent descriptors, so they are accepted and closed by the closer. */
void user_socket_unlisten(user_entrance_t &entrance) {
    if (!entrance.socket.is_open()) return;
    struct stat status {};
    const bool is_there = lstat(entrance.path.c_str(), &status) == 0;
    if (is_there && status.st_dev == entrance.device && status.st_ino == entrance.file) unlink(entrance.path.c_str());
    shutdown(entrance.socket.get(), SHUT_RD);
    for (;;) {
        descriptor_t waiting;
        if (user_socket_accept(entrance.socket, &waiting) != 0) break;
        user_socket_close(std::move(waiting));
    }
    entrance.socket = descriptor_t();
}

uint32_t user_socket_accept(const descriptor_t &listener, descriptor_t *client) {
    for (;;) {
        descriptor_t made(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!made.is_open()) return static_cast<uint32_t>(errno);
        if (is_own_users(made)) {
            *client = std::move(made);
            return 0;
        }
        user_socket_close(std::move(made));
    }
}

uint32_t user_socket_connect(user_socket_t kind, const char *name, descriptor_t *connected) {
    sockaddr_un address{};
    if (const uint32_t code = address_of(kind, name, &address)) return code;
    descriptor_t directory;
    if (const uint32_t code = directory_open(address, &directory)) return code;
    descriptor_t made = make_socket(kind);
    if (!made.is_open()) return static_cast<uint32_t>(errno);
    if (connect(made.get(), generic(address), sizeof(address)) != 0) {
        return errno == EAGAIN ? FWX_HOST_ERR_BUSY : FWX_HOST_ERR_NO_SERVER;
    }
    if (!is_own_users(made)) return FWX_HOST_ERR_FOREIGN;
    *connected = std::move(made);
    return 0;
}

void user_socket_close(descriptor_t socket) {
    if (!socket.is_open()) return;
    shutdown(socket.get(), SHUT_RDWR); /* no more descriptors can arrive */
    if (has_message(socket)) closer_take(std::move(socket));
}
