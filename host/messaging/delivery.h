/* The state of one call of a client's handler: the message's first bytes, and the part of its buffer that may be read.
 * The handler may write into that buffer, so the first bytes are elsewhere: in the message itself, or in a copy. */
#ifndef HOST_MESSAGING_DELIVERY_H
#define HOST_MESSAGING_DELIVERY_H

#include <algorithm>
#include <cstring>

#include "fwx_host/smc.h"

class channel_t;

/** A copy of the first bytes of a message. */
class head_copy_t {
public:
    /** Copies them from a buffer of `capacity` bytes, which holds a message of `size` bytes. */
    void take(const uint8_t *buffer, size_t size, size_t capacity) {
        if (capacity >= sizeof bytes_) {
            memcpy(bytes_, buffer, sizeof bytes_); /* constant length, so the compiler inlines the copy */
        } else {
            memcpy(bytes_, buffer, std::min(size, sizeof bytes_));
        }
    }
    const uint8_t *bytes() const { return bytes_; }

private:
    alignas(8) uint8_t bytes_[FWX_HOST_SMC_HEAD_SIZE];
};

/** Lives on the stack during the handler's call. Calls nest when a handler runs the loop. */
class delivery_t {
public:
    /** For a message of `size` bytes in `buffer`, whose first bytes also stand at `head`. */
    delivery_t(const channel_t *channel, const uint8_t *buffer, size_t size, const uint8_t *head)
        : outer_(innermost), channel_(channel), buffer_(buffer), size_(size), head_(head) {
        innermost = this;
    }
    ~delivery_t() { innermost = outer_; }
    delivery_t(const delivery_t &) = delete;
    delivery_t &operator=(const delivery_t &) = delete;

    /** The delivery of the handler that was called last and has not returned; null if no handler is running. */
    [[gnu::visibility("hidden")]] static delivery_t *innermost;
    /** Ends the access to a channel's receive buffer, also for handlers that are still running. */
    static void end_all(const channel_t *channel);

    const uint8_t *head() const { return head_; }
    size_t head_size() const { return std::min<size_t>(size_, FWX_HOST_SMC_HEAD_SIZE); }
    size_t bytes_behind(const void *data) const;

private:
    delivery_t *outer_; /* its handler runs the loop that makes this delivery */
    const channel_t *channel_;
    const uint8_t *buffer_; /* null once it may not be read any more */
    size_t size_;           /* of the message */
    const uint8_t *head_;   /* of the message as received */
};

#endif
