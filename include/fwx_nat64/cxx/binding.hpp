/** @file
 * The layer between the C interface and the awaitables: the binding, the table of outstanding commands, deadlines and
 * flow control. A PAL uses the types `adapter`, `handlers`, `page` and `list_step`; the rest is internal.
 *
 * Each outstanding command has a slot in the table. The `pal_ctx` that the library gets is the slot's number and
 * generation, never an address. So a late answer to a command that has ended finds no slot and is ignored.
 *
 * A call of a waiter, callback or handler may destroy the object that makes the call, and the client. After such a call
 * the code checks that its object still exists before it touches it.
 */
#ifndef FWX_NAT64_CXX_BINDING_HPP
#define FWX_NAT64_CXX_BINDING_HPP

#include <algorithm>
#include <chrono>
#include <coroutine>
#include <cstddef>
#include <cstring>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <utility>
#include <vector>

#include "fwx_nat64/cxx/error.hpp"
#include "fwx_nat64/cxx/notification.hpp"
#include "fwx_nat64/cxx/task.hpp"
#include "fwx_nat64/fwx_nat64.h"
#include "fwx_nat64/server_result.h"

namespace fwx::nat64 {

/** Services of a platform beyond the C interface. A missing entry is null. */
struct adapter {
    /** Returns the beginning of the message that is being delivered, as it arrived: its first 64 bytes or more, or the
     * whole message if that is shorter. Sets `size` to the number of bytes. Null if no message is being delivered.
     * With it, the verdict on a MAP-T rule is the server's own. */
    const void *(*head)(size_t *size) = nullptr;
    /** Returns the number of bytes from `data` to the end of that message. With it, the client detects a reply that
     * claims more entries than it has. */
    size_t (*bytes_behind)(const void *data) = nullptr;
    /** Returns the time in milliseconds, for deadlines; null: the client uses the steady clock. */
    uint64_t (*now_ms)() = nullptr;
    /** Calls `fn` once from the loop after `delay_ms` milliseconds. Returns an id for `timer_cancel`, or 0 if it has
     * not set a timer; the client then tries again at its next command with a deadline. A platform has both functions
     * or neither; without them the PAL calls client::expire. */
    uint64_t (*timer_add)(void *ev_arg, uint64_t delay_ms, void (*fn)(void *arg), void *arg) = nullptr;
    void (*timer_cancel)(void *ev_arg, uint64_t id) = nullptr;
    /** Registers `fn`. It is called from the loop each time a channel has ended with an error and delivers nothing
     * more. A null `fn` ends the registration. Without it, commands that a dead server had taken end only at their
     * deadlines. */
    void (*observe_end)(void (*fn)(void *arg), void *arg) = nullptr;
    /** The code with which a send is refused because the channel is full; 0: there is none. With it, an awaited command
     * waits for room instead of failing. */
    uint32_t full_code = 0;
    /** Returns non-zero if the channel is full at this moment. The channel itself reports that only through the loop.
     */
    uint32_t (*is_throttled)(uint64_t chan) = nullptr;
};

/** Handlers of the server's unsolicited messages and of changes of the channel. All except `failed` are called from the
 * loop. Each may be empty. */
struct handlers {
    std::function<void(uint32_t op, std::span<const uint32_t, 3> words)> record{}; /**< FWX_NAT64_OP_ADD or _DEL */
    std::function<void()> event{};
    std::function<void(const fwx_nat64_stats_mapping_entry_t &mapping)> mapping{}; /**< became active or inactive */
    std::function<void(bool may_send)> flow{}; /**< the channel has room (true) or is full (false) */
    std::function<void()> lost{};              /**< the channel has ended; the next command opens another one */
    /** Gets an exception that a callback or a handler of the PAL threw, and the error of a task that nobody awaited.
     * Without it, an exception of a callback or a handler ends the program, and the error of a task is dropped. */
    std::function<void(std::exception_ptr what)> failed{};
};

/** One reply to a query, with the arguments of the C callback. */
struct page {
    const void *data; /**< valid during the call */
    uint32_t count;   /**< entries in this reply */
    bool more;        /**< the server sends further replies to the same query */
    uint64_t cookie;  /**< continues the list in a further query; 0: the list is complete, or has no cookies */
    uint32_t value2;  /**< of a walk: set by the server; of system statistics: the selector, if `head` gives it */
    size_t bytes;     /**< from `data` to the end of the message; SIZE_MAX without adapter::bytes_behind */
};

/** What happens to a list after a reply: it goes on, ends without an error, or ends with client_errc::list_short. */
enum class list_step { next, enough, too_short };

namespace detail {

/** A time limit as the slots store it: milliseconds plus 1, because 0 means no limit. Throws std::out_of_range. */
template <class rep_type, class period_type>
uint64_t deadline_of(std::chrono::duration<rep_type, period_type> time) {
    using milliseconds = std::chrono::duration<double, std::milli>;
    constexpr double most = 1e15; /* some 30,000 years, so that no sum with a clock overflows */
    const double count = milliseconds(time).count();
    if (!(count >= 0 && count <= most)) throw std::out_of_range("a time is negative or too long");
    return static_cast<uint64_t>(count) + 1;
}

/** The owner of a slot, which waits for what happens to the command. `done` gets a reply to a query or room_page in
 * `got`; a null `got` means that the slot is closed and the command has ended with `error`. An exception of `done` goes
 * to the handler `failed`. */
struct waiter {
    using done_fn = void (*)(waiter &self, uint32_t tag, std::error_code error, const page *got);
    explicit waiter(done_fn fn) noexcept : done(fn) {}
    done_fn done;
};

/** A coroutine that waits until the channel has room. */
struct room_waiter {
    room_waiter *next = nullptr;
    std::coroutine_handle<> handle;
};

/** The reply that tells an owner queued by binding::queue that the channel has room. Its slot is closed then. */
inline constexpr page room_page{};

/** The result of a send, from the code of the C function. */
inline result sent(uint32_t code) noexcept {
    return {nat64_error(code), code == 0};
}

class binding {
public:
    /** Bytes for a callback and its captures. With this size a slot has 256 bytes, so that a shift gives its offset. */
    static constexpr size_t storage_size = 208;

