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

#include "fwx_host/errors.h"
#include "fwx_host/smc.h"

namespace {

constexpr int socket_type = SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC;
constexpr uint32_t greeting = 0x46575831; /* changes with the layout of the segment */
constexpr mode_t owner_only = 0700;

/** Of a server's socket. */
uint32_t address_of(const char *name, sockaddr_un *address) {
    *address = {};
    address->sun_family = AF_UNIX;
    const bool can_be_file = *name != '\0' && *name != '.' && strchr(name, '/') == nullptr;
    const char *runtime = getenv("XDG_RUNTIME_DIR");
    const bool has_runtime = runtime != nullptr && *runtime != '\0';
    char *path = address->sun_path;
    constexpr size_t room = sizeof(address->sun_path);
    const int length = has_runtime ? snprintf(path, room, "%s/fwx_host/%s", runtime, name)
                                   : snprintf(path, room, "/tmp/fwx_host-%u/%s", geteuid(), name);
    return can_be_file && length > 0 && static_cast<size_t>(length) < room ? 0 : FWX_HOST_ERR_BAD_ARG;
}

/** The directory of an address, made if it is not there. */
uint32_t directory_open(const sockaddr_un &address, descriptor_t *directory) {
    sockaddr_un copy = address;
    char *path = copy.sun_path;
    *strrchr(path, '/') = '\0';
    if (mkdir(path, owner_only) != 0 && errno != EEXIST) return static_cast<uint32_t>(errno);
    *directory = descriptor_t(open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status {};
    if (!directory->is_open() || fstat(directory->get(), &status) != 0) return FWX_HOST_ERR_FOREIGN;
    const bool is_private = status.st_uid == geteuid() && (status.st_mode & 07777) == owner_only;
    return is_private ? 0 : FWX_HOST_ERR_FOREIGN;
}

const sockaddr *generic(const sockaddr_un &address) {
    return reinterpret_cast<const sockaddr *>(&address);
}

bool is_dead(const sockaddr_un &address) {
    struct stat status {};
    if (lstat(address.sun_path, &status) != 0 || !S_ISSOCK(status.st_mode)) return false;
    const descriptor_t probe(socket(AF_UNIX, socket_type, 0));
    return connect(probe.get(), generic(address), sizeof(address)) != 0 && errno == ECONNREFUSED;
}

/** The control message of three descriptors. */
union control_t {
    cmsghdr header;
    char bytes[CMSG_SPACE(3 * sizeof(int))];
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

extern "C" uint32_t fwx_host_server_path(const char *server_name, char *path, size_t size) {
    sockaddr_un address{};
    if (server_name == nullptr || path == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (const uint32_t code = address_of(server_name, &address)) return code;
    const int length = snprintf(path, size, "%s", address.sun_path);
    return static_cast<size_t>(length) < size ? 0 : FWX_HOST_ERR_BAD_ARG;
}

uint32_t shm_listen(const char *name, descriptor_t *listener) {
    sockaddr_un address{};
    if (const uint32_t code = address_of(name, &address)) return code;
    descriptor_t directory;
    if (const uint32_t code = directory_open(address, &directory)) return code;
    /* Until return, so that two servers cannot both replace one stale socket. */
    if (flock(directory.get(), LOCK_EX) != 0) return static_cast<uint32_t>(errno);
    descriptor_t made(socket(AF_UNIX, socket_type, 0));
    if (!made.is_open()) return static_cast<uint32_t>(errno);
    int failed = bind(made.get(), generic(address), sizeof(address));
    if (failed != 0 && errno == EADDRINUSE) {
        if (!is_dead(address)) return FWX_HOST_ERR_NAME_TAKEN;
        unlink(address.sun_path);
        failed = bind(made.get(), generic(address), sizeof(address));
    }
    if (failed != 0 || listen(made.get(), SOMAXCONN) != 0) return static_cast<uint32_t>(errno);
    *listener = std::move(made);
    return 0;
}

void shm_unlisten(const char *name) {
    sockaddr_un address{};
    if (address_of(name, &address) == 0) unlink(address.sun_path);
}

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

descriptor_t shm_accept(const descriptor_t &listener) {
    for (;;) {
        descriptor_t client(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (!client.is_open() || shm_is_own_users(client)) return client;
    }
}

uint32_t shm_connect(const char *name, descriptor_t *connected) {
    sockaddr_un address{};
    if (const uint32_t code = address_of(name, &address)) return code;
    descriptor_t directory;
    if (const uint32_t code = directory_open(address, &directory)) return code;
    descriptor_t made(socket(AF_UNIX, socket_type, 0));
    if (!made.is_open()) return static_cast<uint32_t>(errno);
    if (connect(made.get(), generic(address), sizeof(address)) != 0) return FWX_HOST_ERR_NO_SERVER;
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
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(numbers));
    memcpy(CMSG_DATA(header), numbers, sizeof(numbers));
    return sendmsg(socket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof(word);
}

bool shm_handles_receive(const descriptor_t &socket, shm_handles_t *handles) {
    uint32_t word = 0;
    iovec body{&word, sizeof(word)};
    control_t control{};
    msghdr message = framed(body, control);
    const ssize_t got = recvmsg(socket.get(), &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    const cmsghdr *header = got < 0 ? nullptr : CMSG_FIRSTHDR(&message);
    if (header == nullptr || header->cmsg_type != SCM_RIGHTS) return false;
    const size_t count = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
    for (size_t i = 0; i < count && i < handles->size(); ++i) {
        int number = -1;
        memcpy(&number, CMSG_DATA(header) + i * sizeof(number), sizeof(number));
        (*handles)[i] = descriptor_t(number);
    }
    return got == sizeof(word) && word == greeting && count == handles->size();
}
