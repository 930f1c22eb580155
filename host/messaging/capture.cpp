/*
 * Writes the capture file. When a packet cannot be written completely, the file is cut back to the last complete packet
 * and nothing more is written; closing the capture returns the error.
 */
#include "host/messaging/capture.h"

#include <fcntl.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "fwx_host/capture.h"
#include "fwx_host/errors.h"

namespace {

constexpr uint32_t largest_packet = 262144; /* readers treat a longer packet as a sign of a damaged file */
constexpr mode_t file_mode = 0666;          /* before the umask */

struct file_header_t {
    uint32_t magic = 0xa1b23c4d; /* timestamps in nanoseconds */
    uint16_t major_version = 2;
    uint16_t minor_version = 4;
    uint32_t reserved[2] = {};
    uint32_t largest_packet = ::largest_packet;
    uint32_t link_type = 147; /* DLT_USER0 */
};
static_assert(sizeof(file_header_t) == 24, "a pcap file begins with 24 bytes");

struct packet_header_t {
    uint32_t seconds;
    uint32_t nanoseconds;
    uint32_t captured_size; /* bytes that follow `original_size` */
    uint32_t original_size;
    uint8_t version;
    uint8_t direction;
    uint8_t form;
    uint8_t zero;
};
static_assert(sizeof(packet_header_t) == 20, "a record header and the four bytes before a message");
constexpr uint32_t pseudo_header_size = 4;

/* Trivial types only, because messages may still pass after static destructors have run. */
struct {
    int fd = -1;
    off_t end = 0;        /* offset behind the last complete packet */
    uint32_t failure = 0; /* errno of the write that failed; nothing is written after it */
} file;

/** Writes all of the parts; returns 0 or an errno value. */
uint32_t write_parts(iovec *parts, int count) {
    while (count > 0) {
        const ssize_t written = writev(file.fd, parts, count);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) return static_cast<uint32_t>(errno);
        file.end += written;
        auto left = static_cast<size_t>(written);
        for (; count > 0 && left >= parts->iov_len; ++parts, --count) {
            left -= parts->iov_len;
        }
        if (count == 0) break;
        parts->iov_base = static_cast<uint8_t *>(parts->iov_base) + left;
        parts->iov_len -= left;
    }
    return 0;
}

/** Writes the parts, or truncates the file to its old end when not all of them can be written. */
void append(iovec *parts, int count) {
    const off_t end = file.end;
    file.failure = write_parts(parts, count);
    if (file.failure == 0) return;
    file.end = end;
    /* A pipe cannot be truncated, so its reader sees an incomplete last packet. */
    if (ftruncate(file.fd, end) != 0) return;
}

uint32_t close_file() {
    const uint32_t failure = file.failure;
    const bool is_closed = close(file.fd) == 0;
    const auto close_failure = static_cast<uint32_t>(is_closed ? 0 : errno);
    file = {};
    message_observers &= ~OBSERVED_BY_CAPTURE;
    return failure != 0 ? failure : close_failure;
}

}  // namespace

uint32_t message_observers;

void capture_write(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size) {
    if (file.failure != 0) return;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const size_t kept_size = std::min(size, size_t{largest_packet - pseudo_header_size});
    packet_header_t header = {static_cast<uint32_t>(now.tv_sec),
                              static_cast<uint32_t>(now.tv_nsec),
                              static_cast<uint32_t>(kept_size) + pseudo_header_size,
                              static_cast<uint32_t>(size) + pseudo_header_size,
                              1,
                              static_cast<uint8_t>(direction == FWX_HOST_SENT ? 0 : 1),
                              static_cast<uint8_t>(exchange),
                              0};
    iovec parts[] = {{&header, sizeof(header)}, {const_cast<void *>(msg), kept_size}};
    append(parts, 2);
}

extern "C" {

uint32_t fwx_host_capture_open(const char *path) {
    if (path == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (file.fd >= 0) return EBUSY;
    file.fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, file_mode);
    if (file.fd < 0) return static_cast<uint32_t>(errno);
    message_observers |= OBSERVED_BY_CAPTURE;
    file_header_t header;
    iovec part = {&header, sizeof(header)};
    append(&part, 1);
    return file.failure == 0 ? 0 : close_file();
}

uint32_t fwx_host_capture_close(void) {
    return file.fd < 0 ? 0 : close_file();
}

}  // extern "C"