    binding(const void *client_id, void *ev_arg, handlers on, const adapter &platform, std::error_code &error)
        : platform_(platform), on_(std::make_shared<const handlers>(std::move(on))), ev_arg_(ev_arg), birth_(births()) {
        const bool is_first = active() == nullptr && fwx_nat64_client_info_get() == nullptr;
        if (is_first) active() = this;
        const uint32_t code = fwx_nat64_bind(client_id, ev_arg, &unsol_callbacks, &reply_callbacks);
        error = nat64_error(code);
        if (code == 0) {
            is_bound_ = true;
            hearing = on_;
            report_unheard = unheard;
            fwx_nat64_client_info_get()->throttle_cb = throttled;
            fwx_nat64_client_info_get()->throttle_ctx = nullptr;
            if (platform_.observe_end != nullptr) platform_.observe_end(channel_ended, nullptr);
        } else if (is_first) {
            fwx_nat64_unbind(); /* because some failures leave the library bound */
            active() = nullptr;
        }
    }
    binding(const binding &) = delete;
    binding &operator=(const binding &) = delete;

    ~binding() {
        close();
        if (is_gone_ != nullptr) *is_gone_ = true;
    }
    /** Unbinds and ends everything that waits: commands, coroutines that wait for room, and notification streams. */
    void close() {
        if (active() == this) {
            fwx_nat64_unbind();
            active() = nullptr;
            if (platform_.observe_end != nullptr) platform_.observe_end(nullptr, nullptr);
        }
        if (timer_ != 0) platform_.timer_cancel(ev_arg_, timer_);
        timer_ = next_deadline_ = 0;
        is_bound_ = false;
        bool is_gone_here = false; /* a call below may destroy this binding, from inside a further close() too */
        bool *const is_gone = is_gone_ == nullptr ? &is_gone_here : is_gone_;
        is_gone_ = is_gone;
        for (uint32_t index = 0; !*is_gone && index < capacity(); ++index) {
            if (at(index).owner != nullptr) end(at(index), nat64_error(FWX_NAT64_ERR_NOT_READY));
        }
        while (!*is_gone && room_ != nullptr) {
            resume(std::exchange(room_, room_->next)->handle);
        }
        for (std::coroutine_handle<> waiting; !*is_gone && streams_.end_one(waiting);) {
            if (waiting) resume(waiting);
        }
        if (*is_gone) return;
        if (is_gone == &is_gone_here) is_gone_ = nullptr;
        const bool is_heard = hearing == on_;
        if (is_heard) hearing.reset();
    }

