/* The way between a channel and its peer, as the channel uses it; local/ and shm/ have the two that there are. */
#ifndef HOST_MESSAGING_LINK_H
#define HOST_MESSAGING_LINK_H

#include <cstddef>
#include <cstdint>
#include <cstring>

/** Which handler a message is for: its first four bytes. */
using message_key_t = uint64_t;
constexpr message_key_t short_key = UINT64_MAX;  /* of a message that is shorter */
constexpr message_key_t no_key = UINT64_MAX - 1; /* of no message */

inline message_key_t key_of(const void *message, size_t size) {
    uint32_t word = 0;
    if (size < sizeof(word)) return short_key;
    memcpy(&word, message, sizeof(word));
    return word;
}

/** What is known of a message from the server before it is taken. */
struct received_t {
    bool is_there;
    size_t size;
    message_key_t key;
};

/** Hands the answer to a synchronous message to who asked, as much of it as `reply` takes. Returns what the sending
 * returns: 0, or why it is none. */
uint32_t answer_give(const void *question, size_t question_size, const void *answer, size_t size, void *reply,
                     size_t reply_size);

/**
 * Owned by its channel, which gives it up by deleting it. Towards the channel it calls begin_take and end_take for each
 * message that the server takes, make_ready when something was received, and link_down when the peer is gone.
 */
class link_t {
public:
    link_t() = default;
    link_t(const link_t &) = delete;
    link_t &operator=(const link_t &) = delete;
    virtual ~link_t() = default;

    /** The channel holds messages for the server. */
    virtual void messages_waiting() = 0;
    /** Has the server take what is waiting, then asks it; may lead to the link's deletion. */
    virtual uint32_t ask(const void *msg, size_t size, void *reply, size_t reply_size) = 0;
    /** Whether there is a message from the server, as far as it is known. */
    virtual bool has_message() = 0;
    /** Delivers messages from the server, by the channel's deliver_from(). */
    virtual void deliver() = 0;
    virtual size_t largest_message() const = 0;
    /** The channel has nothing left to dispatch: has it told what happened at the server meanwhile. */
    virtual void refresh() {}
    /** The channel's run is over, and the loop may wait. */
    virtual void after_run() {}
};

#endif
