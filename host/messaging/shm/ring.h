/*
 * A ring of records in memory that two processes share; one of them writes, the other reads. Neither trusts the other:
 * each keeps its own position to itself, and checks what it reads from the ring before it uses it. The one that finds
 * the ring broken says so from then on and does not touch it any more.
 *
 * A record is a header and its bytes, rounded up to whole units, so that a short record is one cache line. Positions
 * count bytes, run on over the ring's capacity and wrap at 32 bits. The bytes of a record may go around to the start of
 * the ring, its header never does.
 *
 * A record's header commits it: where no record is yet, the reader finds a word of 0. So a short record moves one line
 * between the two processors, and no index. The writer commits several records at once by storing the header of the
 * first one last. It keeps a short first record to itself until then, because a reader that polls for the header would
 * take the line away between the bytes and the header. The only index, `read`, tells the writer how much room there is
 * and which records were taken.
 *
 * Memory order, for processors that reorder as much as C++ allows:
 * - The writer stores the records and 0 where the next header will stand, and then the header of the first record with
 *   release. The reader loads a header with acquire before it touches the record. So it sees all of the record,
 *   and behind it the 0 or a header that was committed later, but nothing that stood there a round before.
 * - The reader copies a record and then stores `read` with release. The writer loads `read` with acquire before it
 *   stores into that room, so no store overtakes the copy.
 * - withdraw() and publish() change `read` by one read-modify-write each. The first of them in the order of that word
 *   decides: either the records were read, or they were taken back.
 * How the two processes wake each other, which takes a fence, is in connection.cpp.
 */
#ifndef HOST_MESSAGING_SHM_RING_H
#define HOST_MESSAGING_SHM_RING_H

#include <atomic>
#include <cstddef>
#include <cstdint>

/** Memory that two processors do not write to at the same time without slowing each other down: 64 bytes on most
 * processors, 128 on some of arm64, and a pair of lines is fetched together on x86-64. */
constexpr size_t shm_cache_line = 128;
constexpr uint32_t shm_ring_unit = 64;
constexpr uint32_t shm_record_header = 8; /* length in bytes with this header, then the tag, as 32-bit words */

/** The lowest bit of `read` says that the writer took back the rest, and is the writer's only store there. */
struct shm_ring_t {
    alignas(shm_cache_line) std::atomic<uint32_t> read;
};
static_assert(std::atomic<uint32_t>::is_always_lock_free && std::atomic<uint64_t>::is_always_lock_free);

/** The longest record of a ring of this capacity. The unit behind it stays free, for a header of 0. */
constexpr uint32_t shm_largest_record(uint32_t capacity) {
    return capacity - shm_ring_unit - shm_record_header;
}

class shm_writer_t {
public:
    /** `capacity` bytes at `data`, a power of two. The ring must be empty and fresh: all 0. */
    shm_writer_t(shm_ring_t &ring, uint8_t *data, uint32_t capacity) : ring_(ring), data_(data), capacity_(capacity) {}

    /** Puts a record into the ring, which the reader sees with the next commit(). False when there is no room for it
     * now, or when the ring is broken. */
    bool write(uint32_t tag, const void *bytes, uint32_t size) {
        if (!has_room(size)) return false;
        put(tag, bytes, size);
        return true;
    }
    /** The same for who has just asked has_room(). */
    void put(uint32_t tag, const void *bytes, uint32_t size);
    void commit() { commit_with(first_tag_); }
    /** The same, but gives the first record that it commits another tag. */
    void commit_with(uint32_t tag);
    uint32_t uncommitted_bytes() const { return written_ - committed_; }
    bool has_room(uint32_t size);
    /** Where the next record begins. */
    uint32_t position() const { return written_; }
    /** Looks how far the reader has come. */
    void refresh() { accept(ring_.read.load(std::memory_order_acquire)); }
    /** Takes a position that the reader gave in another way. Returns true when that was ahead of what is known. */
    bool note_read(uint32_t read);
    /** Whether the reader has come further since. */
    bool has_update() const { return ring_.read.load(std::memory_order_acquire) != read_; }
    /** Whether the reader has come, as far as is known, to a position returned earlier. */
    bool is_read(uint32_t position) const { return static_cast<int32_t>(read_ - position) >= 0; }
    /** Takes back what the reader has not published as read. Nothing can be written after it. */
    void withdraw();
    bool is_broken() const { return is_broken_; }

private:
    uint32_t room() const { return capacity_ - (written_ - read_); }
    void store_header(uint32_t position, uint64_t header, int order);
    void accept(uint32_t read);
    [[gnu::cold]] void put_around(uint32_t start, const void *bytes, uint32_t size);

    shm_ring_t &ring_;
    uint8_t *data_;
    uint32_t capacity_;
    uint32_t written_ = 0;
    uint32_t committed_ = 0;
    uint32_t first_length_ = 0; /* header of the first record behind committed_ */
    uint32_t first_tag_ = 0;
    uint8_t first_bytes_[shm_ring_unit - shm_record_header] = {}; /* of that record, if it is short */
    uint32_t read_ = 0;                                           /* as last seen */
    bool is_broken_ = false;
};

struct shm_record_t {
    uint32_t size;
    uint32_t tag;
    uint32_t footprint; /* bytes that it takes up in the ring */
};

class shm_reader_t {
public:
    /** As for the writer. */
    shm_reader_t(shm_ring_t &ring, const uint8_t *data, uint32_t capacity)
        : ring_(ring), data_(data), capacity_(capacity) {}

    bool has_record() const { return !is_broken_ && header() != 0; }
    /** Finds the ring broken if the writer took records back, or has changed the reader's index. */
    void check() { is_broken_ = is_broken_ || ring_.read.load(std::memory_order_relaxed) != published_; }
    /** The oldest record, which is_broken() afterwards may disown. Requires has_record(). A writer that never ends
     * brings no more than one ring full of records between two calls of publish() or skip(). */
    shm_record_t front();
    /** The first four bytes of the record that front() returned; it must have them. */
    uint32_t first_word() const;
    /** Copies the bytes of the record that front() returned. */
    void copy_to(void *bytes, const shm_record_t &record) const;
    /** Goes on to the next record, of which the writer hears with the next publish(). */
    void advance(const shm_record_t &record) { read_ += record.footprint; }
    /** Where the next record begins. */
    uint32_t position() const { return read_; }
    /** Tells the writer what was read; false when some of it was not to be had any more: it was taken back, or the ring
     * is broken. */
    bool publish();
    /** Goes on to the next record of a ring whose writer takes nothing back, and tells it so, which spares a locked
     * instruction. */
    void skip(const shm_record_t &record);
    void give_up() { is_broken_ = true; }
    bool is_broken() const { return is_broken_; }
    /** True if the writer withdrew its records, which also makes the ring broken. */
    bool is_withdrawn() const;

private:
    const uint8_t *at(uint32_t position) const { return data_ + (position & (capacity_ - 1)); }
    uint64_t header() const { return __atomic_load_n(reinterpret_cast<const uint64_t *>(at(read_)), __ATOMIC_ACQUIRE); }
    [[gnu::cold]] void copy_around_to(void *bytes, uint32_t start, uint32_t size) const;

    shm_ring_t &ring_;
    const uint8_t *data_;
    uint32_t capacity_;
    uint32_t read_ = 0;
    uint32_t published_ = 0; /* what the writer knows of read_ */
    bool is_broken_ = false;
};

#endif
