/* A wait with a timeout that another part of the program can end early. */
#ifndef TOOLS_NAT64D_BELL_H
#define TOOLS_NAT64D_BELL_H

#include <coroutine>
#include <utility>

#include "fwx_host/loop.h"

/** At most one coroutine waits at a time. */
class bell_t {
public:
    explicit bell_t(fwx_host_loop_t *loop) : loop_(loop) {}
    ~bell_t() { cancel(); }
    bell_t(const bell_t &) = delete;
    bell_t &operator=(const bell_t &) = delete;

    /** Ends the current wait, from the loop. If nothing waits, the next wait ends at once. */
    void ring() {
        is_rung_ = true;
        if (waiting_) set_timer(0);
    }
    /** Waits for a ring, for at most `delay_ms`. */
    auto wait(uint64_t delay_ms) {
        struct awaiter_t {
            bell_t *bell;
            uint64_t delay_ms;
            bool await_ready() const { return std::exchange(bell->is_rung_, false); }
            /** Without memory for the timer the wait is over at once. */
            bool await_suspend(std::coroutine_handle<> waiting) const {
                const bool is_set = bell->set_timer(delay_ms);
                if (is_set) bell->waiting_ = waiting;
                return is_set;
            }
            void await_resume() const { bell->is_rung_ = false; }
        };
        return awaiter_t{this, delay_ms};
    }

private:
    /** Replaces the timer. False if memory is exhausted; the previous one then stays. */
    bool set_timer(uint64_t delay_ms) {
        const auto resume = [](void *self) {
            auto &bell = *static_cast<bell_t *>(self);
            bell.timer_ = 0;
            std::exchange(bell.waiting_, nullptr).resume();
        };
        const uint64_t timer = fwx_host_timer_add(loop_, delay_ms, resume, this);
        if (timer == 0) return false;
        cancel();
        timer_ = timer;
        return true;
    }
    void cancel() {
        if (timer_ != 0) fwx_host_timer_cancel(loop_, std::exchange(timer_, 0));
    }

    fwx_host_loop_t *loop_;
    std::coroutine_handle<> waiting_;
    uint64_t timer_ = 0;
    bool is_rung_ = false;
};

#endif
