#include <unistd.h>

#include <algorithm>
#include <string>

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

}  // namespace
