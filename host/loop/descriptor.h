/* Owner of a file descriptor, which it closes. */
#ifndef HOST_LOOP_DESCRIPTOR_H
#define HOST_LOOP_DESCRIPTOR_H

#include <unistd.h>

#include <utility>

class descriptor_t {
public:
    descriptor_t() = default;
    /** Takes ownership of `fd`; a negative `fd` is no descriptor. */
    explicit descriptor_t(int fd) : fd_(fd) {}
    descriptor_t(descriptor_t &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    descriptor_t &operator=(descriptor_t &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~descriptor_t() {
        if (is_open()) close(fd_);
    }

    bool is_open() const { return fd_ >= 0; }
    int get() const { return fd_; }
    /** Passes ownership to the caller. */
    int release() { return std::exchange(fd_, -1); }

private:
    int fd_ = -1;
};

#endif
