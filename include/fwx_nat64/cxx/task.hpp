/** @file
 * A coroutine type, for a PAL that has none of its own. A task begins to run when it is started or awaited, and ends
 * with a value or an exception. It works without a client; a client receives the errors of tasks that nobody awaited.
 */
#ifndef FWX_NAT64_CXX_TASK_HPP
#define FWX_NAT64_CXX_TASK_HPP

#include <coroutine>
#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

namespace fwx::nat64 {

template <class value_type>
class task;

namespace detail {

/** Gets the error of a task that nobody awaited, when the task is destroyed. A client's binding sets it. */
using unheard_fn = void (*)(const std::exception_ptr &what) noexcept;
inline constinit unheard_fn report_unheard = nullptr;

/** Where one coroutine waits for an object. The object and the coroutine may be destroyed in either order. */
class waiting_place {
public:
    /** Base of the awaiter. */
    class guest {
    public:
        explicit guest(waiting_place &place) noexcept : place_(&place) {}
        guest(const guest &) = delete;
        guest &operator=(const guest &) = delete;
        ~guest() {
            if (place_ != nullptr && place_->guest_ == this) place_->guest_ = nullptr;
        }
        void await_suspend(std::coroutine_handle<> waiting) noexcept {
            waiting_ = waiting;
            place_->guest_ = this;
        }

    private:
        friend class waiting_place;
        waiting_place *place_; /* null: destroyed, or left */
        std::coroutine_handle<> waiting_;
    };

    waiting_place() = default;
    waiting_place(const waiting_place &) = delete;
    waiting_place &operator=(const waiting_place &) = delete;
    ~waiting_place() { take(); }
    explicit operator bool() const noexcept { return guest_ != nullptr; }
    /** Returns the coroutine, for the caller to resume, or null; nobody waits afterwards. */
    std::coroutine_handle<> take() noexcept {
        guest *const taken = std::exchange(guest_, nullptr);
        if (taken == nullptr) return nullptr;
        taken->place_ = nullptr;
        return taken->waiting_;
    }

private:
    guest *guest_ = nullptr;
};

struct task_promise_base {
    std::coroutine_handle<> continuation; /* null: nobody awaits it */
    bool is_started = false;
    bool is_heard = false; /* the error was thrown to a caller or to a coroutine */
    std::exception_ptr error;

    ~task_promise_base() {
        if (error) report();
    }
    void hear() {
        if (error) rethrow();
    }
    /* Cold paths. Kept out of line so that coroutines stay small. */
    [[gnu::noinline]] void report() noexcept {
        if (!is_heard && report_unheard != nullptr) report_unheard(error);
    }
    [[noreturn, gnu::noinline]] void rethrow() {
        is_heard = true;
        std::rethrow_exception(error);
    }

    struct final_awaiter {
        bool await_ready() const noexcept { return false; }
        template <class promise_type>
        std::coroutine_handle<> await_suspend(std::coroutine_handle<promise_type> self) const noexcept {
            const std::coroutine_handle<> next = self.promise().continuation;
            return next ? next : std::noop_coroutine();
        }
        void await_resume() const noexcept {}
    };
    std::suspend_always initial_suspend() const noexcept { return {}; }
    final_awaiter final_suspend() const noexcept { return {}; }
    void unhandled_exception() noexcept { error = std::current_exception(); }
};

template <class value_type>
struct task_promise : task_promise_base {
    std::optional<value_type> value;

    task<value_type> get_return_object() noexcept;
    template <class from_type = value_type> /* the default makes `co_return {}` work */
    void return_value(from_type &&from) {
        value.emplace(std::forward<from_type>(from));
    }
    value_type take() {
        hear();
        return std::move(*value);
    }
};

template <>
struct task_promise<void> : task_promise_base {
    task<void> get_return_object() noexcept;
    void return_void() const noexcept {}
    void take() { hear(); }
};

}  // namespace detail

/**
 * A coroutine that gives a value. The task owns the coroutine's frame. Destroying the task, at any moment, ends the
 * coroutine at its suspension point, and drops the operation that it awaits. An exception of the coroutine reaches the
 * coroutine that awaits it, or the caller of get(). If there is neither, the client's handler `failed` gets the
 * exception when the task is destroyed. Not thread-safe.
 */
template <class value_type = void>
class [[nodiscard]] task {
public:
    using promise_type = detail::task_promise<value_type>;

    explicit task(std::coroutine_handle<promise_type> handle) noexcept : handle_(handle) {}
    task(task &&from) noexcept : handle_(std::exchange(from.handle_, nullptr)) {}
    task &operator=(task &&from) noexcept {
        const task replaced(std::exchange(handle_, std::exchange(from.handle_, nullptr)));
        return *this;
    }
    ~task() {
        if (handle_) handle_.destroy();
    }

    /** Runs the coroutine until it first suspends. Call it at most once, before any await. The task can be awaited
     * later. */
    void start() {
        handle_.promise().is_started = true;
        handle_.resume();
    }
    bool done() const noexcept { return handle_.done(); }
    /** Returns the value, or throws the exception of the coroutine. Throws std::logic_error if the task is not done. */
    value_type get() {
        if (!handle_ || !handle_.done()) throw std::logic_error("the task is not done");
        return handle_.promise().take();
    }

    auto operator co_await() noexcept {
        struct awaiter {
            std::coroutine_handle<promise_type> handle;
            bool await_ready() const noexcept { return handle.done(); }
            /* Runs the task here rather than by a transfer to it. Without optimisation a transfer takes stack, and a
             * loop that awaits tasks which end at once would use it up. */
            bool await_suspend(std::coroutine_handle<> awaiting) const {
                promise_type &promise = handle.promise();
                if (!std::exchange(promise.is_started, true)) {
                    handle.resume();
                    if (handle.done()) return false;
                }
                promise.continuation = awaiting;
                return true;
            }
            value_type await_resume() const { return handle.promise().take(); }
        };
        return awaiter{handle_};
    }

private:
    std::coroutine_handle<promise_type> handle_; /* owned */
};

namespace detail {

template <class value_type>
task<value_type> task_promise<value_type>::get_return_object() noexcept {
    return task<value_type>(std::coroutine_handle<task_promise>::from_promise(*this));
}
inline task<void> task_promise<void>::get_return_object() noexcept {
    return task<void>(std::coroutine_handle<task_promise>::from_promise(*this));
}

}  // namespace detail

/** Starts tasks and awaits them one after the other. Throws the first exception that it meets in this order. */
template <class range_type>
task<> all(range_type &tasks) {
    for (auto &each : tasks) {
        each.start();
    }
    for (auto &each : tasks) {
        co_await each;
    }
}

}  // namespace fwx::nat64

#endif
