/* Texts of the platform: lines for debugging, which are never waited for, and the texts of codes. */
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <set>

#include "host_fixture.h"
#include "platform/runtime.h"

namespace {

using debug_t = host_fixture_t;

TEST_F(debug_t, long_lines_are_not_truncated) {
    std::string seen;
    fwx_host_debug_sink_set([](void *arg, fwx_host_debug_channel_t, uint32_t,
                               const char *text) { *static_cast<std::string *>(arg) = text; },
                            &seen);
    for (const size_t length : {511u, 512u, 513u, 9000u}) {
        const std::string text(length, 'x');
        EXPECT_EQ(fwx_printf("%s", text.c_str()), static_cast<int>(length));
        EXPECT_EQ(seen, text);
    }
    fwx_host_debug_sink_set(nullptr, nullptr);
}

TEST_F(debug_t, writing_to_standard_error_never_blocks_and_reports_later_how_many_lines_were_left_out) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const int before = dup(STDERR_FILENO);
    ASSERT_EQ(dup2(ends[1], STDERR_FILENO), STDERR_FILENO);
    fwx_host_clock_turn(5000);
    alarm(60);                          /* ends a test that hangs */
    for (const int width : {10, 200}) { /* first the limit of lines is reached, then the pipe is full */
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
        EXPECT_EQ(note, "(" + std::to_string(1500 - lines) + " lines left out)\nlast\n");
        fwx_host_clock_turn(1000);
    }
    alarm(0);
    dup2(before, STDERR_FILENO);
    for (const int fd : {before, ends[0], ends[1]}) {
        close(fd);
    }
}

constexpr uint32_t of_the_library[] = {0x4030020b, 0x4030020c, 0x4030020d, 0x40300216, 0x40300616, 0xa030060c,
                                       0xa030060d, 0xa0300216, 0xa0300611, 0xa0300602, 0xa0300616};

TEST(error_text_t, every_code_of_the_library_and_of_the_platform_has_a_text_of_its_own) {
    std::vector<uint32_t> codes(std::begin(of_the_library), std::end(of_the_library));
    for (uint32_t code = FWX_HOST_ERR_NO_SERVER; code <= FWX_HOST_ERR_FORKED; ++code) {
        codes.push_back(code);
    }
    std::set<std::string> texts{"success"};
    for (const uint32_t code : codes) {
        const std::string text = xerr_strerror(code);
        EXPECT_NE(text.rfind("unknown error", 0), 0u) << text;
        EXPECT_TRUE(texts.insert(text).second) << text;
    }
}

TEST(error_text_t, other_codes_have_the_texts_of_the_system_or_the_program_and_unknown_ones_show_their_value) {
    const char *first = xerr_strerror(0x89abcdef);
    EXPECT_STREQ(xerr_strerror(134), "unknown error 0x00000086");
    EXPECT_STREQ(first, "unknown error 0x89abcdef");
    EXPECT_STREQ(xerr_strerror(EINVAL), "Invalid argument");
    EXPECT_STREQ(xerr_strerror(ENOMEM), "Cannot allocate memory");
    EXPECT_STREQ(xerr_strerror(133), "Memory page has hardware error");
    EXPECT_STREQ(xerr_strerror(0), "success");
    EXPECT_STREQ(xerr_strerror(0x6fff), "unknown error 0x00006fff");
    fwx_host_error_text_add(0x6fff, "table full");
    EXPECT_STREQ(xerr_strerror(0x6fff), "table full");
}

}  // namespace
