/* The event loop: timers, watched descriptors, and the loop's own descriptor. */
#include <unistd.h>

#include "host_fixture.h"

namespace {

class loop_t : public host_fixture_t {
protected:
    void SetUp() override {
        host_fixture_t::SetUp();
        loop_ = fwx_host_loop_create();
        ASSERT_NE(loop_, nullptr);
        fwx_host_clock_turn(0);
        ASSERT_EQ(pipe(pipe_) + pipe(other_) + pipe(fresh_), 0);
    }

    void TearDown() override {
        fwx_host_loop_destroy(loop_);
        for (const int fd : {pipe_[0], pipe_[1], other_[0], other_[1], fresh_[0], fresh_[1]}) {
            close(fd);
        }
        host_fixture_t::TearDown();
    }

    struct note_t {
        std::string *log;
        char letter;
        static void write(void *arg) {
            auto *note = static_cast<note_t *>(arg);
            note->log->push_back(note->letter);
        }
    };

    static void write_and_add_again(void *arg) {
        auto *test = static_cast<loop_t *>(arg);
        test->log_ += '+';
        if (test->log_.size() < 5) fwx_host_timer_add(test->loop_, 0, write_and_add_again, test);
    }
    /** The callback of two readable pipes. Replaces both by another pipe under the same descriptor numbers, so that the
     * second event of the pass is stale. */
    static void write_and_replace_neighbour(void *arg) {
        auto *test = static_cast<loop_t *>(arg);
        test->log_ += '-';
        for (const int fd : {test->pipe_[0], test->other_[0]}) {
            fwx_host_loop_unwatch(test->loop_, fd);
            ASSERT_EQ(dup2(test->fresh_[0], fd), fd);
            ASSERT_EQ(fwx_host_loop_watch(test->loop_, fd, note_t::write, &test->a_), 0u);
        }
    }

    fwx_host_loop_t *loop_ = nullptr;
    int pipe_[2] = {-1, -1};
    int other_[2] = {-1, -1};
    int fresh_[2] = {-1, -1};
    std::string log_;
    note_t a_{&log_, 'a'}, b_{&log_, 'b'}, c_{&log_, 'c'};
};

TEST_F(loop_t, timers_run_when_due_in_order_of_due_time_and_then_of_adding) {
    const uint64_t start = fwx_host_clock_ms();
    fwx_host_timer_add(loop_, 20, note_t::write, &c_);
    fwx_host_timer_add(loop_, 10, note_t::write, &a_);
    fwx_host_timer_add(loop_, 10, note_t::write, &b_);
    const uint64_t taken_back = fwx_host_timer_add(loop_, 5, note_t::write, &c_);
    for (const uint64_t id : {taken_back, taken_back, uint64_t{12345}}) {
        fwx_host_timer_cancel(loop_, id);
    }
    EXPECT_EQ(fwx_host_loop_next_timeout_ms(loop_), 10);
    EXPECT_EQ(fwx_host_loop_process(loop_), 0u);
    fwx_host_clock_turn(9);
    EXPECT_EQ(fwx_host_loop_process(loop_), 0u);
    EXPECT_EQ(fwx_host_loop_next_timeout_ms(loop_), 1);
    fwx_host_clock_turn(1);
    EXPECT_EQ(fwx_host_loop_next_timeout_ms(loop_), 0);
    EXPECT_EQ(fwx_host_loop_process(loop_), 2u);
    EXPECT_EQ(log_, "ab");
    fwx_host_clock_turn(1000);
    EXPECT_EQ(fwx_host_clock_ms(), start + 1010);
    EXPECT_EQ(fwx_host_loop_run_once(loop_, -1), 1u);
    EXPECT_EQ(log_, "abc");
    EXPECT_EQ(fwx_host_loop_next_timeout_ms(loop_), -1);
    fwx_host_clock_run();
    fwx_host_timer_add(loop_, 1, note_t::write, &a_);
    alarm(60);                                       /* ends a test that hangs */
    while (fwx_host_loop_run_once(loop_, -1) == 0) { /* must wait until the timer is due */
    }
    alarm(0);
    EXPECT_EQ(log_, "abca");
}

TEST_F(loop_t, a_timer_added_by_a_timer_waits_for_the_next_pass) {
    fwx_host_timer_add(loop_, 0, write_and_add_again, this);
    EXPECT_EQ(fwx_host_loop_process(loop_), 1u);
    EXPECT_EQ(log_, "+");
    EXPECT_EQ(fwx_host_loop_run_until_idle(loop_), 4u);
}

TEST_F(loop_t, a_watch_is_called_while_its_descriptor_is_readable_and_a_loop_can_be_watched_itself) {
    const auto read_one = [](void *fd) {
        char byte = 0;
        EXPECT_EQ(read(*static_cast<int *>(fd), &byte, 1), 1);
    };
    ASSERT_EQ(fwx_host_loop_watch(loop_, pipe_[0], read_one, &pipe_[0]), 0u);
    EXPECT_EQ(fwx_host_loop_watch(loop_, pipe_[0], read_one, &pipe_[0]), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(fwx_host_loop_watch(loop_, -1, read_one, &pipe_[0]), static_cast<uint32_t>(EBADF));
    fwx_host_loop_t *outer = fwx_host_loop_create();
    ASSERT_EQ(fwx_host_loop_watch(outer, fwx_host_loop_fd(loop_), note_t::write, &b_), 0u);
    EXPECT_EQ(fwx_host_loop_run_once(loop_, 0) + fwx_host_loop_process(outer), 0u);
    ASSERT_EQ(write(pipe_[1], "xy", 2), 2);
    EXPECT_EQ(fwx_host_loop_process(outer), 1u);
    EXPECT_EQ(log_, "b");
    fwx_host_loop_destroy(outer);
    EXPECT_EQ(fwx_host_loop_run_once(loop_, -1), 1u);
    EXPECT_EQ(fwx_host_loop_run_until_idle(loop_), 1u);
    fwx_host_loop_unwatch(loop_, pipe_[0]);
    ASSERT_EQ(write(pipe_[1], "z", 1), 1);
    EXPECT_EQ(fwx_host_loop_run_until_idle(loop_), 0u);
}

TEST_F(loop_t, a_descriptor_number_that_is_reused_within_a_pass_gets_no_stale_event) {
    ASSERT_EQ(fwx_host_loop_watch(loop_, pipe_[0], write_and_replace_neighbour, this), 0u);
    ASSERT_EQ(fwx_host_loop_watch(loop_, other_[0], write_and_replace_neighbour, this), 0u);
    ASSERT_EQ(write(pipe_[1], "x", 1) + write(other_[1], "x", 1), 2);
    EXPECT_EQ(fwx_host_loop_process(loop_), 1u);
    EXPECT_EQ(log_, "-");
}

TEST_F(loop_t, timers_make_the_descriptor_readable_even_if_added_after_the_last_pass) {
    fwx_host_clock_run();
    EXPECT_FALSE(is_readable(loop_));
    fwx_host_loop_process(loop_);
    fwx_host_timer_add(loop_, 60000, note_t::write, &c_);
    EXPECT_FALSE(is_readable(loop_));
    fwx_host_timer_add(loop_, 0, note_t::write, &a_);
    pollfd watched = {fwx_host_loop_fd(loop_), POLLIN, 0};
    ASSERT_EQ(poll(&watched, 1, 60000), 1);
    EXPECT_EQ(fwx_host_loop_process(loop_), 1u);
    EXPECT_EQ(log_, "a");
    EXPECT_FALSE(is_readable(loop_)) << "no timer is due";
}

}  // namespace
