/* The bytes of capture files, and the errors when a file cannot be opened or written. */
#include <sys/resource.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/host/channel_fixture.h"
#include "tests/support/descriptor_limit.h"

namespace {

using namespace std::string_literals;

class capture_file_test : public channel_fixture_t {
protected:
    void SetUp() override {
        channel_fixture_t::SetUp();
        descriptors_ = open_descriptors();
    }
    void TearDown() override {
        EXPECT_EQ(fwx_host_capture_close(), 0U);
        EXPECT_EQ(open_descriptors(), descriptors_);
        std::filesystem::remove(path_);
        channel_fixture_t::TearDown();
    }

    uint32_t open() const { return fwx_host_capture_open(path_.c_str()); }
    std::string content() const {
        std::ifstream file(path_, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    std::filesystem::path path_ = testing::TempDir() + "capture_file_test." + std::to_string(getpid());
    size_t descriptors_ = 0;
};

constexpr size_t file_header_size = 24;
constexpr size_t time_size = 8; /* a packet's time: seconds and nanoseconds, 4 bytes each */

uint32_t number_at(const std::string &bytes, size_t at) {
    uint32_t number = 0;
    memcpy(&number, bytes.data() + at, sizeof(number));
    return number;
}

/* Checks the time of the packet at `at` and removes it from the bytes, so that the rest can be compared to literals. */
void take_time(std::string &bytes, size_t at, time_t not_before) {
    EXPECT_GE(number_at(bytes, at), not_before);
    EXPECT_LE(number_at(bytes, at), time(nullptr));
    EXPECT_LT(number_at(bytes, at + 4), 1000000000U);
    bytes.erase(at, time_size);
}

TEST_F(capture_file_test, contains_every_message_as_a_packet_in_both_directions_and_forms_and_leaves_the_tap_working) {
    const time_t before = time(nullptr);
    uint32_t tapped = 0;
    const auto count = [](void *arg, fwx_host_direction_t, const void *, size_t) { ++*static_cast<uint32_t *>(arg); };
    fwx_host_tap_set(count, &tapped);
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(send("up"), 0U);
    EXPECT_EQ(ask("?"), 0U);
    EXPECT_EQ(reply(""), 0U);
    run();
    std::string bytes = content(); /* before closing, because packets are not buffered */
    EXPECT_EQ(fwx_host_capture_close(), 0U);
    EXPECT_EQ(send("later"), 0U);
    run();
    EXPECT_EQ(content(), bytes);
    EXPECT_EQ(tapped, 5U);
    fwx_host_tap_set(nullptr, nullptr);

    const std::string packets[] = {
        "\x0a\0\0\0\x0a\0\0\0\x01\x00\x00\0\x03\xc0\x60\0up"s,
        "\x09\0\0\0\x09\0\0\0\x01\x00\x01\0\x03\xc0\x60\0?"s,
        "\x1b\0\0\0\x1b\0\0\0\x01\x01\x01\0\x03\xc0\x60\0----------------yes"s,
        "\x08\0\0\0\x08\0\0\0\x01\x01\x00\0\x03\xc0\x60\0"s,
    };
    std::string expected = "\x4d\x3c\xb2\xa1\x02\0\x04\0\0\0\0\0\0\0\0\0\0\0\x04\0\x93\0\0\0"s;
    for (const std::string &packet : packets) {
        take_time(bytes, expected.size(), before);
        expected += packet;
    }
    EXPECT_EQ(bytes, expected);
}

TEST_F(capture_file_test, truncates_a_long_message_to_the_largest_packet_that_readers_accept) {
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(send(std::string(300000, 'x')), 0U);
    run();
    const std::string bytes = content();
    ASSERT_EQ(bytes.size(), file_header_size + 16 + 262144);
    EXPECT_EQ(number_at(bytes, file_header_size + time_size), 262144U);
    EXPECT_EQ(number_at(bytes, file_header_size + time_size + 4), 300008U);
    EXPECT_EQ(fwx_host_capture_close(), 0U);
}

TEST_F(capture_file_test, ends_with_the_last_whole_packet_when_the_file_may_not_grow) {
    constexpr size_t packet_size = 16 + 4 + 4 + 6;
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    const rlimit limited = {file_header_size + 2 * packet_size + 20, before.rlim_max};
    const auto handler = signal(SIGXFSZ, SIG_IGN);
    ASSERT_EQ(open(), 0U);
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limited), 0);
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(send("sixsix"), 0U);
    }
    run();
    EXPECT_EQ(content().size(), file_header_size + 2 * packet_size);
    EXPECT_EQ(fwx_host_capture_close(), uint32_t{EFBIG});
    setrlimit(RLIMIT_FSIZE, &before);
    signal(SIGXFSZ, handler);

    EXPECT_EQ(open(), 0U);
    EXPECT_EQ(content().size(), file_header_size);
    EXPECT_EQ(fwx_host_capture_close(), 0U);
}

TEST_F(capture_file_test, that_cannot_be_opened_or_started_is_refused_with_the_reason) {
    EXPECT_EQ(fwx_host_capture_open(nullptr), 0x500eU);
    EXPECT_EQ(fwx_host_capture_open("/no/such/folder/file"), uint32_t{ENOENT});
    EXPECT_EQ(fwx_host_capture_open("/dev/full"), uint32_t{ENOSPC});
    EXPECT_EQ(open(), 0U);
    EXPECT_EQ(fwx_host_capture_open("/dev/null"), uint32_t{EBUSY});
    EXPECT_EQ(fwx_host_capture_close(), 0U);
}

}  // namespace
