/*
 * Message memory. A message has its queue link and its completion in front of its bytes, so that sending and queuing
 * allocate nothing. Freed messages are kept by size and reused.
 */
#ifndef HOST_MESSAGING_MESSAGE_H
#define HOST_MESSAGING_MESSAGE_H

#include <cstddef>
#include <cstdint>

#include "platform/smc.h"

constexpr size_t message_limit = size_t{4} << 20; /* the longest message that a channel carries, in bytes */
constexpr size_t answer_limit = size_t{64} << 10; /* the longest answer to a synchronous message, in bytes */

enum class message_owner_t : uint32_t { NOBODY = 0x66726565, CALLER = 0x63616c6c, CHANNEL = 0x6368616e };

struct alignas(16) message_t {
    message_t *next;
    smc_send_done_fn_t done_fn;
    void *cookie;
    uint32_t status; /* for done_fn */
    message_owner_t owner;
    uint32_t capacity; /* bytes allocated by the caller; only set while or after the caller owned the message */
    uint32_t size;     /* length of the message in bytes; not set while the caller owns a message that was never sent */
    uint32_t size_class;
    uint32_t ring_end; /* position at which its copy in the ring ends */

    uint8_t *bytes() { return reinterpret_cast<uint8_t *>(this + 1); }
    const uint8_t *bytes() const { return reinterpret_cast<const uint8_t *>(this + 1); }
};

/** A first-in first-out queue of messages, which it does not own. */
class message_queue_t {
public:
    bool empty() const { return head_ == nullptr; }
    message_t *front() { return head_; }

    void push(message_t *message) {
        message->next = nullptr;
        *tail_ = message;
        tail_ = &message->next;
    }

    message_t *pop() {
        message_t *message = head_;
        head_ = message->next;
        if (head_ == nullptr) tail_ = &head_;
        return message;
    }

    message_queue_t() = default;
    message_queue_t(const message_queue_t &) = delete;
    message_queue_t &operator=(const message_queue_t &) = delete;

private:
    message_t *head_ = nullptr;
    message_t **tail_ = &head_;
};

/** Allocates a message of `size` bytes, at most message_limit, with undefined content; null when memory is exhausted.
 */
message_t *message_alloc(size_t size);
/** Like message_alloc, with a copy of `bytes`, which may be null for a size of 0. */
message_t *message_copy(const void *bytes, size_t size);
/** The hot path of message_copy, which makes no calls: null unless the size is usual and a free message is at hand. */
message_t *message_copy_at_hand(const void *bytes, size_t size);
void message_free(message_t *message);

/** The message of a transmit buffer that the caller owns now, or null. */
message_t *message_of_caller(void *buffer);
/** Frees the message of a transmit buffer and updates the count of live transmit buffers. */
void message_release(message_t *message);

#endif