    bool is_bound() const noexcept { return is_bound_; }
    detail::streams &streams() noexcept { return streams_; }
    bool is_throttled() const noexcept {
        if (is_throttled_ || is_full_) return true;
        const fwx_nat64_client_info_t *info =
            platform_.is_throttled != nullptr && is_bound_ ? fwx_nat64_client_info_get() : nullptr;
        return info != nullptr && info->connected != 0 && platform_.is_throttled(info->chan) != 0;
    }
    /** True if `code` means that the channel refused a send because it is full; notes that it is. */
    bool is_full(uint32_t code) noexcept {
        if (code == 0 || code != platform_.full_code) return false;
        is_full_ = true;
        return true;
    }
    /** The result of a send for a caller that does not wait for room. */
    result refused(uint32_t code) noexcept { return is_full(code) ? result{client_errc::no_room, false} : sent(code); }
    /** Opens a slot whose owner gets room_page when the channel has room. Returns the slot's id. Turns `timeout_ms`
     * into a point in time, so that further waits and sends with the same variable do not begin the time anew. */
    uint64_t queue(waiter &owner, uint32_t tag, uint64_t &timeout_ms) {
        return queue_in(queue_, owner, tag, timeout_ms);
    }

    /** Counts a list that is outstanding; list_ended() is its counterpart. */
    void list_began() noexcept { ++lists_; }
    /** Queues a list that the server refused because of too many lists. Its owner gets room_page when another list
     * has ended. Returns the slot's id, or 0 if no other list is outstanding. Treats `timeout_ms` as queue() does. */
    uint64_t queue_list(waiter &owner, uint64_t &timeout_ms) {
        if (lists_ == 1) return 0;
        const uint64_t id = queue_in(waiting_lists_, owner, 0, timeout_ms);
        --lists_;
        return id;
    }
    void list_ended() noexcept {
        const life_t life(*this);
        bool has_room = true;
        for (--lists_; life && has_room && !waiting_lists_.empty();) {
            const uint64_t id = waiting_lists_.front();
            waiting_lists_.pop_front();
            if (!is_open(id)) continue;
            give_room(id);
            has_room = life && lists_ == 0; /* it failed to start, and no list is left whose end would start the next */
        }
    }

    /** Gives the handler `failed` an exception of a PAL function that no coroutine awaits. */
    static void threw(const std::exception_ptr &what) noexcept {
        const std::shared_ptr<const handlers> on = hearing;
        if (!on || !on->failed) std::rethrow_exception(what); /* ends the program, as an uncaught exception does */
        on->failed(what);
    }
    static void resume(std::coroutine_handle<> waiting) noexcept {
        try {
            waiting.resume();
        } catch (...) {
            threw(std::current_exception());
        }
    }
    size_t outstanding() const noexcept {
        size_t count = 0;
        for (uint32_t index = 0; index < capacity(); ++index) {
            if (at(index).owner != nullptr) ++count;
        }
        return count;
    }

    uint64_t now_ms() const {
        if (platform_.now_ms != nullptr) return platform_.now_ms();
        const auto since = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
    }
    /** Ends every slot whose deadline is at or before `now` with timed_out. */
    void expire(uint64_t now) {
        if (next_deadline_ == 0) return;
        if (now < next_deadline_) return arm(next_deadline_); /* a timer rang too early */
        next_deadline_ = 0;
        const life_t life(*this);
        for (uint32_t index = 0; life && index < capacity(); ++index) {
            slot &entry = at(index);
            const bool is_due = entry.owner != nullptr && entry.deadline_ms != 0;
            if (!is_due) continue;
            if (entry.deadline_ms <= now) {
                end(entry, std::make_error_code(std::errc::timed_out));
            } else {
                arm(entry.deadline_ms);
            }
        }
    }

    /* --- Slots. The library gets a slot's id as `pal_ctx`. --- */

