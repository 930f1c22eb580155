/* Work that takes long and needs nothing of the loop, done in a thread of its own while the loop goes on. */
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
 * `co_await in_background(loop, work)` gives what `work()` returns, or throws what it throws. `work` runs in another
 * thread, so it may touch only what nobody else does meanwhile, and nothing of the host platform or of the library.
 * Destroying the awaiting task waits for it.
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
        run(); /* no descriptors are left: then the loop waits */
        return true;
    }
    bool await_suspend(std::coroutine_handle<> waiting) {
        waiting_ = waiting;
        try {
            thread_ = std::thread([this, bell = bell_->fd()] {
                run();
                eventfd_write(bell, 1);
            });
        } catch (const std::system_error &) { /* the system has no more threads: then the loop waits */
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
