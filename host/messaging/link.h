/* The interface through which a channel reaches its peer. local/ and shm/ implement it. */
#ifndef HOST_MESSAGING_LINK_H
#define HOST_MESSAGING_LINK_H

#include <cstddef>
#include <cstdint>
#include <cstring>

/** The first four bytes of a message, which select its handler. */
using message_key_t = uint64_t;
constexpr message_key_t short_key = UINT64_MAX;  /* for a message shorter than four bytes */
constexpr message_key_t no_key = UINT64_MAX - 1; /* the key of no message */

inline message_key_t key_of(const void *message, size_t size) {
    uint32_t word = 0;
    if (size < sizeof(word)) return short_key;
    memcpy(&word, message, sizeof(word));
    return word;
}

/** Describes the oldest message from the server, if there is one. */
struct received_t {
    bool is_there;
    size_t size;
    message_key_t key;
};

/** Checks the answer to a synchronous message and copies at most `reply_size` bytes of it to `reply`. Returns the
 * result of the send: 0, FWX_HOST_ERR_NO_ANSWER or FWX_HOST_ERR_BAD_ANSWER. */
uint32_t answer_give(const void *question, size_t question_size, const void *answer, size_t size, void *reply,
                     size_t reply_size);

/**
 * Owned by its channel, which deletes it to close the connection. The link calls the channel's begin_take and end_take
 * for each message that the server takes, make_ready when something was received, and link_down when the peer has
 * ended.
 */
class link_t {
public:
    link_t() = default;
    link_t(const link_t &) = delete;
    link_t &operator=(const link_t &) = delete;
    virtual ~link_t() = default;

    /** Called when the channel has a new message for the server. */
    virtual void messages_waiting() = 0;
    /** Whether that has to be called for a message that is queued behind others. If not, those others ensure that the
     * server is called. */
    virtual bool wants_each_message() const = 0;
    /** Sends the waiting messages and then a synchronous message, and waits for its answer. May delete the link. */
    virtual uint32_t ask(const void *msg, size_t size, void *reply, size_t reply_size) = 0;
    /** Whether a message from the server is known; does not look for new ones. */
    virtual bool has_message() = 0;
    /** Delivers messages from the server, by the channel's deliver_from(). */
    virtual void deliver() = 0;
    virtual size_t largest_message() const = 0;
    /** Called when the channel has nothing left to dispatch: looks for new messages and completions. */
    virtual void refresh() {}
    /** Called at the end of the channel's run, after which the loop may wait. */
    virtual void after_run() {}
};

#endif
