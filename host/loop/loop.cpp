/*
 * The event loop. One epoll descriptor holds the watched descriptors. Timers are a map ordered by due time, and ready
 * tasks a linked list. A pass serves watches, then tasks, then timers.
 *
 * For a program that polls the loop's descriptor, the epoll descriptor also holds an eventfd, which is written when a
 * task becomes ready, and a timerfd, which is set to the first due timer. Both are created at the first call of
 * fwx_host_loop_fd, so that other programs do not pay for them.
 */
#include "host/loop/loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <limits>
#include <map>
#include <new>
#include <unordered_map>
#include <utility>
#include <vector>

#include "fwx_host/errors.h"
#include "host/loop/descriptor.h"
#include "host/runtime/memory.h"
#include "host/runtime/process.h"

namespace {

/** Limits the callbacks of tasks in one pass, and approximately those between two polls of the descriptors, to some
 * milliseconds of work, so that timers, descriptors and tasks all get their turn. One run of a task may make dozens of
 * callbacks. */
constexpr uint32_t callbacks_per_pass = 1024;
constexpr int events_per_pass = 32;
/** Event data of wake_fd and timer_fd; no watch has this id. */
constexpr uint64_t own_descriptor = UINT64_MAX;

/** Polls of all bells between two readings of the clock, because reading the clock costs as much as several polls. */
constexpr uint32_t looks_per_clock = 64;

uint32_t spin_us;

struct callback_t {
    fwx_host_fn_t fn;
    void *arg;
};

/** The serial tells a watch from an earlier watch of the same descriptor number, whose event may still be pending. */
struct watch_t {
    callback_t callback;
    uint32_t serial;
};

}  // namespace

struct fwx_host_loop {
    using due_t =
        std::pair<uint64_t, uint64_t>; /* clock time in ms, then the id, so that timers due together run in order */

    const uint32_t process = host_process();
    int epoll_fd;
    std::unordered_map<int, watch_t> watches;
    uint32_t next_serial = 0;
    std::map<due_t, callback_t> timers;
    std::unordered_map<uint64_t, uint64_t> due_by_id;
    uint64_t next_timer_id = 1;
    loop_ready_t ready; /* every task is either in this list or in `idle` */
    loop_place_t idle;
    /* Open only when a program polls the loop's descriptor. wake_fd signals tasks, timer_fd timers. */
    descriptor_t wake_fd;
    descriptor_t timer_fd;
    uint64_t timer_fd_due = UINT64_MAX; /* the clock time for which timer_fd is set */
    std::vector<loop_bell_t *> bells;
    uint32_t callbacks_since_poll = 0; /* of tasks */

    explicit fwx_host_loop(int fd) : epoll_fd(fd) {}
    fwx_host_loop(const fwx_host_loop &) = delete;
    fwx_host_loop &operator=(const fwx_host_loop &) = delete;

    ~fwx_host_loop() {
        while (!idle.is_alone()) {
            idle.next()->move_to(ready);
        }
        for (loop_place_t *place = ready.next(); place != &ready; place = place->next()) {
            task_of(place)->ready_ = &loop_task_t::no_loop;
        }
        while (!ready.is_alone()) {
            loop_task_t *task = task_of(ready.next());
            task->move_to(idle);
            task->loop_gone();
        }
        close(epoll_fd);
    }

    bool is_busy() const { return !ready.is_alone(); }

    /** Returns 0 or an errno value. */
    uint32_t watch(int fd, uint32_t events, const callback_t &callback) {
        epoll_event event{};
        event.events = events;
        const watch_t watch = {callback, next_serial++};
        event.data.u64 = uint64_t{watch.serial} << 32 | static_cast<uint32_t>(fd);
        if (epoll_ctl(epoll_fd, EPOLL_CTL_ADD, fd, &event) != 0) return static_cast<uint32_t>(errno);
        const uint32_t code = host_guarded(host_errno_nomem, [&] { watches.insert_or_assign(fd, watch); });
        if (code != 0) forget(fd);
        return code;
    }