    uint64_t open(waiter &owner, uint32_t tag) {
        if (free_ == nullptr) grow();
        slot &entry = *free_;
        free_ = entry.next_free;
        entry.owner = &owner;
        entry.tag = tag;
        entry.deadline_ms = 0;
        return entry.id;
    }
    bool is_open(uint64_t id) const noexcept {
        const auto index = static_cast<uint32_t>(id);
        return index < capacity() && at(index).id == id;
    }
    [[gnu::noinline]] void close(uint64_t id) noexcept {
        if (is_open(id)) release(at(static_cast<uint32_t>(id)));
    }
    /** Closes all slots of an owner. */
    void close_all(const waiter &owner) noexcept {
        for (uint32_t index = 0; index < capacity(); ++index) {
            if (at(index).owner == &owner) release(at(index));
        }
    }
    /** The `storage_size` bytes of an open slot. They do not move, and stay untouched until the slot is reused. */
    void *storage(uint64_t id) noexcept { return at(static_cast<uint32_t>(id)).storage; }
    void own(uint64_t id, waiter &owner) noexcept { at(static_cast<uint32_t>(id)).owner = &owner; }
    /** Sets the deadline of an open slot. `timeout_ms` is a value of deadline_of or of queue(); 0 leaves the deadline
     * as it is. */
    void set_deadline(uint64_t id, uint64_t timeout_ms) {
        if (timeout_ms != 0) put_deadline(at(static_cast<uint32_t>(id)), timeout_ms);
    }
    /** Calls the C function with the slot's id, and returns its code. Closes the slot if the function fails. */
    template <class send_type>
    uint32_t send(uint64_t id, send_type &send_fn) {
        uint32_t code = FWX_NAT64_ERR_NOT_READY;
        try {
            if (active() == this) code = send_fn(reinterpret_cast<void *>(id));
        } catch (...) {
            close(id);
            throw;
        }
        if (code != 0) close(id);
        return code;
    }
    /** Opens a slot and sends. After the result 0 the owner is called later, and `id` is set. */
    template <class send_type>
    uint32_t start(send_type &send_fn, waiter &owner, uint32_t tag, uint64_t timeout_ms, uint64_t &id) {
        const uint64_t opened = open(owner, tag);
        const uint32_t code = send(opened, send_fn);
        if (code == 0) {
            id = opened;
            set_deadline(opened, timeout_ms);
        }
        return code;
    }

    /** The reply to a rule command that is being delivered now, padded with zeros; none without adapter::head. */
    std::optional<fwx_nat64_mapt_reply_t> rule_reply() const noexcept {
        size_t size = 0;
        const void *head = platform_.head == nullptr ? nullptr : platform_.head(&size);
        if (head == nullptr || size < FWX_NAT64_REPLY_MIN_SIZE) return std::nullopt;
        fwx_nat64_mapt_reply_t reply{};
        std::memcpy(&reply, head, std::min(size, sizeof reply));
        const bool is_rule = reply.reply.hdr.type == (FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_MAPT_RULE);
        return is_rule ? std::optional(reply) : std::nullopt;
    }

    void wait_for_room(room_waiter &who) noexcept {
        room_waiter **last = &room_;
        while (*last != nullptr) {
            last = &(*last)->next;
        }
        who.next = nullptr;
        *last = &who;
    }
    void forget_room(const room_waiter &who) noexcept {
        for (room_waiter **at_link = &room_; *at_link != nullptr; at_link = &(*at_link)->next) {
            if (*at_link != &who) continue;
            *at_link = who.next;
            return;
        }
    }

    /** True while the binding exists and is bound. Code that calls out makes one before the call and checks it
     * afterwards, because the callee may close or destroy the client. */
    class life_t {
    public:
        explicit life_t(const binding &of) noexcept : of_(&of), birth_(of.birth_) {}
        explicit operator bool() const noexcept { return active() == of_ && of_->birth_ == birth_; }

    private:
        const binding *of_;
        uint64_t birth_;
    };

