/** @file
 * Connects the C++ interface to the host platform: the adapter, error texts, a loop that runs tasks, and sleeping.
 */
#ifndef FWX_HOST_ADAPTER_HPP
#define FWX_HOST_ADAPTER_HPP

#include <memory>
#include <new>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.hpp"
#include "fwx_nat64/server_result.h"

namespace fwx::host {

/** For fwx::nat64::client. The client's event argument is then a fwx_host_loop_t. The client takes the platform's only
 * observer of channels that end. */
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

/** Adds the texts of this project's server's result codes to xerr_strerror, because the server runs in another process.
 */
inline void add_server_texts() {
#define FWX_HOST_ADD_TEXT(code, member, text) fwx_host_error_text_add(code, text);
    FWX_NAT64_MODEL_RESULTS(FWX_HOST_ADD_TEXT)
#undef FWX_HOST_ADD_TEXT
}

/** Awaitable that resumes the coroutine from the loop after a delay. */
class [[nodiscard]] sleep {
public:
    /** Throws std::out_of_range for a negative time. */
    sleep(fwx_host_loop_t *loop, std::chrono::milliseconds time)
        : loop_(loop), delay_ms_(nat64::detail::deadline_of(time) - 1) {}
    sleep(const sleep &) = delete;
    ~sleep() { fwx_host_timer_cancel(loop_, timer_); }

    bool await_ready() const noexcept { return false; }
    /** Does not suspend when memory is exhausted. */
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

/** Owner of a loop. */
class loop {
public:
    /** Throws std::bad_alloc when the system has no descriptors or no memory left. */
    loop() : loop_(fwx_host_loop_create(), fwx_host_loop_destroy) {
        if (loop_ == nullptr) throw std::bad_alloc();
    }
    fwx_host_loop_t *get() const noexcept { return loop_.get(); }
    operator fwx_host_loop_t *() const noexcept { return loop_.get(); }

    /** Starts a task and runs the loop until it is done. Returns the task's value or rethrows its exception. */
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
