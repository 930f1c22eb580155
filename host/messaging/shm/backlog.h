/*
 * Messages for a client that does not read, once its ring is full. They stand one behind the other in blocks of memory
 * that go back to the system as soon as they are empty, so that what a client costs is known and ends with it.
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
    /** Copies a message to the end. Only THERE takes it. */
    backlog_room_t push(const void *bytes, uint32_t size);
    struct message_t {
        const uint8_t *bytes;
        uint32_t size;
    };
    /** The oldest message. Requires that it is not empty. */
    message_t front() const;
    void pop();

private:
    struct block_t {
        block_t *next;
        uint32_t bytes; /* of the whole block */
        uint32_t begin; /* of the oldest message in it; from the block on, like `end` */
        uint32_t end;
    };

    bool has_room_for(uint64_t bytes) const;
    void free_first();

    block_t *first_ = nullptr;
    block_t *last_ = nullptr;
    uint64_t count_ = 0;
    uint64_t bytes_ = 0; /* of the blocks */
};

#endif