    static uint32_t walked(void *pal_ctx, uint32_t count, void *data, uint64_t value, uint32_t value2,
                           uint32_t status) noexcept {
        const bool is_failed = status == FWX_NAT64_WALK_ERROR;
        return paged(pal_ctx, {is_failed ? nullptr : data, count, status == FWX_NAT64_WALK_MORE, value, value2, 0});
    }

private:
    struct slot {
        waiter *owner = nullptr; /* null: it is free */
        slot *next_free = nullptr;
        uint64_t deadline_ms = 0;
        uint64_t id = 0;       /* index in the low 32 bits, generation and own_bit above them */
        uint64_t ended_id = 0; /* value of `id` when a channel ended last; 0: it was free then */
        uint32_t tag = 0;      /* chosen by the owner */
        alignas(std::max_align_t) std::byte storage[storage_size];
    };
    static constexpr uint32_t block_bits = 6; /* slots are allocated in blocks, which never move */
    static constexpr uint32_t block_size = 1U << block_bits;
    /* No address has this bit set, so a context that other code gave to the library never matches a slot. */
    static constexpr uint64_t own_bit = uint64_t{1} << 63;
    /* Set in a time limit that is a point in time of now_ms() instead of a value of deadline_of. */
    static constexpr uint64_t point_bit = uint64_t{1} << 63;
    static constexpr uint64_t one_generation = uint64_t{1} << 32;

    static binding *&active() noexcept {
        static constinit binding *the_one = nullptr;
        return the_one;
    }
    static uint64_t births() noexcept {
        static constinit uint64_t count = 0;
        return ++count;
    }

    uint32_t capacity() const noexcept { return capacity_; }
    slot &at(uint32_t index) noexcept { return blocks_[index >> block_bits][index % block_size]; }
    const slot &at(uint32_t index) const noexcept { return blocks_[index >> block_bits][index % block_size]; }

    /* Cold paths, here and below. Kept out of line so that the hot path does not spill registers for them. */
    [[gnu::noinline]] void grow() {
        const uint32_t first = capacity();
        blocks_.push_back(std::make_unique<slot[]>(block_size));
        capacity_ += block_size;
        for (uint32_t index = first + block_size; index-- > first;) {
            at(index).id = own_bit | index;
            at(index).next_free = std::exchange(free_, &at(index));
        }
    }
    void release(slot &entry) noexcept {
        entry.owner = nullptr;
        entry.id = (entry.id + one_generation) | own_bit;
        entry.next_free = std::exchange(free_, &entry);
    }
    /** Closes an open slot and tells its owner how the command ended. */
    void end(slot &entry, std::error_code error) noexcept {
        waiter *const owner = entry.owner;
        release(entry);
        tell(*owner, entry.tag, error, nullptr);
    }
    static void tell(waiter &owner, uint32_t tag, std::error_code error, const page *got) noexcept {
        try {
            owner.done(owner, tag, error, got);
        } catch (...) {
            threw(std::current_exception());
        }
    }

    [[gnu::noinline]] void put_deadline(slot &entry, uint64_t timeout_ms) {
        const bool is_point = (timeout_ms & point_bit) != 0;
        entry.deadline_ms = is_point ? timeout_ms - point_bit : std::max<uint64_t>(now_ms() + timeout_ms - 1, 1);
        arm(entry.deadline_ms);
    }
    void arm(uint64_t deadline_ms) {
        const bool is_earlier = next_deadline_ == 0 || deadline_ms < next_deadline_;
        if (is_earlier) next_deadline_ = deadline_ms;
        const bool is_set = timer_ != 0 && !is_earlier; /* without a timer, each new deadline tries to set one again */
        if (is_set || platform_.timer_add == nullptr) return;
        if (timer_ != 0) platform_.timer_cancel(ev_arg_, timer_);
        const uint64_t now = now_ms();
        timer_ = platform_.timer_add(ev_arg_, next_deadline_ > now ? next_deadline_ - now : 0, timer_rang, this);
    }
    static void timer_rang(void *self) noexcept {
        auto *of = static_cast<binding *>(self);
        of->timer_ = 0;
        of->expire(of->now_ms());
    }

    /** Ends every outstanding command, because no answer can arrive through the channel that is gone. */
    static void channel_ended(void *) noexcept {
        binding *self = active();
        const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
        if (self == nullptr || info == nullptr || info->connected != 0) return;
        active() = nullptr; /* callbacks ignore the flush; waiters are told after it, because it refuses new commands */
        fwx_nat64_clnt_cleanup();
        active() = self;
        for (uint32_t index = 0; index < self->capacity(); ++index) {
            slot &entry = self->at(index);
            entry.ended_id = entry.owner != nullptr ? entry.id : 0;
        }
        const life_t life(*self);
        for (uint32_t index = 0; life && index < self->capacity(); ++index) {
            slot &entry = self->at(index); /* a waiter may send: that command has a new id and uses a new channel */
            const bool is_over = entry.owner != nullptr && entry.ended_id == entry.id;
            if (is_over) self->end(entry, client_errc::connection_lost);
        }
        if (life) self->tell(&handlers::lost);
        if (life) self->set_throttled(false);
    }

