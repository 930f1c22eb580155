/* natctl as a program: on a terminal, and with standard descriptors that are closed or unusable. */
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/stat.h>
#include <termios.h>

#include <algorithm>

#include "server_process.h"
#include "tests/support/runtime_directory.h"

namespace {

constexpr int patience_ms = 10000;

/** Runs natctl on a pseudo-terminal of its own, with its files in the test's directory. */
class terminal_test : public testing::Test {
protected:
    ~terminal_test() override {
        if (child_ > 0) kill(child_, SIGKILL);
        if (child_ > 0) waitpid(child_, nullptr, 0);
        close(terminal_);
    }

    /** Runs a line of the shell with `$natctl` and XDG_STATE_HOME. */
    void start(const std::string &line) {
        shown_.clear();
        close(terminal_);
        child_ = forkpty(&terminal_, nullptr, nullptr, nullptr);
        ASSERT_GE(child_, 0);
        if (child_ != 0) return;
        setenv("TERM", "dumb", 1);
        setenv("natctl", NATCTL_PATH, 1);
        execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
        _exit(127);
    }

    void type(const std::string &keys) {
        ASSERT_EQ(write(terminal_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()));
    }

    /** Waits until the terminal shows `text` after the text awaited before. */
    testing::AssertionResult shows(const std::string &text) {
        while (shown_.find(text) == std::string::npos) {
            pollfd readable{terminal_, POLLIN, 0};
            char bytes[4096];
            const ssize_t got = poll(&readable, 1, patience_ms) == 1 ? read(terminal_, bytes, sizeof bytes) : 0;
            if (got <= 0) return testing::AssertionFailure() << text << " is not in " << shown_;
            shown_.append(bytes, static_cast<size_t>(got));
        }
        shown_.erase(0, shown_.find(text) + text.size());
        return testing::AssertionSuccess();
    }

    int exit_status() {
        int status = -1;
        waitpid(child_, &status, 0);
        child_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const runtime_directory_t directory_;
    std::string shown_; /* output after the text awaited last */
    int terminal_ = -1;
    pid_t child_ = -1;
};

TEST_F(terminal_test, the_shell_names_its_server_answers_before_it_asks_again_and_goes_on_after_an_interrupt) {
    const server_process_t server;
    const std::string timeout = "timeout set --type 1 --value 300";
    start("NATCTL_CONNECT=alpha exec $natctl shell");
    ASSERT_TRUE(shows("natctl alpha> "));
    for (const std::string &keys : {timeout + "\n", timeout + "\x03", timeout + "\n"}) {
        type(keys);
        ASSERT_TRUE(shows(keys.back() == '\n' ? "timeout set: ok\r\nnatctl alpha> " : "natctl alpha> "));
    }
    type("\x04");
    ASSERT_TRUE(shows("\r\n"));
    EXPECT_EQ(exit_status(), 0);
}

TEST_F(terminal_test, the_shell_knows_what_was_typed_in_the_one_before_if_that_could_be_kept) {
    start("exec $natctl shell");
    ASSERT_TRUE(shows("natctl> "));
    type("timeout set --type 3 --value 7\n");
    EXPECT_TRUE(shows("timeout set: ok\r\n"));
    kill(child_, SIGKILL);
    EXPECT_EQ(exit_status(), -1);
    struct stat status {};
    ASSERT_EQ(stat((directory_.path() + "/state/natctl/history").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);

    start("exec $natctl shell");
    ASSERT_TRUE(shows("natctl> "));
    type("\x10\n"); /* recalls the last line */
    EXPECT_TRUE(shows("timeout set: ok\r\n"));
    type("exit\n");
    EXPECT_EQ(exit_status(), 0);

    start("XDG_STATE_HOME=/dev/null exec $natctl shell");
    ASSERT_TRUE(shows("natctl> "));
    type("timeout set --type 3 --value 7\nexit\n");
    EXPECT_TRUE(shows("timeout set: ok\r\nnatctl> "));
    EXPECT_EQ(exit_status(), 0);
}

TEST_F(terminal_test, the_shell_leaves_the_terminal_as_it_found_it_however_it_ends) {
    const auto settings = [this] {
        termios now{};
        EXPECT_EQ(tcgetattr(terminal_, &now), 0);
        return now;
    };
    for (const std::string end : {"exit\n", "\x04", "timeout\x03\x04", "SIGTERM", "SIGHUP"}) {
        SCOPED_TRACE(end);
        start("read go; exec $natctl shell");
        const termios before = settings();
        type("go\n");
        ASSERT_TRUE(shows("natctl> "));
        if (end.rfind("SIG", 0) == 0) {
            kill(child_, end == "SIGTERM" ? SIGTERM : SIGHUP);
            exit_status();
        } else {
            type(end);
            EXPECT_EQ(exit_status(), 0);
        }
        const termios after = settings();
        EXPECT_EQ(after.c_lflag, before.c_lflag);
        EXPECT_EQ(after.c_iflag, before.c_iflag);
        EXPECT_EQ(after.c_oflag, before.c_oflag);
        EXPECT_TRUE(std::equal(std::begin(before.c_cc), std::end(before.c_cc), std::begin(after.c_cc)));
    }
}

TEST_F(terminal_test, standard_descriptors_that_are_closed_are_errors_and_are_taken_by_nothing_else) {
    for (const std::string run :
         {"$natctl status >&-", "$natctl --json serve closed >&-", "$natctl batch - <&-", "$natctl batch - </",
          "$natctl shell </", "$natctl status 2>&- >&-", "$natctl --capture $XDG_STATE_HOME status >&-"}) {
        start(run);
        EXPECT_EQ(exit_status(), 2) << run;
    }
}

TEST_F(terminal_test, a_capture_that_is_not_whole_is_told) {
    start("ulimit -f 1; exec $natctl --capture $XDG_STATE_HOME stats system");
    EXPECT_TRUE(shows("natctl: --capture " + directory_.path() + "/state: incomplete: File too large\r\n"));
    EXPECT_EQ(exit_status(), 2);
}

TEST_F(terminal_test, top_gives_the_terminal_back_while_it_is_stopped_and_takes_it_and_its_keys_again) {
    start("exec $natctl --connect alpha top --interval 1h");
    ASSERT_TRUE(shows("\x1b[?1049h"));
    ASSERT_TRUE(shows("trying again: "));
    type("\x1a");
    EXPECT_EQ(waitpid(child_, nullptr, WUNTRACED), child_);
    EXPECT_TRUE(shows("\x1b[?1049l"));
    kill(child_, SIGCONT);
    ASSERT_TRUE(shows("\x1b[?1049h"));
    type("q");
    ASSERT_TRUE(shows("\x1b[?1049l"));
    EXPECT_EQ(exit_status(), 0);
}

}  // namespace
