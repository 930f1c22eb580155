/* A wait with a timeout that another part of the program can end early. */
#ifndef TOOLS_NAT64D_BELL_H
#define TOOLS_NAT64D_BELL_H

#include <coroutine>
#include <exception>
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
            void await_suspend(std::coroutine_handle<> waiting) const {
                bell->waiting_ = waiting;
                bell->set_timer(delay_ms);
            }
            void await_resume() const { bell->is_rung_ = false; }
        };
        return awaiter_t{this, delay_ms};
    }

private:
    /** Ends the program if memory is exhausted, because the coroutine would wait for ever. */
    void set_timer(uint64_t delay_ms) {
        cancel();
        const auto resume = [](void *self) {
            auto &bell = *static_cast<bell_t *>(self);
            bell.timer_ = 0;
            std::exchange(bell.waiting_, nullptr).resume();
        };
        timer_ = fwx_host_timer_add(loop_, delay_ms, resume, this);
        if (timer_ == 0) std::terminate();
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
