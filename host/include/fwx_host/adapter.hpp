/** @file
 * The host platform for the C++ interface: its adapter, a sleep that a coroutine awaits, and a loop that runs a task to
 * its end.
 *
 * Calling context: the thread that runs the loop.
 */
#ifndef FWX_HOST_ADAPTER_HPP
#define FWX_HOST_ADAPTER_HPP

#include <memory>
#include <new>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.hpp"
#include "fwx_nat64/server_result.h"

namespace fwx::host {

/** The adapter for fwx::nat64::client; the client's event argument must be a fwx_host_loop_t. The client occupies
 * fwx_host_channel_end_observe, which has room for one observer in a process. */
inline constexpr nat64::adapter adapter = {
    .head = fwx_host_smc_head,
    .bytes_behind = fwx_host_smc_bytes_behind,
    .now_ms = fwx_host_clock_ms,
    .timer_add = [](void *loop, uint64_t delay_ms, void (*fn)(void *arg),
                    void *arg) { return fwx_host_timer_add(static_cast<fwx_host_loop_t *>(loop), delay_ms, fn, arg); },
    .timer_cancel = [](void *loop, uint64_t id) { fwx_host_timer_cancel(static_cast<fwx_host_loop_t *>(loop), id); },
    .observe_end = fwx_host_channel_end_observe,
    .full_code = FWX_HOST_ERR_FULL,
    .is_throttled = fwx_host_smc_is_throttled,
};

/** Registers the error texts of this project's server with xerr_strerror, for a server in another process. */
inline void add_server_texts() {
#define FWX_HOST_ADD_TEXT(code, member, text) fwx_host_error_text_add(code, text);
    FWX_NAT64_MODEL_RESULTS(FWX_HOST_ADD_TEXT)
#undef FWX_HOST_ADD_TEXT
}

/** Awaits that a time has passed on a loop. If memory is out, it continues at once. */
class [[nodiscard]] sleep {
public:
    /** Throws std::out_of_range for a time that is negative or longer than some 30,000 years. */
    sleep(fwx_host_loop_t *loop, std::chrono::milliseconds time)
        : loop_(loop), delay_ms_(nat64::detail::deadline_of(time) - 1) {}
    sleep(const sleep &) = delete;
    ~sleep() { fwx_host_timer_cancel(loop_, timer_); }

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> waiting) noexcept {
        waiting_ = waiting;
        const auto rang = [](void *self) { std::exchange(static_cast<sleep *>(self)->waiting_, nullptr).resume(); };
        timer_ = fwx_host_timer_add(loop_, delay_ms_, rang, this);
        return timer_ != 0;
    }
    void await_resume() const noexcept {}

private:
    fwx_host_loop_t *loop_;
    uint64_t delay_ms_;
    uint64_t timer_ = 0;
    std::coroutine_handle<> waiting_;
};

/** Owns a loop. */
class loop {
public:
    /** Throws std::bad_alloc when the system has no descriptors or memory left. */
    loop() : loop_(fwx_host_loop_create(), fwx_host_loop_destroy) {
        if (loop_ == nullptr) throw std::bad_alloc();
    }
    fwx_host_loop_t *get() const noexcept { return loop_.get(); }
    operator fwx_host_loop_t *() const noexcept { return loop_.get(); }

    /** Starts a task and runs the loop until the task is done. Returns its value or throws its exception. */
    template <class value_type>
    value_type run(nat64::task<value_type> task) const {
        task.start();
        while (!task.done()) {
            fwx_host_loop_run_once(loop_.get(), -1);
        }
        return task.get();
    }

private:
    std::unique_ptr<fwx_host_loop_t, void (*)(fwx_host_loop_t *)> loop_;
};

}  // namespace fwx::host

#endif
