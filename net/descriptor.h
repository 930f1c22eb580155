/* Owns a file descriptor and calls a function from the loop when it becomes readable. */
#ifndef NET_DESCRIPTOR_H
#define NET_DESCRIPTOR_H

#include <unistd.h>

#include <functional>
#include <utility>

#include "fwx_host/loop.h"

class watched_descriptor_t {
public:
    /** Takes ownership of `fd`. If it is negative, or cannot be watched, `on_readable` is never called. */
    watched_descriptor_t(fwx_host_loop_t *loop, int fd, std::function<void()> on_readable)
        : loop_(loop), fd_(fd), on_readable_(std::move(on_readable)) {
        is_watched_ = fd_ >= 0 && fwx_host_loop_watch(
                                      loop_, fd_,
                                      [](void *arg) {
                                          const auto call = static_cast<watched_descriptor_t *>(arg)->on_readable_;
                                          call(); /* a copy, because the call may destroy this object */
                                      },
                                      this) == 0;
    }
    ~watched_descriptor_t() {
        if (is_watched_) fwx_host_loop_unwatch(loop_, fd_);
        if (fd_ >= 0) close(fd_);
    }
    watched_descriptor_t(const watched_descriptor_t &) = delete;
    watched_descriptor_t &operator=(const watched_descriptor_t &) = delete;

    int fd() const { return fd_; }
    bool is_watched() const { return is_watched_; }

private:
    fwx_host_loop_t *loop_;
    int fd_;
    std::function<void()> on_readable_;
    bool is_watched_;
};

#endif
