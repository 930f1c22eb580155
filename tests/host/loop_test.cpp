/* The event loop: timers, watched descriptors, and the loop's own descriptor. */
#include <sys/eventfd.h>
#include <unistd.h>

#include "host/loop/descriptor.h"
#include "host_fixture.h"

namespace {

class loop_t : public host_fixture_t {
protected:
    void SetUp() override {
        host_fixture_t::SetUp();
        loop_ = fwx_host_loop_create();
        ASSERT_NE(loop_, nullptr);
        fwx_host_clock_turn(0);
    }

    void TearDown() override {
        fwx_host_loop_destroy(loop_);
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
    /** A descriptor that can be read as many times as was written to it. */
    static descriptor_t counter() { return descriptor_t(eventfd(0, EFD_SEMAPHORE | EFD_CLOEXEC)); }
    /** The callback of two readable descriptors. Replaces what both numbers stand for by one that is not readable, so
     * that the second event of the pass is stale. */
    static void write_and_replace_neighbour(void *arg) {
        auto *test = static_cast<loop_t *>(arg);
        test->log_ += '-';
        for (const int fd : {test->watched_.get(), test->other_.get()}) {
            fwx_host_loop_unwatch(test->loop_, fd);
            ASSERT_EQ(dup2(test->fresh_.get(), fd), fd);
            ASSERT_EQ(fwx_host_loop_watch(test->loop_, fd, note_t::write, &test->a_), 0u);
        }
    }

    fwx_host_loop_t *loop_ = nullptr;
    descriptor_t watched_ = counter(), other_ = counter(), fresh_ = counter();
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
    const auto read_one = [](void *descriptor) {
        eventfd_t taken = 0;
        EXPECT_EQ(eventfd_read(static_cast<descriptor_t *>(descriptor)->get(), &taken), 0);
    };
    ASSERT_EQ(fwx_host_loop_watch(loop_, watched_.get(), read_one, &watched_), 0u);
    EXPECT_EQ(fwx_host_loop_watch(loop_, watched_.get(), read_one, &watched_), static_cast<uint32_t>(EEXIST));
    EXPECT_EQ(fwx_host_loop_watch(loop_, -1, read_one, &watched_), static_cast<uint32_t>(EBADF));
    fwx_host_loop_t *outer = fwx_host_loop_create();
    ASSERT_EQ(fwx_host_loop_watch(outer, fwx_host_loop_fd(loop_), note_t::write, &b_), 0u);
    EXPECT_EQ(fwx_host_loop_run_once(loop_, 0) + fwx_host_loop_process(outer), 0u);
    ASSERT_EQ(eventfd_write(watched_.get(), 2), 0);
    EXPECT_EQ(fwx_host_loop_process(outer), 1u);
    EXPECT_EQ(log_, "b");
    fwx_host_loop_destroy(outer);
    EXPECT_EQ(fwx_host_loop_run_once(loop_, -1), 1u);
    EXPECT_EQ(fwx_host_loop_run_until_idle(loop_), 1u);
    fwx_host_loop_unwatch(loop_, watched_.get());
    ASSERT_EQ(eventfd_write(watched_.get(), 1), 0);
    EXPECT_EQ(fwx_host_loop_run_until_idle(loop_), 0u);
}

TEST_F(loop_t, a_descriptor_number_that_is_reused_within_a_pass_gets_no_stale_event) {
    for (const descriptor_t *each : {&watched_, &other_}) {
        ASSERT_EQ(fwx_host_loop_watch(loop_, each->get(), write_and_replace_neighbour, this), 0u);
        ASSERT_EQ(eventfd_write(each->get(), 1), 0);
    }
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
