#include "socket_meter.h"

#include <dlfcn.h>
#include <sys/socket.h>

#include <string_view>

namespace {

traffic_t counted;

}  // namespace

const traffic_t &traffic() {
    return counted;
}

/* libcurl's own calls end here: nothing that it reads or writes is left out. */

extern "C" ssize_t send(int fd, const void *data, size_t size, int flags) {
    static const auto next = reinterpret_cast<decltype(&send)>(dlsym(RTLD_NEXT, "send"));
    const ssize_t sent = next(fd, data, size, flags);
    const bool is_request =
        sent > 0 && std::string_view(static_cast<const char *>(data), static_cast<size_t>(sent)).starts_with("POST ");
    if (is_request) ++counted.requests;
    return sent;
}

extern "C" ssize_t recv(int fd, void *room, size_t size, int flags) {
    static const auto next = reinterpret_cast<decltype(&recv)>(dlsym(RTLD_NEXT, "recv"));
    const ssize_t received = next(fd, room, size, flags);
    if (received > 0) counted.received_bytes += static_cast<uint64_t>(received);
    return received;
}
