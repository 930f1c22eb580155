/* Runs long computations in a thread, so that the loop is not blocked. */
#ifndef RECONCILE_BACKGROUND_H
#define RECONCILE_BACKGROUND_H

#include <sys/eventfd.h>

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <type_traits>

#include "net/descriptor.h"

/**
 * `co_await in_background(loop, work)` gives the result of `work()`, or throws its exception. `work` runs in another
 * thread. It must not use data that other code uses at the same time, nor the host platform or the library. Destroying
 * the awaiting task blocks until `work` returns.
 */
template <class work_type>
class [[nodiscard]] in_background {
public:
    in_background(fwx_host_loop_t *loop, work_type work) : loop_(loop), work_(std::move(work)) {}
    in_background(const in_background &) = delete;
    in_background &operator=(const in_background &) = delete;
    ~in_background() {
        if (thread_.joinable()) thread_.join();
    }

    bool await_ready() {
        bell_ = std::make_unique<watched_descriptor_t>(loop_, eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), [this] {
            thread_.join();
            bell_.reset();
            waiting_.resume();
        });
        if (bell_->is_watched()) return false;
        run(); /* no descriptor is left, so it blocks the loop */
        return true;
    }
    bool await_suspend(std::coroutine_handle<> waiting) {
        waiting_ = waiting;
        try {
            thread_ = std::thread([this, bell = bell_->fd()] {
                run();
                eventfd_write(bell, 1);
            });
        } catch (const std::system_error &) { /* no thread is left, so it blocks the loop */
            run();
        }
        return thread_.joinable();
    }
    std::invoke_result_t<work_type &> await_resume() {
        if (error_) std::rethrow_exception(error_);
        return std::move(*value_);
    }

private:
    void run() {
        try {
            value_.emplace(work_());
        } catch (...) {
            error_ = std::current_exception();
        }
    }

    fwx_host_loop_t *loop_;
    work_type work_;
    std::optional<std::invoke_result_t<work_type &>> value_;
    std::exception_ptr error_;
    std::coroutine_handle<> waiting_;
    std::unique_ptr<watched_descriptor_t> bell_;
    std::thread thread_;
};

#endif
