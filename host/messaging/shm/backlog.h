/*
 * A queue of messages for a client whose ring is full because it does not read. The messages are stored in blocks of
 * memory that are unmapped as soon as they are empty. So the memory that a client takes is known, and none of it
 * remains when the client is gone.
 */
#ifndef HOST_MESSAGING_SHM_BACKLOG_H
#define HOST_MESSAGING_SHM_BACKLOG_H

#include <cstdint>

enum class backlog_room_t : uint8_t { THERE, FULL, NO_MEMORY };

class backlog_t {
public:
    backlog_t() = default;
    backlog_t(const backlog_t &) = delete;
    backlog_t &operator=(const backlog_t &) = delete;
    ~backlog_t();

    bool empty() const { return count_ == 0; }
    uint64_t count() const { return count_; }
    uint64_t bytes() const { return bytes_; }
    /** Copies a message to the end. The queue is unchanged unless the result is THERE. */
    backlog_room_t push(const void *bytes, uint32_t size);
    struct message_t {
        const uint8_t *bytes;
        uint32_t size;
    };
    /** The oldest message. Requires !empty(). */
    message_t front() const;
    void pop();

private:
    struct block_t {
        block_t *next;
        uint32_t bytes; /* size of the whole block */
        uint32_t begin; /* offset in the block of its oldest message */
        uint32_t end;   /* offset in the block behind its youngest message */
    };

    bool has_room_for(uint64_t bytes) const;
    void free_first();

    block_t *first_ = nullptr;
    block_t *last_ = nullptr;
    uint64_t count_ = 0;
    uint64_t bytes_ = 0; /* size of all blocks */
};

#endif
