#include "file_calls.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>

fault_t fault;
disk_t &disk =
    *static_cast<disk_t *>(mmap(nullptr, sizeof(disk_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));

namespace {

int synced(int fd, int result) {
    if (result == 0) disk.note(fd, false);
    return result;
}

/** Carries a call out, or half of it, or not. */
template <typename call_t>
auto faulty(call_t call) -> decltype(call(false)) {
    if (fault.kind == fault_t::kind_t::none) return call(false);
    --fault.left;
    if (fault.is_now(fault_t::kind_t::fails)) {
        call(true);
        errno = ENOSPC;
        return -1;
    }
    if (fault.is_now(fault_t::kind_t::dies)) call(true);
    if (fault.is_now(fault_t::kind_t::dies)) raise(SIGKILL);
    const auto result = call(false);
    if (fault.is_now(fault_t::kind_t::dies_after)) raise(SIGKILL);
    return result;
}

}  // namespace

extern "C" {
int __real_open(const char *path, int flags, ...);
int __real_fsync(int fd);
int __real_fdatasync(int fd);
int __real_rename(const char *from, const char *to);
int __real_fchmod(int fd, mode_t mode);
int __real_flock(int fd, int operation);

int __wrap_open(const char *path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    return faulty([=](bool cut) {
        const int fd = cut ? -1 : __real_open(path, flags, mode);
        if ((flags & O_EXCL) != 0) disk.note(fd, true);
        return fd;
    });
}
/* A write that fails has written the half. */
ssize_t __wrap_write(int fd, const void *bytes, size_t size) {
    return faulty([=](bool cut) { return __real_write(fd, bytes, cut ? size / 2 : size); });
}
int __wrap_fsync(int fd) {
    return faulty([=](bool cut) { return cut ? -1 : synced(fd, __real_fsync(fd)); });
}
int __wrap_fdatasync(int fd) {
    return faulty([=](bool cut) { return cut ? -1 : synced(fd, __real_fdatasync(fd)); });
}
int __wrap_rename(const char *from, const char *to) {
    return faulty([=](bool cut) { return cut ? -1 : __real_rename(from, to); });
}
int __wrap_fchmod(int fd, mode_t mode) {
    return faulty([=](bool cut) { return cut ? -1 : __real_fchmod(fd, mode); });
}
int __wrap_flock(int fd, int operation) {
    return faulty([=](bool cut) { return cut ? -1 : __real_flock(fd, operation); });
}
}