    void forget(int fd) const { epoll_ctl(epoll_fd, EPOLL_CTL_DEL, fd, nullptr); }

    /** Returns the timer's id, or 0 when memory is exhausted. */
    uint64_t add_timer(uint64_t delay_ms, const callback_t &callback) {
        const uint64_t id = next_timer_id;
        const uint64_t due = fwx_host_clock_ms() + delay_ms;
        const uint32_t code = host_guarded(host_errno_nomem, [&] {
            due_by_id.emplace(id, due);
            timers.emplace(due_t{due, id}, callback);
        });
        if (code != 0) {
            due_by_id.erase(id);
            return 0;
        }
        next_timer_id += 1;
        set_timer_fd();
        return id;
    }

    /** Makes the loop's descriptor readable from now on whenever there is something to do. Returns false when no
     * descriptors are left. */
    bool be_polled() {
        if (is_polled()) return true;
        descriptor_t made_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
        descriptor_t made_timer(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
        for (const descriptor_t *made : {&made_wake, &made_timer}) {
            epoll_event event{};
            event.events = EPOLLIN;
            event.data.u64 = own_descriptor;
            if (!made->is_open() || epoll_ctl(epoll_fd, EPOLL_CTL_ADD, made->get(), &event) != 0) return false;
        }
        wake_fd = std::move(made_wake);
        timer_fd = std::move(made_timer);
        ready.wake_fd = wake_fd.get();
        settle();
        return true;
    }
    bool is_polled() const { return wake_fd.is_open(); }

    /** Prepares for the program to poll: makes the descriptor readable if the loop has work, else resets it and makes
     * later work write to it. */
    void settle() {
        if (!is_polled()) return;
        ready.must_wake = true;
        if (is_busy()) {
            ready.wake();
        } else {
            eventfd_t count = 0;
            if (std::exchange(ready.is_rung, false)) eventfd_read(wake_fd.get(), &count);
            arm_bells();
        }
        set_timer_fd();
    }
    void set_timer_fd() {
        if (!is_polled()) return;
        const uint64_t due = timers.empty() ? UINT64_MAX : timers.begin()->first.first;
        if (due == timer_fd_due && due > fwx_host_clock_ms()) return;
        timer_fd_due = due;
        itimerspec when{};
        if (due != UINT64_MAX) {
            const uint64_t now = fwx_host_clock_ms();
            const uint64_t delay_ms = due > now ? std::min<uint64_t>(due - now, INT32_MAX) : 0;
            when.it_value.tv_sec = static_cast<time_t>(delay_ms / 1000);
            when.it_value.tv_nsec = static_cast<long>(delay_ms % 1000 * 1000000) + 1; /* 0 would stop it */
        }
        timerfd_settime(timer_fd.get(), 0, &when, nullptr);
    }
    void begin_pass() {
        if (!is_polled()) return;
        ready.must_wake = false; /* tasks that become ready now run in this pass */
        uint64_t expirations = 0;
        const bool has_expired = read(timer_fd.get(), &expirations, sizeof expirations) > 0;
        if (has_expired) timer_fd_due = 0; /* so that settle() sets it for the next timer */
    }

    void arm_bells() const {
        for (auto bell = bells.begin(); bell != bells.end() && !is_busy(); ++bell) {
            (*bell)->arm();
        }
    }
    /** Returns how long the caller may wait, in ms: 0 if there is work, -1 for ever. */
    int arm_bells_and_get_timeout_ms() const {
        arm_bells();
        if (is_busy()) return 0;
        if (timers.empty()) return -1;
        const uint64_t now = fwx_host_clock_ms();
        const uint64_t due = timers.begin()->first.first;
        if (due <= now) return 0;
        return static_cast<int>(std::min<uint64_t>(due - now, std::numeric_limits<int>::max()));
    }

    uint32_t pass(int timeout_ms) {
        uint32_t calls = 0;
        if (timeout_ms != 0 || !watches.empty()) calls += serve_watches(timeout_ms);
        callbacks_since_poll = 0;
        calls += run_tasks();
        return calls + run_timers();
    }

    /** Runs a pass and leaves the loop's descriptor ready to be polled. */
    template <class pass_t>
    uint32_t polled_pass(pass_t run) {
        begin_pass();
        const uint32_t calls = run();
        settle();
        return calls;
    }

    /** Runs ready tasks and timers without a system call; returns the number of callbacks. */
    uint32_t quick_pass() {
        if (!is_busy() || callbacks_since_poll >= callbacks_per_pass) return 0;
        const uint32_t calls = run_tasks();
        return calls + run_timers();
    }

    void spin() {
        if (spin_us == 0 || bells.empty()) return;
        std::chrono::steady_clock::time_point end;
        for (uint32_t looks = 0; !is_busy(); ++looks) {
            for (loop_bell_t *bell : bells) {
                bell->look();
            }
            if (looks % looks_per_clock != looks_per_clock - 1) continue;
            const auto now = std::chrono::steady_clock::now();
            if (end == std::chrono::steady_clock::time_point()) end = now + std::chrono::microseconds(spin_us);
            if (now >= end) return;
        }
    }

private:
    static loop_task_t *task_of(loop_place_t *place) { return static_cast<loop_task_t *>(place); }

    uint32_t serve_watches(int timeout_ms) {
        std::array<epoll_event, events_per_pass> events;
        const int count = epoll_wait(epoll_fd, events.data(), events_per_pass, timeout_ms);
        uint32_t calls = 0;
        for (int i = 0; i < count; ++i) {
            const uint64_t id = events[static_cast<size_t>(i)].data.u64;
            if (id == own_descriptor) continue;
            const auto watch = watches.find(static_cast<int>(static_cast<uint32_t>(id)));
            /* An earlier callback of this pass may have ended the watch, and another may use the same number. */
            if (watch == watches.end() || watch->second.serial != id >> 32) continue;
            const callback_t callback = watch->second.callback;
            callback.fn(callback.arg);
            ++calls;
        }
        return calls;
    }

    uint32_t run_tasks() {
        uint32_t calls = 0;
        for (uint32_t spent = 0; spent < callbacks_per_pass && is_busy();) {
            loop_task_t *task = task_of(ready.next());
            task->move_to(idle);
            task->is_ready_ = false;
            const uint32_t made = task->run();
            calls += made;
            spent += std::max<uint32_t>(made, 1);
            callbacks_since_poll += std::max<uint32_t>(made, 1);
        }
        return calls;
    }

    uint32_t run_timers() {
        if (timers.empty()) return 0;
        const due_t end{fwx_host_clock_ms(), next_timer_id}; /* timers added by timers wait for the next pass */
        uint32_t calls = 0;
        while (!timers.empty() && timers.begin()->first < end) {
            const auto [due, callback] = *timers.begin();
            timers.erase(timers.begin());
            due_by_id.erase(due.second);
            callback.fn(callback.arg);
            ++calls;
        }
        return calls;
    }
};

loop_ready_t loop_task_t::no_loop = {{}, true, false, -1};

bool loop_ready_t::wake() {
    if (wake_fd < 0) return false;
    must_wake = false;
    if (!std::exchange(is_rung, true)) eventfd_write(wake_fd, 1);
    return true;
}

loop_task_t::loop_task_t(fwx_host_loop_t &loop) : ready_(&loop.ready) {
    move_to(loop.idle);
}

void loop_task_t::become_ready() {
    if (ready_->must_wake && !ready_->wake()) return;
    move_to(*ready_);
    is_ready_ = true;
}

void loop_bell_add(fwx_host_loop_t &loop, loop_bell_t &bell) {
    loop.bells.push_back(&bell);
    if (loop.ready.must_wake) loop.ready.wake(); /* makes the program run the loop, which then arms the bell */
}

void loop_bell_remove(fwx_host_loop_t &loop, loop_bell_t &bell) {
    auto &all = loop.bells;
    all.erase(std::remove(all.begin(), all.end(), &bell), all.end());
}

uint32_t loop_watch_bell(fwx_host_loop_t &loop, int fd, fwx_host_fn_t fn, void *arg) {
    return loop.watch(fd, EPOLLIN | EPOLLET, {fn, arg});
}

namespace {

bool is_usable(const fwx_host_loop_t *loop) {
    return loop != nullptr && !loop_is_foreign(*loop);
}

}  // namespace

bool loop_is_foreign(const fwx_host_loop_t &loop) {
    return !host_process_is(loop.process);
}

extern "C" {

void fwx_host_spin_set_us(uint32_t microseconds) {
    spin_us = microseconds;
}

fwx_host_loop_t *fwx_host_loop_create(void) {
    const int fd = epoll_create1(EPOLL_CLOEXEC);
    if (fd < 0) return nullptr;
    auto *loop = new (std::nothrow) fwx_host_loop_t(fd);
    if (loop == nullptr) close(fd);
    return loop;
}

void fwx_host_loop_destroy(fwx_host_loop_t *loop) {
    if (is_usable(loop)) delete loop;
}

int fwx_host_loop_fd(fwx_host_loop_t *loop) {
    if (loop == nullptr) return -1;
    const bool is_ready = !is_usable(loop) || loop->be_polled();
    return is_ready ? loop->epoll_fd : -1;
}

int fwx_host_loop_next_timeout_ms(const fwx_host_loop_t *loop) {
    return is_usable(loop) ? loop->arm_bells_and_get_timeout_ms() : -1;
}

uint32_t fwx_host_loop_process(fwx_host_loop_t *loop) {
    return is_usable(loop) ? loop->polled_pass([loop] { return loop->pass(0); }) : 0;
}

uint32_t fwx_host_loop_run_once(fwx_host_loop_t *loop, int timeout_ms) {
    if (!is_usable(loop)) return 0;
    return loop->polled_pass([loop, timeout_ms]() -> uint32_t {
        if (const uint32_t calls = loop->quick_pass()) return calls;
        if (timeout_ms != 0) {
            loop->spin();
            if (const uint32_t calls = loop->quick_pass()) return calls;
        }
        const int own = loop->arm_bells_and_get_timeout_ms();
        const bool is_own_sooner = own >= 0 && (timeout_ms < 0 || own < timeout_ms);
        return loop->pass(is_own_sooner ? own : timeout_ms);
    });
}

uint32_t fwx_host_loop_run_until_idle(fwx_host_loop_t *loop) {
    if (!is_usable(loop)) return 0;
    return loop->polled_pass([loop] {
        for (uint32_t calls = 0;;) {
            const uint32_t more = loop->pass(0);
            calls += more;
            if (more == 0 && loop->arm_bells_and_get_timeout_ms() != 0) return calls;
        }
    });
}

uint64_t fwx_host_timer_add(fwx_host_loop_t *loop, uint64_t delay_ms, fwx_host_fn_t fn, void *arg) {
    return is_usable(loop) ? loop->add_timer(delay_ms, {fn, arg}) : 0;
}

void fwx_host_timer_cancel(fwx_host_loop_t *loop, uint64_t id) {
    if (!is_usable(loop)) return;
    const auto due = loop->due_by_id.find(id);
    if (due == loop->due_by_id.end()) return;
    loop->timers.erase({due->second, id});
    loop->due_by_id.erase(due);
}

uint32_t fwx_host_loop_watch(fwx_host_loop_t *loop, int fd, fwx_host_fn_t fn, void *arg) {
    if (loop == nullptr) return FWX_HOST_ERR_BAD_ARG;
    return is_usable(loop) ? loop->watch(fd, EPOLLIN, {fn, arg}) : FWX_HOST_ERR_FORKED;
}

void fwx_host_loop_unwatch(fwx_host_loop_t *loop, int fd) {
    if (is_usable(loop) && loop->watches.erase(fd) != 0) loop->forget(fd);
}

}  // extern "C"
