/* The shared-memory ring: records, committing, publishing, withdrawing, and what the other side has damaged. */
#include "host/messaging/shm/ring.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>

namespace {

/** Both ends of a ring; of four units, one of which is always free, unless a test wants another one. */
template <uint32_t capacity = 256>
struct ring_ends_t {
    bool write(const std::string &bytes, uint32_t tag = 0) {
        const bool is_written = writer_.write(tag, bytes.data(), static_cast<uint32_t>(bytes.size()));
        writer_.commit();
        return is_written;
    }

    /** Reads the oldest record. Returns its tag, a colon and its bytes; or "none", "broken", or "gone" if it was
     * withdrawn meanwhile. */
    std::string read() {
        reader_.check();
        if (reader_.is_broken()) return "broken";
        if (!reader_.has_record()) return "none";
        const shm_record_t record = reader_.front();
        if (reader_.is_broken()) return "broken";
        std::string bytes(record.size, '?');
        reader_.copy_to(bytes.data(), record);
        reader_.advance(record);
        return reader_.publish() ? std::to_string(record.tag) + ":" + bytes : "gone";
    }

    alignas(64) uint8_t bytes_[capacity] = {};
    shm_ring_t ring_{};
    shm_writer_t writer_{ring_, bytes_, capacity};
    shm_reader_t reader_{ring_, bytes_, capacity};
};

struct shm_ring_test_t : testing::Test, ring_ends_t<> {};

TEST_F(shm_ring_test_t, a_record_is_its_length_its_tag_and_its_bytes_in_whole_units) {
    ASSERT_TRUE(write("abcde", 0x01020304));
    EXPECT_EQ(std::string(reinterpret_cast<char *>(bytes_), 16), std::string("\15\0\0\0\4\3\2\1abcde\0\0\0", 16));
    EXPECT_EQ(writer_.position(), 64u);
    EXPECT_EQ(read(), "16909060:abcde");
    EXPECT_EQ(ring_.read, 64u);
    EXPECT_EQ(read(), "none");
}

TEST_F(shm_ring_test_t, a_record_stands_before_a_header_of_0_whatever_stood_there_a_round_before) {
    for (int round = 0; round < 3; ++round) {
        ASSERT_TRUE(write(std::string(3 * 64 - 8, '\xff')));
        EXPECT_EQ(read().size(), 2u + 3 * 64 - 8);
        EXPECT_EQ(read(), "none");
        for (const char *text : {"one", "two"}) {
            writer_.refresh();
            ASSERT_TRUE(write(text));
            EXPECT_EQ(read(), std::string("0:") + text);
            EXPECT_EQ(read(), "none") << round;
        }
    }
}

TEST_F(shm_ring_test_t, records_are_seen_together_when_the_first_is_committed_whose_tag_may_be_set_then) {
    ASSERT_TRUE(writer_.write(1, "one", 3));
    ASSERT_TRUE(writer_.write(2, "two", 3));
    EXPECT_EQ(read(), "none");
    writer_.commit_with(7);
    EXPECT_EQ(read(), "7:one");
    EXPECT_EQ(read(), "2:two");
}

TEST_F(shm_ring_test_t, records_pass_whole_and_in_order_between_two_that_run_at_the_same_time) {
    constexpr uint32_t count = 20000;
    ring_ends_t<1 << 14> ends; /* a hundred records, so that a busy machine does not switch threads for each */
    const auto record = [](uint32_t i) { return std::string(i % 120, static_cast<char>('a' + i % 26)); };
    std::thread writer([&] {
        for (uint32_t i = 0; i < count; ++i) {
            while (!ends.write(record(i), i)) {
                std::this_thread::yield();
            }
        }
    });
    uint32_t wrong = 0;
    for (uint32_t i = 0; i < count; ++i) {
        std::string found = ends.read();
        for (; found == "none"; found = ends.read()) {
            std::this_thread::yield();
        }
        if (found != std::to_string(i) + ":" + record(i)) ++wrong;
    }
    writer.join();
    EXPECT_EQ(wrong, 0u);
}

TEST_F(shm_ring_test_t, indices_go_on_behind_32_bits) {
    constexpr uint32_t large = 1 << 16;
    std::vector<uint64_t> memory(large / sizeof(uint64_t));
    const uint32_t size = shm_largest_record(large);
    const std::vector<uint8_t> record_bytes(size);
    auto *bytes = reinterpret_cast<uint8_t *>(memory.data());
    shm_writer_t writer(ring_, bytes, large);
    shm_reader_t reader(ring_, bytes, large);
    for (uint32_t turn = 0; turn < (1 << 16) + 66; ++turn) {
        ASSERT_TRUE(writer.write(7, record_bytes.data(), size)) << turn;
        writer.commit();
        ASSERT_FALSE(writer.has_room(0)) << turn;
        ASSERT_TRUE(reader.has_record()) << turn;
        const shm_record_t record = reader.front();
        ASSERT_EQ(record.size, size);
        reader.advance(record);
        ASSERT_TRUE(reader.publish());
        writer.refresh();
        ASSERT_TRUE(writer.is_read(writer.position())) << turn;
    }
    EXPECT_LT(writer.position(), 2 * large) << "began anew";
}

TEST_F(shm_ring_test_t, what_is_taken_back_is_not_read_any_more) {
    ASSERT_TRUE(write("read"));
    const uint32_t first = writer_.position();
    ASSERT_TRUE(write("kept"));
    EXPECT_EQ(read(), "0:read");
    writer_.withdraw();
    EXPECT_TRUE(writer_.is_read(first));
    EXPECT_FALSE(writer_.is_read(writer_.position()));
    EXPECT_EQ(read(), "broken");
    EXPECT_FALSE(write("more"));
}

TEST_F(shm_ring_test_t,
       the_writer_does_not_see_what_the_reader_has_not_published_and_what_is_taken_back_before_is_gone) {
    ASSERT_TRUE(write("one"));
    reader_.advance(reader_.front());
    EXPECT_FALSE(writer_.has_update());
    writer_.withdraw();
    EXPECT_FALSE(reader_.publish());
    EXPECT_EQ(ring_.read, 1u) << "nothing read, all taken back";
    EXPECT_EQ(read(), "broken");
}

/** A ring with three records, of which the first was read. */
struct used_ring_t : ring_ends_t<> {
    used_ring_t() {
        EXPECT_TRUE(write("one") && write("two") && write("three"));
        EXPECT_EQ(read(), "0:one");
        writer_.refresh();
        EXPECT_FALSE(writer_.is_broken());
    }
};

TEST_F(shm_ring_test_t, a_reader_that_goes_back_or_too_far_or_by_parts_breaks_the_ring_for_good) {
    for (const uint32_t index : {0u, 65u, 160u, 256u, 0x80000000u}) {
        SCOPED_TRACE(index);
        used_ring_t used;
        used.ring_.read = index;
        used.writer_.refresh();
        EXPECT_TRUE(used.writer_.is_broken());
        EXPECT_FALSE(used.writer_.is_read(used.writer_.position()));
        EXPECT_FALSE(used.write("more"));
        EXPECT_EQ(used.read(), "broken") << "its own index was changed";
        used.ring_.read = 192;
        used.writer_.refresh();
        EXPECT_TRUE(used.writer_.is_broken());
    }
}

TEST_F(shm_ring_test_t,
       a_position_that_the_reader_tells_counts_when_it_is_ahead_and_breaks_the_ring_when_it_cannot_be) {
    used_ring_t used;
    EXPECT_FALSE(used.writer_.note_read(0));
    EXPECT_FALSE(used.writer_.note_read(64));
    EXPECT_TRUE(used.writer_.note_read(128));
    EXPECT_TRUE(used.writer_.is_read(128));
    EXPECT_FALSE(used.writer_.is_broken());
    for (const uint32_t index : {129u, 256u, 0x7fffff80u}) {
        used_ring_t other;
        EXPECT_TRUE(other.writer_.note_read(index));
        EXPECT_TRUE(other.writer_.is_broken()) << index;
    }
}

TEST_F(shm_ring_test_t, a_length_that_no_record_has_breaks_the_ring_for_good) {
    for (const uint32_t length : {1u, 7u, 193u, 256u, 0x80000000u, 0xffffffffu}) {
        ring_ends_t fresh;
        ASSERT_TRUE(fresh.write("0123456789abcdef"));
        memcpy(fresh.bytes_, &length, sizeof(length));
        EXPECT_EQ(fresh.read(), "broken") << length;
        EXPECT_EQ(fresh.ring_.read, 0u) << length;
        memset(fresh.bytes_, 0, sizeof(length));
        EXPECT_EQ(fresh.read(), "broken") << length;
    }
}

TEST_F(shm_ring_test_t, a_writer_that_never_ends_brings_one_ring_full_before_the_reader_publishes) {
    const uint64_t header = 8;
    for (size_t unit = 0; unit < sizeof(bytes_); unit += 64) {
        memcpy(bytes_ + unit, &header, sizeof(header));
    }
    for (int records = 0; records < 3; ++records) {
        ASSERT_TRUE(reader_.has_record());
        reader_.advance(reader_.front());
    }
    EXPECT_TRUE(reader_.has_record());
    reader_.front();
    EXPECT_TRUE(reader_.is_broken());
}

}  // namespace