    /** Calls a handler, which may destroy the client. */
    template <class handler_type, class... argument_types>
    void tell(handler_type handlers::*which, const argument_types &...arguments) const noexcept {
        const std::shared_ptr<const handlers> on = on_;
        try {
            if ((*on).*which) ((*on).*which)(arguments...);
        } catch (...) {
            threw(std::current_exception());
        }
    }
    /** Gives a notification to its handler and to all streams. */
    template <class handler_type, class... argument_types>
    void announce(const notification &what, handler_type handlers::*which,
                  const argument_types &...arguments) noexcept {
        const life_t life(*this);
        streams_.tell(what);
        tell(which, arguments...);
        while (life) {
            const std::coroutine_handle<> waiting = streams_.take_ready();
            if (!waiting) return;
            resume(waiting);
        }
    }
    static void unheard(const std::exception_ptr &what) noexcept {
        const std::shared_ptr<const handlers> on = hearing;
        if (on && on->failed) on->failed(what);
    }
    void set_throttled(bool is_on) {
        if (!is_on) is_full_ = false;
        const bool has_changed = is_throttled_ != is_on;
        is_throttled_ = is_on;
        const life_t life(*this);
        if (has_changed) tell(&handlers::flow, !is_on);
        while (life && !is_throttled_ && !is_full_ && room_ != nullptr) {
            resume(std::exchange(room_, room_->next)->handle);
        }
        while (life && !is_throttled_ && !is_full_ && !queue_.empty()) {
            const uint64_t id = queue_.front();
            queue_.pop_front();
            if (!is_open(id)) continue;
            const auto others = static_cast<ptrdiff_t>(queue_.size());
            give_room(id);
            const bool waits_again = life && static_cast<ptrdiff_t>(queue_.size()) > others;
            if (waits_again)
                std::rotate(queue_.begin(), queue_.begin() + others, queue_.end()); /* it keeps its place */
        }
    }
    uint64_t queue_in(std::deque<uint64_t> &queue, waiter &owner, uint32_t tag, uint64_t &timeout_ms) {
        const bool is_mostly_stale = queue.size() > size_t{2} * capacity();
        if (is_mostly_stale) std::erase_if(queue, [this](uint64_t id) { return !is_open(id); });
        queue.push_back(0); /* never the id of a slot, and therefore harmless if open() throws */
        const uint64_t id = queue.back() = open(owner, tag);
        if (timeout_ms == 0) return id;
        slot &entry = at(static_cast<uint32_t>(id));
        put_deadline(entry, timeout_ms);
        timeout_ms = point_bit | entry.deadline_ms;
        return id;
    }
    void give_room(uint64_t id) noexcept {
        slot &entry = at(static_cast<uint32_t>(id));
        waiter *const owner = entry.owner;
        release(entry);
        tell(*owner, entry.tag, {}, &room_page);
    }

    /* --- The library's callbacks. --- */

