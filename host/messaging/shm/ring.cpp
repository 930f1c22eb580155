#include "host/messaging/shm/ring.h"

#include <cstring>

#include "host/runtime/bytes.h"

namespace {

constexpr uint32_t withdrawn = 1;

/** Bytes that a record takes up, from its length with the header; 64 bits wide, because the length may be anything. */
uint64_t footprint(uint64_t length) {
    return (length + shm_ring_unit - 1) & ~uint64_t{shm_ring_unit - 1};
}

/** A header as the word that is stored at once. */
uint64_t header_of(uint32_t length, uint32_t tag) {
    const uint32_t parts[] = {length, tag};
    uint64_t header = 0;
    static_assert(sizeof(parts) == shm_record_header && sizeof(header) == shm_record_header);
    memcpy(&header, parts, sizeof(header));
    return header;
}

}  // namespace

bool shm_writer_t::has_room(uint32_t size) {
    const uint64_t needed = footprint(uint64_t{size} + shm_record_header) + shm_ring_unit;
    if (!is_broken_ && needed > room()) refresh();
    return !is_broken_ && needed <= room();
}

void shm_writer_t::store_header(uint32_t position, uint64_t header, int order) {
    __atomic_store_n(reinterpret_cast<uint64_t *>(data_ + (position & (capacity_ - 1))), header, order);
}

/* The copy is the last thing, so that no registers are saved for it. */
void shm_writer_t::put(uint32_t tag, const void *bytes, uint32_t size) {
    const uint32_t length = shm_record_header + size;
    const uint32_t start = (written_ + shm_record_header) & (capacity_ - 1);
    uint8_t *to = data_ + start;
    if (written_ == committed_) {
        first_length_ = length;
        first_tag_ = tag;
        if (length <= shm_ring_unit) to = first_bytes_;
    } else {
        store_header(written_, header_of(length, tag), __ATOMIC_RELAXED);
    }
    written_ += static_cast<uint32_t>(footprint(length));
    if (size > capacity_ - start) return put_around(start, bytes, size);
    bytes_copy(to, bytes, size);
}

void shm_writer_t::put_around(uint32_t start, const void *bytes, uint32_t size) {
    const uint32_t before_end = capacity_ - start;
    memcpy(data_ + start, bytes, before_end);
    memcpy(data_, static_cast<const uint8_t *>(bytes) + before_end, size - before_end);
}

void shm_writer_t::commit_with(uint32_t tag) {
    if (written_ == committed_) return;
    store_header(written_, 0, __ATOMIC_RELAXED);
    if (first_length_ <= shm_ring_unit) {
        memcpy(data_ + (committed_ & (capacity_ - 1)) + shm_record_header, first_bytes_, sizeof first_bytes_);
    }
    store_header(committed_, header_of(first_length_, tag), __ATOMIC_RELEASE);
    committed_ = written_;
}

bool shm_writer_t::note_read(uint32_t read) {
    if (is_read(read)) return false;
    accept(read);
    return true;
}

void shm_writer_t::withdraw() {
    accept(ring_.read.fetch_or(withdrawn, std::memory_order_acq_rel));
    is_broken_ = true;
}

void shm_writer_t::accept(uint32_t read) {
    if (is_broken_) return;
    if (read % shm_ring_unit == 0 && read - read_ <= written_ - read_) {
        read_ = read;
    } else {
        is_broken_ = true;
    }
}

shm_record_t shm_reader_t::front() {
    uint32_t parts[2];
    const uint64_t word = header();
    memcpy(parts, &word, sizeof(parts));
    const uint64_t taken_up = footprint(parts[0]);
    if (parts[0] < shm_record_header || taken_up > capacity_ - shm_ring_unit - (read_ - published_)) {
        is_broken_ = true;
        return {};
    }
    return {parts[0] - shm_record_header, parts[1], static_cast<uint32_t>(taken_up)};
}

uint32_t shm_reader_t::first_word() const {
    return __atomic_load_n(reinterpret_cast<const uint32_t *>(at(read_) + shm_record_header), __ATOMIC_RELAXED);
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
