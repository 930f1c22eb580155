/* The state of one call of a client's handler: the message's first bytes, and the part of its buffer that may be read.
 */
#ifndef HOST_MESSAGING_DELIVERY_H
#define HOST_MESSAGING_DELIVERY_H

#include <algorithm>
#include <cstring>

#include "fwx_host/smc.h"

class channel_t;

/** Lives on the stack during the handler's call. Calls nest when a handler runs the loop. */
class delivery_t {
public:
    /** For a message of `size` bytes in a buffer of `capacity` bytes. */
    delivery_t(const channel_t *channel, const uint8_t *buffer, size_t size, size_t capacity)
        : outer_(innermost), channel_(channel), begin_(buffer), end_(buffer + size), size_(size) {
        if (capacity >= sizeof head_) {
            memcpy(head_, buffer, sizeof head_); /* constant length, so the compiler inlines the copy */
        } else {
            memcpy(head_, buffer, head_size());
        }
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
    size_t head_size() const { return std::min(size_, sizeof head_); }
    size_t bytes_behind(const void *data) const;

private:
    delivery_t *outer_; /* its handler runs the loop that makes this delivery */
    const channel_t *channel_;
    const uint8_t *begin_;
    const uint8_t *end_;
    size_t size_;
    alignas(8) uint8_t head_[FWX_HOST_SMC_HEAD_SIZE]; /* of the message as received */
};

#endif
