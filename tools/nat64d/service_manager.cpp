#include "tools/nat64d/service_manager.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>

int tell_service_manager(const std::string &assignments) {
    const char *place = std::getenv("NOTIFY_SOCKET");
    if (place == nullptr || place[0] == '\0') return 0;
    const std::string path = place;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return ENAMETOOLONG;
    path.copy(address.sun_path, path.size());
    if (path[0] == '@') address.sun_path[0] = '\0'; /* an abstract socket */
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) return errno;
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size());
    const ssize_t sent = sendto(fd, assignments.data(), assignments.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr *>(&address), size);
    const int code = sent < 0 ? errno : 0;
    close(fd);
    return code;
}
