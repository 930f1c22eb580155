#include <unistd.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "host_fixture.h"
#include "platform/runtime.h"

namespace {

using line_t = std::tuple<fwx_host_debug_channel_t, uint32_t, std::string>;

class debug_t : public host_fixture_t {
protected:
    void SetUp() override {
        host_fixture_t::SetUp();
        fwx_host_debug_sink_set(
            [](void *arg, fwx_host_debug_channel_t channel, uint32_t level, const char *text) {
                static_cast<std::vector<line_t> *>(arg)->emplace_back(channel, level, text);
            },
            &lines_);
    }

    void TearDown() override {
        fwx_host_debug_sink_set(nullptr, nullptr);
        host_fixture_t::TearDown();
    }

    std::vector<line_t> lines_;
};

TEST_F(debug_t, every_function_reaches_the_sink_on_its_channel_and_level) {
    const void *flags = nullptr;
    fwx_buginf_error("\n%s %d", "e", 1);
    fwx_buginf_warn("w");
    fwx_buginf_info("i");
    fwx_buginf_trace("t");
    fwx_buginf_flags_internal_error(flags, "\n%s failed %s", "f", "x");
    fwx_buginf_flags_internal_warn(flags, "w");
    fwx_buginf_flags_internal_info(flags, "i");
    fwx_buginf_flags_internal_trace(flags, "t");
    EXPECT_EQ(fwx_printf("%s", "four"), 4);
    EXPECT_EQ(lines_, (std::vector<line_t>{{FWX_HOST_DEBUG_LEVEL, 1, "\ne 1"},
                                           {FWX_HOST_DEBUG_LEVEL, 2, "w"},
                                           {FWX_HOST_DEBUG_LEVEL, 3, "i"},
                                           {FWX_HOST_DEBUG_LEVEL, 4, "t"},
                                           {FWX_HOST_DEBUG_FLAGS, 1, "\nf failed x"},
                                           {FWX_HOST_DEBUG_FLAGS, 2, "w"},
                                           {FWX_HOST_DEBUG_FLAGS, 3, "i"},
                                           {FWX_HOST_DEBUG_FLAGS, 4, "t"},
                                           {FWX_HOST_DEBUG_CONSOLE, 0, "four"}}));
}

TEST_F(debug_t, long_lines_arrive_whole) {
    for (const size_t length : {511u, 512u, 513u, 9000u}) {
        const std::string text(length, 'x');
        lines_.clear();
        EXPECT_EQ(fwx_printf("%s", text.c_str()), static_cast<int>(length));
        EXPECT_EQ(lines_, (std::vector<line_t>{{FWX_HOST_DEBUG_CONSOLE, 0, text}}));
    }
}

TEST_F(debug_t, without_a_sink_lines_go_to_standard_error) {
    fwx_host_debug_sink_set(nullptr, nullptr);
    testing::internal::CaptureStderr();
    fwx_buginf_error("\nseen %d", 7);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\nseen 7");
    EXPECT_TRUE(lines_.empty());
}

TEST_F(debug_t, standard_error_that_nobody_reads_holds_nobody_up_and_hears_later_how_much_it_missed) {
    fwx_host_debug_sink_set(nullptr, nullptr);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int before = dup(STDERR_FILENO);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    fwx_host_clock_turn(5000);
    alarm(60);                          /* ends a test that hangs */
    for (const int width : {10, 200}) { /* too many, then too long for the pipe */
        for (int i = 0; i < 1500; ++i) {
            fwx_buginf_error("\n%*d", width, i);
        }
        fwx_host_clock_turn(1000);
        std::string seen(size_t{1} << 20, '\0');
        seen.resize(static_cast<size_t>(read(ends[0], seen.data(), seen.size())));
        fwx_buginf_error("\nlast");
        const auto lines = static_cast<size_t>(std::count(seen.begin(), seen.end(), '\n'));
        std::string note(200, '\0');
        note.resize(static_cast<size_t>(read(ends[0], note.data(), note.size())));
        EXPECT_LE(lines, 1000u);
        EXPECT_EQ(note, "\n(" + std::to_string(1500 - lines) + " lines left out)\nlast");
        fwx_host_clock_turn(1000);
    }
    alarm(0);
    dup2(before, STDERR_FILENO);
    for (const int fd : {before, ends[0], ends[1]}) {
        close(fd);
    }
}

TEST_F(debug_t, levels_belong_to_modules) {
    EXPECT_EQ(fwx_get_debug_level(0x1c000000), 0u);
    fwx_host_debug_level_set(0x1c000000, 3);
    fwx_host_debug_level_set(0x1d000000, 1);
    EXPECT_EQ(fwx_get_debug_level(0x1c000000), 3u);
    fwx_host_debug_level_set(0x1c000000, 0);
    EXPECT_EQ(fwx_get_debug_level(0x1c000000), 0u);
    EXPECT_EQ(fwx_get_debug_level(0x1d000000), 1u);
}

}  // namespace
