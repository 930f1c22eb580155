#include "host/messaging/shm/ring.h"

#include <cstring>

#include "host/runtime/bytes.h"

namespace {

constexpr uint32_t withdrawn = 1;

/** Bytes that a record takes up; 64 bits wide, because the length may be anything. */
uint64_t footprint(uint32_t size) {
    return shm_record_header + (uint64_t{size} + shm_ring_unit - 1) / shm_ring_unit * shm_ring_unit;
}

bool is_whole(uint32_t index) {
    return index % shm_ring_unit == 0;
}

}  // namespace

bool shm_writer_t::has_room(uint32_t size) {
    const uint64_t needed = footprint(size);
    if (!is_broken_ && needed > room()) refresh();
    return !is_broken_ && needed <= room();
}

/* The copy is the last thing, so that no registers are saved for it. */
void shm_writer_t::put(uint32_t tag, const void *bytes, uint32_t size) {
    const uint32_t mask = capacity_ - 1;
    const uint32_t header[] = {size, tag};
    memcpy(data_ + (written_ & mask), header, sizeof(header));
    const uint32_t start = (written_ + shm_record_header) & mask;
    written_ += static_cast<uint32_t>(footprint(size));
    if (size > capacity_ - start) return put_around(start, bytes, size);
    bytes_copy(data_ + start, bytes, size);
}

void shm_writer_t::put_around(uint32_t start, const void *bytes, uint32_t size) {
    const uint32_t before_end = capacity_ - start;
    memcpy(data_ + start, bytes, before_end);
    memcpy(data_, static_cast<const uint8_t *>(bytes) + before_end, size - before_end);
}

void shm_writer_t::refresh() {
    accept(ring_.read.load(std::memory_order_acquire));
}

void shm_writer_t::withdraw() {
    accept(ring_.read.fetch_or(withdrawn, std::memory_order_acq_rel));
    is_broken_ = true;
}

void shm_writer_t::accept(uint32_t read) {
    if (is_broken_) return;
    if (is_whole(read) && read - read_ <= written_ - read_) {
        read_ = read;
    } else {
        is_broken_ = true;
    }
}

void shm_reader_t::refresh() {
    const uint32_t written = ring_.written.load(std::memory_order_acquire);
    if (is_broken_) return;
    const bool is_ours = ring_.read.load(std::memory_order_relaxed) == published_;
    if (is_ours && is_whole(written) && written - read_ <= capacity_ && written - read_ >= written_ - read_) {
        written_ = written;
    } else {
        is_broken_ = true;
    }
}

shm_record_t shm_reader_t::front() {
    uint32_t header[2];
    static_assert(sizeof(header) == shm_record_header);
    const uint64_t word =
        __atomic_load_n(reinterpret_cast<const uint64_t *>(data_ + (read_ & (capacity_ - 1))), __ATOMIC_RELAXED);
    memcpy(header, &word, sizeof(header));
    const uint64_t taken_up = footprint(header[0]);
    if (taken_up > written_ - read_) {
        is_broken_ = true;
        return {};
    }
    return {header[0], header[1], static_cast<uint32_t>(taken_up)};
}

uint32_t shm_reader_t::first_word() const {
    const uint32_t start = (read_ + shm_record_header) & (capacity_ - 1); /* a unit's, which is in one piece */
    return __atomic_load_n(reinterpret_cast<const uint32_t *>(data_ + start), __ATOMIC_RELAXED);
}

void shm_reader_t::copy_to(void *bytes, const shm_record_t &record) const {
    const uint32_t start = (read_ + shm_record_header) & (capacity_ - 1);
    if (record.size > capacity_ - start) return copy_around_to(bytes, start, record.size);
    bytes_copy(bytes, data_ + start, record.size);
}

void shm_reader_t::copy_around_to(void *bytes, uint32_t start, uint32_t size) const {
    const uint32_t before_end = capacity_ - start;
    memcpy(bytes, data_ + start, before_end);
    memcpy(static_cast<uint8_t *>(bytes) + before_end, data_, size - before_end);
}

void shm_reader_t::advance(const shm_record_t &record) {
    read_ += record.footprint;
}

void shm_reader_t::skip(const shm_record_t &record) {
    advance(record);
    published_ = read_;
    ring_.read.store(read_, std::memory_order_release);
}

bool shm_reader_t::publish() {
    if (is_broken_ || published_ == read_) return !is_broken_;
    uint32_t expected = published_;
    is_broken_ = !ring_.read.compare_exchange_strong(expected, read_, std::memory_order_acq_rel);
    published_ = read_;
    return !is_broken_;
}

bool shm_reader_t::is_withdrawn() const {
    return (ring_.read.load(std::memory_order_relaxed) & withdrawn) != 0;
}
