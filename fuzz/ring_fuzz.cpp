/* Fuzzes the shared-memory ring. As long as nobody tampers with the memory, records are read as they were written, in
 * order. After tampering, both ends still access only the ring's memory, and an end that is broken stays broken. */
#include "host/messaging/shm/ring.h"

#include <cstring>
#include <deque>
#include <iterator>
#include <memory>
#include <vector>

#include "input.h"

namespace {

class rings_t {
public:
    /** `is_final`: the writer never withdraws records. */
    rings_t(uint32_t capacity, bool is_final)
        : capacity_(capacity),
          is_final_(is_final),
          memory_(new uint64_t[capacity / sizeof(uint64_t)]()),
          writer_(ring_, bytes(), capacity),
          reader_(ring_, bytes(), capacity) {}

    void write(uint32_t tag, uint32_t size, bool commits) {
        const std::vector<uint8_t> record(size, static_cast<uint8_t>(tag));
        const bool had_room = writer_.has_room(size);
        const bool is_written = writer_.write(tag, record.data(), size);
        FUZZ_CHECK(is_written == had_room);
        if (is_written) uncommitted_.emplace_back(tag, record);
        if (!commits) return;
        writer_.commit();
        std::move(uncommitted_.begin(), uncommitted_.end(), std::back_inserter(inside_));
        uncommitted_.clear();
    }

    void read() {
        reader_.check();
        const bool has_record = reader_.has_record();
        FUZZ_CHECK(has_record || is_tampered_ || is_withdrawn_ || inside_.empty());
        if (!has_record) return;
        const shm_record_t record = reader_.front();
        FUZZ_CHECK(!reader_.is_broken() || is_tampered_);
        if (reader_.is_broken()) return;
        FUZZ_CHECK(record.size <= shm_largest_record(capacity_));
        std::vector<uint8_t> copy(record.size);
        reader_.copy_to(copy.data(), record);
        if (record.size >= sizeof(uint32_t)) {
            const uint32_t first_word = reader_.first_word();
            FUZZ_CHECK(std::memcmp(&first_word, copy.data(), sizeof(first_word)) == 0);
        }
        is_final_ ? reader_.skip(record) : reader_.advance(record);
        if (is_tampered_) return;
        FUZZ_CHECK(!inside_.empty() && inside_.front() == std::pair(record.tag, copy));
        inside_.pop_front();
        position_ += (8 + record.size + 63) / 64 * 64;
    }

    /** Ends a turn: records read since the last turn count as read, unless the writer withdrew them before. */
    void end_turn() {
        const bool is_kept = reader_.publish();
        FUZZ_CHECK(is_kept != reader_.is_broken());
        if (is_tampered_) return;
        FUZZ_CHECK(is_withdrawn_ ? !is_kept || position_ == published_ : is_kept);
        if (!is_withdrawn_) published_ = position_;
        writer_.refresh();
        FUZZ_CHECK(writer_.is_read(published_));
        FUZZ_CHECK(position_ == published_ || !writer_.is_read(position_));
    }

    void withdraw() {
        if (is_final_) return;
        writer_.withdraw();
        is_withdrawn_ = true;
        FUZZ_CHECK(writer_.is_broken());
    }

    void tamper(input_t &input) {
        is_tampered_ = true;
        const uint32_t value = input.byte() * (input.flag() ? 1u : 0x01010101u);
        if (input.below(3) == 0) {
            ring_.read += value;
        } else {
            std::memcpy(bytes() + input.byte() * sizeof(value) % capacity_, &value, sizeof(value));
        }
    }

    void check_ends() {
        FUZZ_CHECK(writer_.is_broken() || !writer_was_broken_);
        FUZZ_CHECK(reader_.is_broken() || !reader_was_broken_);
        writer_was_broken_ = writer_.is_broken();
        reader_was_broken_ = reader_.is_broken();
        FUZZ_CHECK(is_tampered_ || is_withdrawn_ || !(writer_was_broken_ || reader_was_broken_));
    }

private:
    uint8_t *bytes() { return reinterpret_cast<uint8_t *>(memory_.get()); }

    shm_ring_t ring_{};
    uint32_t capacity_;
    bool is_final_;
    std::unique_ptr<uint64_t[]> memory_; /* exactly the ring, so that the sanitizer finds an access outside it */
    shm_writer_t writer_;
    shm_reader_t reader_;
    using records_t = std::deque<std::pair<uint32_t, std::vector<uint8_t>>>; /* tag and bytes of each */
    records_t uncommitted_;
    records_t inside_;
    uint32_t position_ = 0;  /* the reader's position */
    uint32_t published_ = 0; /* the reader's position that the writer can see */
    bool is_withdrawn_ = false;
    bool is_tampered_ = false;
    bool writer_was_broken_ = false;
    bool reader_was_broken_ = false;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {  // NOLINT(readability-identifier-naming)
    input_t input(data, size);
    const uint32_t shape = input.byte();
    rings_t rings(128u << shape % 5, shape >= 128);
    while (!input.is_empty()) {
        const uint8_t action = input.byte();
        const uint32_t kind = action % 8;
        if (kind < 3) rings.write(action, input.byte(), kind < 2);
        if (kind == 3 || kind == 4) rings.read();
        if (kind == 5) rings.end_turn();
        if (kind == 6 && input.byte() == 0xff) rings.withdraw();
        if (kind == 7 && input.flag()) rings.tamper(input);
        rings.check_ends();
    }
    return 0;
}
