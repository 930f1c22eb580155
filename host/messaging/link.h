/* The way between a channel and its peer, as the channel uses it; local/ and shm/ have the two that there are. */
#ifndef HOST_MESSAGING_LINK_H
#define HOST_MESSAGING_LINK_H

#include <cstddef>
#include <cstdint>

/** What is known of a message from the server before it is taken. */
struct received_t {
    bool is_there;
    size_t size;
    uint32_t key; /* its first four bytes; 0 if it is shorter */
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
    /** The oldest message from the server; stays until pop(), also after link_down. */
    virtual received_t front() = 0;
    /** Takes the message that front() has told of and copies it to `bytes`, unless they are null. */
    virtual void pop(void *bytes) = 0;
    virtual size_t largest_message() const = 0;
    /** The channel has nothing left to dispatch: has it told what happened at the server meanwhile. */
    virtual void refresh() {}
    /** The channel's run is over, and the loop may wait. */
    virtual void after_run() {}
};

#endif
