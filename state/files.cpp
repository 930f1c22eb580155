/* System calls behind files_t. Opening a file never follows a symbolic link and never waits for the peer of a FIFO. */
#include "state/files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr int common_flags = O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC;

template <typename call_t>
auto without_interrupts(call_t call) {
    for (;;) {
        const auto result = call();
        if (result >= 0 || errno != EINTR) return result;
    }
}

void close_keeping_errno(int fd) {
    const int error = errno;
    ::close(fd);
    errno = error;
}

void unlink_keeping_errno(const std::string &path) {
    const int error = errno;
    unlink(path.c_str());
    errno = error;
}

}  // namespace

int files_t::open(const std::string &path, int flags) {
    return without_interrupts([&] { return ::open(path.c_str(), flags | common_flags); });
}

int files_t::create(const std::string &path, mode_t mode) {
    const int fd =
        without_interrupts([&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | common_flags, 0600); });
    if (fd < 0 || fchmod(fd, mode) == 0) return fd;
    close_keeping_errno(fd);
    unlink_keeping_errno(path);
    return -1;
}

void files_t::close(int fd) {
    close_keeping_errno(fd);
}

int files_t::stat(int fd, struct stat &status) {
    return fstat(fd, &status);
}

ssize_t files_t::read(int fd, void *to, size_t size, off_t at) {
    return without_interrupts([&] { return pread(fd, to, size, at); });
}

ssize_t files_t::write(int fd, const void *bytes, size_t size, off_t at) {
    return without_interrupts([&] { return pwrite(fd, bytes, size, at); });
}

bool files_t::write_all(int fd, std::string_view text, uint64_t at) {
    while (!text.empty()) {
        const ssize_t now = write(fd, text.data(), text.size(), static_cast<off_t>(at));
        if (now == 0) errno = EIO;
        if (now <= 0) return false;
        text.remove_prefix(static_cast<size_t>(now));
        at += static_cast<uint64_t>(now);
    }
    return true;
}

int files_t::sync(int fd) {
    return fdatasync(fd);
}

int files_t::sync_directory_of(const std::string &path) {
    const std::string directory = path.substr(0, path.rfind('/') + 1) + ".";
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return -1;
    const int result = fsync(fd);
    close_keeping_errno(fd);
    return result;
}

int files_t::rename(const std::string &from, const std::string &to) {
    return std::rename(from.c_str(), to.c_str());
}

int files_t::link(const std::string &from, const std::string &to) {
    return ::link(from.c_str(), to.c_str());
}

int files_t::remove(const std::string &path) {
    return unlink(path.c_str());
}

files_t &files_t::system() {
    static files_t files;
    return files;
}

bool can_name_file(const std::string &path) {
    return !path.empty() && path.back() != '/';
}

std::string distrusted(const std::string &path, const struct stat &status) {
    if (!S_ISREG(status.st_mode)) return path + ": not a regular file";
    if (status.st_uid != geteuid()) {
        return path + ": belongs to user " + std::to_string(status.st_uid) + ", not to user " +
               std::to_string(geteuid()) + "; change its owner";
    }
    if ((status.st_mode & (S_IWGRP | S_IWOTH)) == 0) return "";
    char mode[16];
    snprintf(mode, sizeof mode, "%04o", static_cast<unsigned>(status.st_mode & 07777));
    return path + ": other users may write to it (mode " + mode + "); change its mode to 0600";
}

std::string file_error(const std::string &path) {
    return path + ": " + std::strerror(errno);
}
