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
