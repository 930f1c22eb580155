/* The shared-memory ring: records, publishing, withdrawing, and indices or lengths that the other side has damaged. */
#include "host/messaging/shm/ring.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <thread>

namespace {

constexpr uint32_t capacity = 64;

/** Both ends of a ring of 64 bytes. */
struct ring_ends_t {
    bool write(const std::string &bytes, uint32_t tag = 0) {
        const bool is_written = writer_.write(tag, bytes.data(), static_cast<uint32_t>(bytes.size()));
        writer_.publish();
        return is_written;
    }

    /** Reads the oldest record. Returns its tag, a colon and its bytes; or "none", "broken", or "gone" if it was
     * withdrawn meanwhile. */
    std::string read() {
        reader_.refresh();
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

struct shm_ring_test_t : testing::Test, ring_ends_t {};

TEST_F(shm_ring_test_t, a_record_is_its_length_its_tag_and_its_bytes_in_whole_units) {
    ASSERT_TRUE(write("abcde", 0x01020304));
    EXPECT_EQ(ring_.written, 16u);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(bytes_), 16), std::string("\5\0\0\0\4\3\2\1abcde\0\0\0", 16));
    EXPECT_EQ(read(), "16909060:abcde");
    EXPECT_EQ(ring_.read, 16u);
    EXPECT_EQ(read(), "none");
}

TEST_F(shm_ring_test_t, records_pass_whole_and_in_order_between_two_that_run_at_the_same_time) {
    constexpr uint32_t count = 20000;
    const auto record = [](uint32_t i) { return std::string(i % 40, static_cast<char>('a' + i % 26)); };
    std::thread writer([this, record] {
        for (uint32_t i = 0; i < count; ++i) {
            while (!write(record(i), i)) {
                std::this_thread::yield();
            }
        }
    });
    uint32_t wrong = 0;
    for (uint32_t i = 0; i < count; ++i) {
        std::string found = read();
        for (; found == "none"; found = read()) {
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
    const std::vector<uint8_t> record_bytes(large - 8);
    auto *bytes = reinterpret_cast<uint8_t *>(memory.data());
    shm_writer_t writer(ring_, bytes, large);
    shm_reader_t reader(ring_, bytes, large);
    for (uint32_t turn = 0; turn < (1 << 16) + 2; ++turn) {
        ASSERT_TRUE(writer.write(7, record_bytes.data(), large - 8)) << turn;
        writer.publish();
        ASSERT_FALSE(writer.has_room(0)) << turn;
        reader.refresh();
        ASSERT_TRUE(reader.has_record()) << turn;
        const shm_record_t record = reader.front();
        ASSERT_EQ(record.size, large - 8);
        reader.advance(record);
        ASSERT_TRUE(reader.publish());
        writer.refresh();
        ASSERT_TRUE(writer.is_read(writer.position())) << turn;
    }
    EXPECT_EQ(ring_.written, 2 * large);
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

TEST_F(shm_ring_test_t, neither_side_sees_what_the_other_has_not_published_and_what_is_taken_back_before_is_gone) {
    ASSERT_TRUE(writer_.write(0, "one", 3));
    EXPECT_EQ(read(), "none");
    ASSERT_TRUE(write("two"));
    reader_.refresh();
    reader_.advance(reader_.front());
    EXPECT_FALSE(writer_.has_update());
    writer_.withdraw();
    EXPECT_FALSE(reader_.publish());
    EXPECT_EQ(ring_.read, 1u) << "nothing read, all taken back";
    EXPECT_EQ(read(), "broken");
}

/** A ring with three records of 16 bytes, of which the first was read. */
struct used_ring_t : ring_ends_t {
    used_ring_t() {
        EXPECT_TRUE(write("one") && write("two") && write("three"));
        EXPECT_EQ(read(), "0:one");
        writer_.refresh();
        EXPECT_FALSE(writer_.is_broken());
    }
};

TEST_F(shm_ring_test_t, a_writer_that_goes_back_or_too_far_or_by_parts_breaks_the_ring_for_good) {
    for (const uint32_t index : {0u, 16u, 49u, 52u, 88u, 0x80000000u}) {
        used_ring_t used;
        used.ring_.written = index;
        EXPECT_EQ(used.read(), "broken") << index;
        EXPECT_FALSE(used.reader_.has_record()) << index;
        used.ring_.written = 48;
        EXPECT_EQ(used.read(), "broken") << index;
    }
}

TEST_F(shm_ring_test_t, a_reader_that_goes_back_or_too_far_or_by_parts_breaks_the_ring_for_good) {
    for (const uint32_t index : {0u, 17u, 36u, 56u, 0x80000000u}) {
        SCOPED_TRACE(index);
        used_ring_t used;
        used.ring_.read = index;
        used.writer_.refresh();
        EXPECT_TRUE(used.writer_.is_broken());
        EXPECT_FALSE(used.writer_.is_read(used.writer_.position()));
        EXPECT_FALSE(used.write("more"));
        EXPECT_EQ(used.read(), "broken") << "its own index was changed";
        used.ring_.read = 48;
        used.writer_.refresh();
        EXPECT_TRUE(used.writer_.is_broken());
    }
}

TEST_F(shm_ring_test_t, a_record_longer_than_what_was_written_breaks_the_ring) {
    for (const uint32_t length : {17u, 64u, 0x80000000u, 0xffffffffu}) {
        ring_ends_t fresh;
        ASSERT_TRUE(fresh.write("0123456789abcdef"));
        memcpy(fresh.bytes_, &length, sizeof(length));
        EXPECT_EQ(fresh.read(), "broken") << length;
        EXPECT_EQ(fresh.ring_.read, 0u) << length;
    }
}

}  // namespace
