#include "host/messaging/shm/socket.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "fwx_host/errors.h"
#include "fwx_host/smc.h"
#include "host/loop/closer.h"
#include "host/messaging/shm/segment.h"

namespace {

constexpr int socket_type = SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC;
constexpr uint32_t greeting = 0x46575830 + shm_version;
constexpr uint32_t any_version = 0xffffff00;
constexpr mode_t owner_only = 0700;
constexpr size_t most_descriptors = 253; /* that the kernel passes with one message */

/** Of an environment variable; null also when it is empty. */
const char *value_of(const char *variable) {
    const char *value = getenv(variable);
    return value != nullptr && *value != '\0' ? value : nullptr;
}

/** Of a server's socket. */
uint32_t address_of(const char *name, sockaddr_un *address) {
    *address = {};
    address->sun_family = AF_UNIX;
    const bool can_be_file = *name != '\0' && *name != '.' && strchr(name, '/') == nullptr;
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

/** The directory of an address, made if it is not there. */
uint32_t directory_open(const sockaddr_un &address, descriptor_t *directory) {
    sockaddr_un copy = address;
    char *path = copy.sun_path;
    *strrchr(path, '/') = '\0';
    const bool is_made = mkdir(path, owner_only) == 0;
    if (!is_made && errno != EEXIST) return static_cast<uint32_t>(errno);
    if (is_made && chmod(path, owner_only) != 0) return static_cast<uint32_t>(errno); /* whatever the umask took */
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

/** 0: the file at the address is a dead server's socket. */
uint32_t check_dead(const sockaddr_un &address) {
    struct stat status {};
    if (lstat(address.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) return FWX_HOST_ERR_NAME_TAKEN;
    const descriptor_t probe(socket(AF_UNIX, socket_type, 0));
    if (!probe.is_open()) return static_cast<uint32_t>(errno);
    const bool is_refused = connect(probe.get(), generic(address), sizeof(address)) != 0 && errno == ECONNREFUSED;
    return is_refused ? 0 : FWX_HOST_ERR_NAME_TAKEN;
}

/* Two servers must not both replace one dead socket. A server that starts holds the lock for a moment only; whoever
 * holds it longer is none, and waited for no more. */
void lock_for_a_moment(const descriptor_t &directory) {
    constexpr int tries = 100;
    constexpr timespec pause = {0, 1000000};
    for (int i = 0; i < tries && flock(directory.get(), LOCK_EX | LOCK_NB) != 0; ++i) {
        nanosleep(&pause, nullptr);
    }
}

/** The control message of as many descriptors as there can be. */
union control_t {
    cmsghdr header;
    char bytes[CMSG_SPACE(most_descriptors * sizeof(int))];
};

/** Points a message at a word and at room for the descriptors. */
msghdr framed(iovec &word, control_t &control) {
    msghdr message{};
    message.msg_iov = &word;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof(control.bytes);
    return message;
}

}  // namespace

uint32_t shm_listen(const char *name, shm_entrance_t *entrance) {
    sockaddr_un address{};
    if (const uint32_t code = address_of(name, &address)) return code;
    descriptor_t directory;
    if (const uint32_t code = directory_open(address, &directory)) return code;
    lock_for_a_moment(directory); /* until return */
    shm_entrance_t made = {descriptor_t(socket(AF_UNIX, socket_type, 0)), address.sun_path};
    if (!made.socket.is_open()) return static_cast<uint32_t>(errno);
    int failed = bind(made.socket.get(), generic(address), sizeof(address));
    if (failed != 0 && errno == EADDRINUSE) {
        if (const uint32_t code = check_dead(address)) return code;
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

/* The file's number is not given to another while the socket is open. Clients that were not let in may have sent
 * descriptors already, which close with the socket. */
void shm_names(void (*fn)(void *arg, const char *name), void *arg) {
    sockaddr_un address{};
    descriptor_t directory;
    const bool is_ours = address_of("any", &address) == 0 && directory_open(address, &directory) == 0;
    if (!is_ours) return;
    DIR *entries = fdopendir(dup(directory.get()));
    if (entries == nullptr) return;
    while (const dirent *entry = readdir(entries)) {
        struct stat status {};
        const bool is_socket =
            fstatat(directory.get(), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISSOCK(status.st_mode);
        if (is_socket) fn(arg, entry->d_name);
    }
    closedir(entries);
}

extern "C" uint32_t fwx_host_server_path(const char *server_name, char *path, size_t size) {
    sockaddr_un address{};
    if (server_name == nullptr || path == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (const uint32_t code = address_of(server_name, &address)) return code;
    const int length = snprintf(path, size, "%s", address.sun_path);
    return static_cast<size_t>(length) < size ? 0 : FWX_HOST_ERR_BAD_ARG;
}

void shm_unlisten(shm_entrance_t &entrance) {
    if (!entrance.socket.is_open()) return;
    struct stat status {};
    const bool is_there = lstat(entrance.path.c_str(), &status) == 0;
    if (is_there && status.st_dev == entrance.device && status.st_ino == entrance.file) unlink(entrance.path.c_str());
    shutdown(entrance.socket.get(), SHUT_RD);
    for (;;) {
        descriptor_t waiting;
        if (shm_accept(entrance.socket, &waiting) != 0) break;
        shm_close(std::move(waiting));
    }
    entrance.socket = descriptor_t();
}

uint32_t shm_accept(const descriptor_t &listener, descriptor_t *client) {
    for (;;) {
        descriptor_t made(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!made.is_open()) return static_cast<uint32_t>(errno);
        if (shm_is_own_users(made)) {
            *client = std::move(made);
            return 0;
        }
        shm_close(std::move(made));
    }
}

uint32_t shm_connect(const char *name, descriptor_t *connected) {
    sockaddr_un address{};
    if (const uint32_t code = address_of(name, &address)) return code;
    descriptor_t directory;
    if (const uint32_t code = directory_open(address, &directory)) return code;
    descriptor_t made(socket(AF_UNIX, socket_type, 0));
    if (!made.is_open()) return static_cast<uint32_t>(errno);
    if (connect(made.get(), generic(address), sizeof(address)) != 0) {
        return errno == EAGAIN ? FWX_HOST_ERR_BUSY : FWX_HOST_ERR_NO_SERVER;
    }
    if (!shm_is_own_users(made)) return FWX_HOST_ERR_FOREIGN;
    *connected = std::move(made);
    return 0;
}

bool shm_is_own_users(const descriptor_t &socket) {
    ucred other{};
    socklen_t length = sizeof(other);
    return getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &other, &length) == 0 && other.uid == geteuid();
}

bool shm_handles_send(const descriptor_t &socket, const shm_handles_t &handles) {
    uint32_t word = greeting;
    iovec body{&word, sizeof(word)};
    control_t control{};
    msghdr message = framed(body, control);
    const int numbers[] = {handles[0].get(), handles[1].get(), handles[2].get()};
    message.msg_controllen = CMSG_SPACE(sizeof(numbers));
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(numbers));
    memcpy(CMSG_DATA(header), numbers, sizeof(numbers));
    return sendmsg(socket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof(word);
}

uint32_t shm_handles_receive(const descriptor_t &socket, shm_handles_t *handles) {
    uint32_t word = 0;
    iovec body{&word, sizeof(word)};
    control_t control{};
    msghdr message = framed(body, control);
    const ssize_t got = recvmsg(socket.get(), &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    if (got < 0) return errno == EAGAIN ? EAGAIN : FWX_HOST_ERR_BAD_ARG;
    size_t count = 0;
    for (cmsghdr *header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t of_header = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < of_header; ++i, ++count) {
            int number = -1;
            memcpy(&number, CMSG_DATA(header) + i * sizeof(number), sizeof(number));
            descriptor_t received(number);
            if (count < handles->size()) {
                (*handles)[count] = std::move(received);
            } else {
                closer_take(std::move(received));
            }
        }
    }
    const bool is_whole = got == sizeof(word) && (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
    if (is_whole && word == greeting && count == handles->size()) return 0;
    for (descriptor_t &handle : *handles) {
        closer_take(std::move(handle));
    }
    const bool is_other_version = is_whole && word != greeting && (word & any_version) == (greeting & any_version);
    return is_other_version ? FWX_HOST_ERR_VERSION : FWX_HOST_ERR_BAD_ARG;
}

void shm_close(descriptor_t socket) {
    if (!socket.is_open()) return;
    shutdown(socket.get(), SHUT_RDWR); /* nothing comes in any more */
    /* Every message that waits now has its sender's credentials with it, and so it can be told from none. */
    const int on = 1;
    setsockopt(socket.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof(on));
    msghdr message{};
    const bool has_message =
        recvmsg(socket.get(), &message, MSG_PEEK | MSG_DONTWAIT) >= 0 && (message.msg_flags & MSG_CTRUNC) != 0;
    if (has_message) closer_take(std::move(socket));
}

void shm_turn_away(descriptor_t socket, uint32_t code) {
    send(socket.get(), &code, sizeof(code), MSG_NOSIGNAL | MSG_DONTWAIT);
    shm_close(std::move(socket));
}

uint32_t shm_why_closed(const descriptor_t &socket) {
    uint32_t code = 0;
    ssize_t got = -1;
    /* An error that came before is told first. What came with a message stays in the socket. */
    for (int tries = 0; tries < 2 && got < 0; ++tries) {
        got = recv(socket.get(), &code, sizeof(code), MSG_PEEK | MSG_DONTWAIT);
    }
    const bool is_told = got == sizeof(code) && (code == FWX_HOST_ERR_VERSION || code == FWX_HOST_ERR_BUSY);
    return is_told ? code : FWX_HOST_ERR_CHANNEL_DOWN;
}
