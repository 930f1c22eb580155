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

/* The linker has this program call the wrapped ones instead of the platform's. */
int real_open(const char *path, int flags, ...) asm("__real_open");
int real_fsync(int fd) asm("__real_fsync");
int real_fdatasync(int fd) asm("__real_fdatasync");
int real_rename(const char *from, const char *to) asm("__real_rename");
int real_fchmod(int fd, mode_t mode) asm("__real_fchmod");
int real_flock(int fd, int operation) asm("__real_flock");

int wrapped_open(const char *path, int flags, ...) asm("__wrap_open");
int wrapped_open(const char *path, int flags, ...) {
    va_list list;
    va_start(list, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(list, mode_t) : 0;
    va_end(list);
    return faulty([=](bool cut) {
        const int fd = cut ? -1 : real_open(path, flags, mode);
        if ((flags & O_EXCL) != 0) disk.note(fd, true);
        return fd;
    });
}
/* A write that fails has written the half. */
ssize_t wrapped_write(int fd, const void *bytes, size_t size) asm("__wrap_write");
ssize_t wrapped_write(int fd, const void *bytes, size_t size) {
    return faulty([=](bool cut) { return real_write(fd, bytes, cut ? size / 2 : size); });
}
int wrapped_fsync(int fd) asm("__wrap_fsync");
int wrapped_fsync(int fd) {
    return faulty([=](bool cut) { return cut ? -1 : synced(fd, real_fsync(fd)); });
}
int wrapped_fdatasync(int fd) asm("__wrap_fdatasync");
int wrapped_fdatasync(int fd) {
    return faulty([=](bool cut) { return cut ? -1 : synced(fd, real_fdatasync(fd)); });
}
int wrapped_rename(const char *from, const char *to) asm("__wrap_rename");
int wrapped_rename(const char *from, const char *to) {
    return faulty([=](bool cut) {
        const int result = cut ? -1 : real_rename(from, to);
        disk.has_lost_name = disk.has_lost_name || result == 0;
        return result;
    });
}
int wrapped_fchmod(int fd, mode_t mode) asm("__wrap_fchmod");
int wrapped_fchmod(int fd, mode_t mode) {
    return faulty([=](bool cut) { return cut ? -1 : real_fchmod(fd, mode); });
}
int wrapped_flock(int fd, int operation) asm("__wrap_flock");
int wrapped_flock(int fd, int operation) {
    return faulty([=](bool cut) { return cut ? -1 : real_flock(fd, operation); });
}