    static void configured(fwx_nat64_cmd_result_t *got) noexcept {
        binding *self = active();
        const auto id = reinterpret_cast<uint64_t>(got->pal_ctx);
        if (self == nullptr || !self->is_open(id)) return;
        self->end(self->at(static_cast<uint32_t>(id)), nat64_error(got->result));
    }
    static uint32_t paged(void *pal_ctx, page got) noexcept {
        binding *self = active();
        const auto id = reinterpret_cast<uint64_t>(pal_ctx);
        if (self == nullptr || !self->is_open(id)) return 1;
        slot &entry = self->at(static_cast<uint32_t>(id));
        if (const std::error_code error = self->look_behind(got)) {
            self->end(entry, error);
            return 1;
        }
        const life_t life(*self);
        tell(*entry.owner, entry.tag, nat64_error(0), &got);
        return life && self->is_open(id) ? 0 : 1;
    }
    /** Completes a reply with what the adapter knows of its message. Returns the error if the query has failed. */
    std::error_code look_behind(page &got) const noexcept {
        size_t size = 0;
        const void *head = platform_.head == nullptr ? nullptr : platform_.head(&size);
        if (head != nullptr && size >= FWX_NAT64_REPLY_MIN_SIZE) {
            fwx_nat64_stats_sys_reply_t reply{};
            std::memcpy(&reply, head, std::min(size, sizeof reply));
            if (reply.reply.result != 0) return nat64_error(reply.reply.result);
            if (got.data == nullptr) return client_errc::unexpected_answer;
            const bool is_system = reply.reply.hdr.type == (FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_STATS_SYS);
            if (is_system) got.value2 = reply.sel;
        }
        got.bytes = platform_.bytes_behind == nullptr ? SIZE_MAX : platform_.bytes_behind(got.data);
        return nat64_error(got.data == nullptr ? FWX_NAT64_ERR_AGAIN : 0U);
    }
    static uint32_t system_stats(void *pal_ctx, uint32_t more, void *data) noexcept {
        return paged(pal_ctx, {data, 1, more != 0, 0, 0, 0});
    }
    static uint32_t counted_stats(void *pal_ctx, uint32_t more, uint32_t count, void *data) noexcept {
        return paged(pal_ctx, {data, count, more != 0, 0, 0, 0});
    }
    static uint32_t cookie_stats(void *pal_ctx, uint32_t more, uint64_t cookie, uint32_t count, void *data) noexcept {
        return paged(pal_ctx, {data, count, more != 0, cookie, 0, 0});
    }
    static uint32_t mapping_stats(void *pal_ctx, uint32_t more, uint64_t cookie, uint32_t count, void *data) noexcept {
        if (pal_ctx != nullptr) return cookie_stats(pal_ctx, more, cookie, count, data);
        binding *self = active();
        const auto *mapping = static_cast<const fwx_nat64_stats_mapping_entry_t *>(data);
        if (self == nullptr || mapping == nullptr) return 0;
        self->announce({.kind = notification_kind::mapping, .mapping = *mapping}, &handlers::mapping, *mapping);
        return 0;
    }
    static void record_notified(uint32_t op, const void *record) noexcept {
        notification told{.kind = notification_kind::record, .op = op};
        std::memcpy(told.words.data(), record, sizeof told.words);
        const std::span<const uint32_t, 3> words(told.words);
        if (active() != nullptr) active()->announce(told, &handlers::record, op, words);
    }
    static void event_notified() noexcept {
        if (active() != nullptr) active()->announce({.kind = notification_kind::event}, &handlers::event);
    }
    static void throttled(uint32_t may_send, void *) noexcept {
        if (active() != nullptr) active()->set_throttled(may_send == 0);
    }

    static constexpr fwx_nat64_reply_cbs_t reply_callbacks = {configured,   system_stats,  counted_stats,
                                                              cookie_stats, counted_stats, mapping_stats};
    static constexpr fwx_nat64_unsol_cbs_t unsol_callbacks = {nullptr, record_notified, event_notified};

    const adapter platform_;
    const std::shared_ptr<const handlers> on_;
    void *const ev_arg_;
    const uint64_t birth_; /* distinguishes it from a later binding at the same address */
    bool is_bound_ = false;
    bool is_throttled_ = false;                            /* as the channel last reported */
    bool is_full_ = false;                                 /* a send was refused, and the channel had no room since */
    std::deque<uint64_t> queue_;                           /* ids of slots that wait for room; may include stale ids */
    static inline std::shared_ptr<const handlers> hearing; /* handlers of the binding, until close() has told all */
    std::deque<uint64_t> waiting_lists_; /* ids of slots that wait for another list to end, likewise */
    size_t lists_ = 0;                   /* outstanding, without those that wait */
    std::vector<std::unique_ptr<slot[]>> blocks_;
    uint32_t capacity_ = 0; /* slots in all blocks */
    slot *free_ = nullptr;
    uint64_t next_deadline_ = 0; /* no slot has an earlier one; 0: no slot has one */
    uint64_t timer_ = 0;
    room_waiter *room_ = nullptr;
    bool *is_gone_ = nullptr; /* the destructor sets it, for close() */
    detail::streams streams_;
};

}  // namespace detail
}  // namespace fwx::nat64

#endif
