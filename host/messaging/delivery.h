/* A call of a client's handler, and what is there for it. */
#ifndef HOST_MESSAGING_DELIVERY_H
#define HOST_MESSAGING_DELIVERY_H

#include <algorithm>
#include <cstring>

#include "fwx_host/smc.h"

class channel_t;

/** Lives as long as the handler's call, on the stack. */
class delivery_t {
public:
    /** Of a message in a buffer that has room for `capacity` bytes. */
    delivery_t(const channel_t *channel, const uint8_t *buffer, size_t size, size_t capacity)
        : outer_(innermost), channel_(channel), begin_(buffer), end_(buffer + size), size_(size) {
        if (capacity >= sizeof head_) {
            memcpy(head_, buffer, sizeof head_); /* of a known length, which takes no call */
        } else {
            memcpy(head_, buffer, head_size());
        }
        innermost = this;
    }
    ~delivery_t() { innermost = outer_; }
    delivery_t(const delivery_t &) = delete;
    delivery_t &operator=(const delivery_t &) = delete;

    /** Of the handler that was called last and has not returned; null: there is none. */
    [[gnu::visibility("hidden")]] static delivery_t *innermost;
    /** A channel's buffer is not to be read any more, whoever may still stand in a handler. */
    static void end_all(const channel_t *channel);

    const uint8_t *head() const { return head_; }
    size_t head_size() const { return std::min(size_, sizeof head_); }
    size_t bytes_behind(const void *data) const;

private:
    delivery_t *outer_; /* whose handler runs the loop that delivers this */
    const channel_t *channel_;
    const uint8_t *begin_;
    const uint8_t *end_;
    size_t size_;
    alignas(8) uint8_t head_[FWX_HOST_SMC_HEAD_SIZE]; /* as the message came */
};

#endif
