/* log_writer_t: the limits of lines for each source and for all, and the count of omitted lines. */
#include "net/log_writer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "fwx_host/loop.h"

namespace {

/** Standard error as a pipe, with the clock stopped. */
class log_writer_test : public testing::Test {
protected:
    log_writer_test() {
        fwx_host_clock_turn(5000);
        EXPECT_EQ(pipe(ends_), 0);
        fcntl(ends_[0], F_SETFL, O_NONBLOCK);
        dup2(ends_[1], STDERR_FILENO);
        alarm(60); /* kills a test that hangs */
    }
    ~log_writer_test() override {
        alarm(0);
        dup2(before_, STDERR_FILENO);
        for (const int fd : {before_, ends_[0], ends_[1]}) {
            close(fd);
        }
        fwx_host_clock_run();
    }

    std::string read_all() const {
        std::string seen(size_t{1} << 20, '\0');
        seen.resize(static_cast<size_t>(std::max<ssize_t>(read(ends_[0], seen.data(), seen.size()), 0)));
        return seen;
    }
    static constexpr size_t lines = 40;
    static auto lines_in(const std::string &text) { return std::count(text.begin(), text.end(), '\n'); }

    log_writer_t log_{[](uint64_t count) { return std::to_string(count) + " left out"; }};

private:
    const int before_ = dup(STDERR_FILENO);
    int ends_[2] = {};
};

TEST_F(log_writer_test, a_source_of_too_many_lines_silences_no_other_and_all_have_no_more_than_all_may) {
    const char sources[1000] = {};
    const char &loud = sources[0];
    for (uint32_t i = 0; i < 1000; ++i) {
        log_.write(&loud, "loud");
    }
    EXPECT_EQ(lines_in(read_all()), log_writer_t::lines_of_source);
    log_.write(&sources[1], "quiet");
    EXPECT_EQ(read_all(), "950 left out\nquiet\n");
    fwx_host_clock_turn(1000);
    log_.write(&loud, "loud");
    EXPECT_EQ(read_all(), "loud\n");
    fwx_host_clock_turn(1000);
    for (const char &source : sources) {
        log_.write(&source, "line");
    }
    EXPECT_EQ(lines_in(read_all()), log_writer_t::lines_of_all);
    log_.finish();
    EXPECT_EQ(read_all(), "800 left out\n");
    log_.finish();
    EXPECT_EQ(read_all(), "");
}

TEST_F(log_writer_test, a_pipe_that_is_not_read_gets_whole_lines_and_later_how_many_it_missed) {
    const std::string longest(log_writer_t::longest_line - 1, 'x');
    size_t count = 0;
    for (; count < lines; ++count) {
        log_.write(nullptr, longest + "is cut");
    }
    const std::string seen = read_all();
    const auto whole = static_cast<size_t>(lines_in(seen));
    EXPECT_EQ(seen.size(), whole * log_writer_t::longest_line);
    EXPECT_LT(whole, lines);
    fwx_host_clock_turn(1000);
    log_.write(nullptr, "last");
    EXPECT_EQ(read_all(), std::to_string(lines - whole) + " left out\nlast\n");
}

}  // namespace
