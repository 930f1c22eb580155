/** @file
 * Commands: awaited one by one, awaited many at a time, or sent with a callback. The members of fwx::nat64::client make
 * them; PAL authors use `within` of a command, `when_all` and `all_result`.
 *
 * An awaitable is the owner of its slot in the binding, so it must stay at its address while it is awaited. A callback
 * is stored in the slot itself. If the channel is full, an awaited command is queued and sent again.
 */
#ifndef FWX_NAT64_CXX_COMMAND_HPP
#define FWX_NAT64_CXX_COMMAND_HPP

#include <array>
#include <concepts>
#include <new>
#include <tuple>
#include <type_traits>

#include "fwx_nat64/cxx/binding.hpp"

namespace fwx::nat64 {
namespace detail {

inline void conclude(const binding &, std::error_code error, result &into) noexcept {
    into.error = error;
}
/** The verdict on a rule is the server's own if the adapter shows the reply, else the rule table's. */
inline void conclude(const binding &of, std::error_code error, rule_result &into) noexcept {
    into.error = into.table = error;
    const bool is_answered =
        !error || (error.category() == nat64_category() && error != nat64_error(FWX_NAT64_ERR_AGAIN) &&
                   error != nat64_error(FWX_NAT64_ERR_NOT_READY));
    const std::optional<fwx_nat64_mapt_reply_t> reply = is_answered ? of.rule_reply() : std::nullopt;
    if (!reply) return;
    into.error = nat64_error(reply->reply.result);
    into.bmr_index = reply->bmr_index;
    into.has_verdict = true;
    into.orders_cleanup = reply->op == FWX_NAT64_OP_DEL && reply->cleanup == 1;
}

}  // namespace detail

/**
 * A command that has not been sent yet. Awaiting it sends it and gives its result. If its coroutine is destroyed while
 * it is awaited, nobody gets the result, but the server may still carry the command out.
 */
template <class send_type, class result_type = result>
class [[nodiscard]] command : detail::waiter {
public:
    command(detail::binding &to, send_type send, uint64_t timeout_ms) noexcept
        : waiter(arrived), to_(&to), send_(std::move(send)), timeout_ms_(timeout_ms) {}
    /** Requires: `from` has not been awaited. */
    command(command &&from) noexcept
        : waiter(arrived), to_(from.to_), send_(std::move(from.send_)), timeout_ms_(from.timeout_ms_) {}
    command &operator=(command &&) = delete;
    ~command() {
        if (id_ != 0) to_->close(id_);
    }

    /** Sets a time limit for this command, after which it ends with std::errc::timed_out. The time begins when the
     * command is sent, or when it begins to wait for room. 0 ends it in the next turn of the loop. Throws
     * std::out_of_range for a time that is negative or longer than some 30,000 years. */
    template <class rep_type, class period_type>
    command &&within(std::chrono::duration<rep_type, period_type> timeout) && {
        timeout_ms_ = detail::deadline_of(timeout);
        return std::move(*this);
    }

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> waiting) {
        waiting_ = waiting;
        const uint32_t code = to_->start(send_, *this, 0, timeout_ms_, id_);
        return code == 0 || waits_for_room(code);
    }
    result_type await_resume() const noexcept { return result_; }

    using value_type = result_type;
    /** Sends the command for an owner of several commands, which distinguishes them by their tags. Returns the code of
     * the send. */
    uint32_t start_for(detail::waiter &owner, uint32_t tag, uint64_t &id) {
        return to_->start(send_, owner, tag, timeout_ms_, id);
    }
    /** Queues the command for the same owner, which calls start_for() again when the channel has room. */
    void queue_for(detail::waiter &owner, uint32_t tag) { to_->queue(owner, tag, timeout_ms_); }
    detail::binding &to() const noexcept { return *to_; }

private:
    /** Cold path. Queues the command to be sent again when the channel has room. Returns false if it was refused for
     * another reason. */
    [[gnu::noinline]] bool waits_for_room(uint32_t code) {
        refuse(detail::sent(code));
        if (!to_->is_full(code)) return false;
        done = has_room;
        id_ = to_->queue(*this, 0, timeout_ms_);
        return true;
    }
    static void has_room(waiter &base, uint32_t, std::error_code error, const page *got) {
        auto &self = static_cast<command &>(base);
        self.done = arrived;
        self.id_ = 0;
        if (got == nullptr) self.refuse({error, false});
        if (got == nullptr || !self.is_sent_again()) self.waiting_.resume();
    }
    /** Sends the command again. Returns false if that fails; `result_` then has the error. */
    bool is_sent_again() {
        try {
            const uint32_t code = to_->start(send_, *this, 0, timeout_ms_, id_);
            return code == 0 || waits_for_room(code);
        } catch (...) {
            refuse({client_errc::callback_threw, false});
            detail::binding::threw(std::current_exception());
            return false;
        }
    }
    static void arrived(waiter &base, uint32_t, std::error_code error, const page *) {
        auto &self = static_cast<command &>(base);
        self.id_ = 0;
        detail::conclude(*self.to_, error, *new (&self.result_) result_type);
        self.waiting_.resume();
    }
    void refuse(const result &why) noexcept { static_cast<result &>(*new (&result_) result_type) = why; }

    detail::binding *to_;
    send_type send_;
    uint64_t timeout_ms_; /* a point in time after a wait for room */
    uint64_t id_ = 0;     /* of its slot; 0: it is not outstanding */
    std::coroutine_handle<> waiting_;
    union {
        result_type result_; /* constructed when the command ends */
    };
};

/** The result of many commands. */
struct all_result {
    size_t failed = 0;           /**< number of commands that failed */
    std::error_code first_error; /**< error of the command that failed first */

    explicit operator bool() const noexcept { return failed == 0; }
};

namespace detail {

template <class make_type, class each_type>
class window : waiter {
public:
    using command_type = std::invoke_result_t<make_type &, size_t>;
    using value_type = typename command_type::value_type;

    window(size_t count, size_t width, make_type make, each_type each)
        : waiter(arrived),
          count_(count),
          width_(width == 0 ? 1 : width),
          make_(std::move(make)),
          each_(std::move(each)) {}
    window(const window &) = delete;
    ~window() {
        if (outstanding_ != 0 || waits_for_room_) to_->close_all(*this);
        if (is_gone_ != nullptr) *is_gone_ = true;
    }

    bool await_ready() {
        fill();
        return is_done();
    }
    void await_suspend(std::coroutine_handle<> waiting) noexcept { waiting_ = waiting; }
    all_result await_resume() const {
        if (thrown_) std::rethrow_exception(thrown_);
        return sum_;
    }

private:
    bool is_done() const noexcept { return outstanding_ == 0 && next_ == count_ && !refused_; }
    /** Sends as many commands as the window allows. Returns false if a callback has destroyed this object. */
    bool fill() {
        while ((next_ < count_ || refused_) && outstanding_ < width_ && !waits_for_room_) {
            if (life_ && !*life_) { /* `make_` may not use a client that `each_` has destroyed */
                if (!refused_) ++next_;
                refused_.reset();
                if (!refuse(sent(FWX_NAT64_ERR_NOT_READY))) return false;
                continue;
            }
            uint32_t code = 0;
            try {
                if (!refused_) refused_.emplace(make_(next_++));
                to_ = &refused_->to();
                if (!life_) life_.emplace(*to_);
                uint64_t id = 0;
                code = refused_->start_for(*this, static_cast<uint32_t>(next_ - 1), id);
                if (code != 0 && to_->is_full(code)) {
                    refused_->queue_for(*this, room_tag);
                    waits_for_room_ = true;
                    return true;
                }
            } catch (...) {
                give_up(std::current_exception());
                return true;
            }
            refused_.reset();
            if (code == 0) {
                ++outstanding_;
                continue;
            }
            if (!refuse(sent(code))) return false;
        }
        return true;
    }
    /** Ends command next_ - 1, which was not sent. Returns as take(). */
    bool refuse(const result &why) {
        value_type value;
        static_cast<result &>(value) = why;
        return take(static_cast<uint32_t>(next_ - 1), value);
    }
#if defined(__GNUC__) && !defined(__clang__) /* which does not see that is_gone_ is only left set in a dead object */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpragmas" /* before GCC 12 */
#pragma GCC diagnostic ignored "-Wdangling-pointer"
#endif
    /** Counts a result and passes it on. Returns false if `each_` has destroyed this object. */
    bool take(uint32_t index, const value_type &value) {
        if (!value) {
            if (sum_.failed++ == 0) sum_.first_error = value.first_error();
        }
        bool is_gone = false;
        bool *const outer = is_gone_;
        is_gone_ = &is_gone;
        std::exception_ptr thrown;
        try {
            each_(size_t{index}, value);
        } catch (...) {
            thrown = std::current_exception();
        }
        if (is_gone) {
            if (outer != nullptr) *outer = true;
            if (thrown) binding::threw(thrown);
            return false;
        }
        is_gone_ = outer;
        if (thrown) give_up(thrown);
        return true;
    }
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif
    /** Drops the outstanding commands and keeps the exception for the coroutine that awaits. */
    void give_up(const std::exception_ptr &what) {
        thrown_ = what;
        if (outstanding_ != 0 || waits_for_room_) to_->close_all(*this);
        outstanding_ = 0;
        next_ = count_;
        refused_.reset();
        waits_for_room_ = false;
    }
    static void arrived(waiter &base, uint32_t tag, std::error_code error, const page *got) {
        auto &self = static_cast<window &>(base);
        bool is_there = true;
        if (tag == room_tag) {
            self.waits_for_room_ = false;
            if (got == nullptr) {
                self.refused_.reset();
                is_there = self.refuse({error, false});
            }
        } else {
            value_type value;
            conclude(*self.to_, error, value);
            --self.outstanding_;
            is_there = self.take(tag, value);
        }
        if (is_there && self.fill() && self.is_done() && self.waiting_) self.waiting_.resume();
    }

    static constexpr uint32_t room_tag = UINT32_MAX;
    size_t count_;
    size_t width_;
    make_type make_;
    each_type each_;
    binding *to_ = nullptr;
    std::optional<binding::life_t> life_; /* of to_ */
    size_t next_ = 0;
    size_t outstanding_ = 0;
    std::optional<command_type> refused_; /* command next_ - 1, while it waits for room */
    bool waits_for_room_ = false;
    std::exception_ptr thrown_;
    all_result sum_;
    std::coroutine_handle<> waiting_; /* null: await_ready still sends the first commands */
    bool *is_gone_ = nullptr;         /* the destructor sets it, for the caller of `each_` */
};

template <class... command_types>
class together : waiter {
public:
    explicit together(command_types &&...commands) : waiter(arrived), commands_(std::move(commands)...) {}
    together(const together &) = delete;
    ~together() {
        if (outstanding_ != 0) std::get<0>(commands_).to().close_all(*this);
    }

    bool await_ready() {
        send(std::index_sequence_for<command_types...>());
        return outstanding_ == 0;
    }
    void await_suspend(std::coroutine_handle<> waiting) noexcept { waiting_ = waiting; }
    std::tuple<typename command_types::value_type...> await_resume() const {
        if (thrown_) std::rethrow_exception(thrown_);
        return results_;
    }

private:
    template <size_t... indices>
    void send(std::index_sequence<indices...>) {
        (send_one<indices>(), ...);
    }
    template <size_t index>
    void send_one() {
        uint64_t id = 0;
        auto &command = std::get<index>(commands_);
        const uint32_t code = command.start_for(*this, index, id);
        static_cast<result &>(std::get<index>(results_)) = sent(code);
        const bool must_wait = code != 0 && command.to().is_full(code);
        if (must_wait) command.queue_for(*this, index);
        if (code == 0 || must_wait) ++outstanding_;
    }
    template <size_t... indices>
    void send_again(uint32_t tag, std::index_sequence<indices...>) {
        ((tag == indices ? send_one<indices>() : void()), ...);
    }
    template <size_t... indices>
    void take(uint32_t tag, std::error_code error, std::index_sequence<indices...>) noexcept {
        ((tag == indices ? conclude(std::get<indices>(commands_).to(), error, std::get<indices>(results_)) : void()),
         ...);
    }
    static void arrived(waiter &base, uint32_t tag, std::error_code error, const page *got) {
        auto &self = static_cast<together &>(base);
        --self.outstanding_;
        if (got != nullptr) {
            try {
                self.send_again(tag, std::index_sequence_for<command_types...>());
            } catch (...) { /* the coroutine gets the exception; the outstanding commands are dropped */
                self.thrown_ = std::current_exception();
                std::get<0>(self.commands_).to().close_all(self);
                self.outstanding_ = 0;
            }
        } else {
            self.take(tag, error, std::index_sequence_for<command_types...>());
        }
        if (self.outstanding_ == 0) self.waiting_.resume();
    }

    std::tuple<command_types...> commands_;
    std::tuple<typename command_types::value_type...> results_;
    size_t outstanding_ = 0;
    std::exception_ptr thrown_;
    std::coroutine_handle<> waiting_;
};

/** A callback that is stored in the slot of its command. */
template <class result_type, class on_type>
class callback : waiter {
public:
    template <class send_type>
    static result start(binding &to, send_type &send, uint64_t timeout_ms, on_type on) {
        static_assert(sizeof(callback) <= binding::storage_size && std::is_nothrow_move_constructible_v<on_type>,
                      "a callback holds at most 192 bytes: let it hold a pointer");
        waiter nobody{nullptr};
        const uint64_t id = to.open(nobody, 0);
        auto *self = new (to.storage(id)) callback(to, std::move(on));
        to.own(id, *self);
        uint32_t code = 0;
        try {
            code = to.send(id, send);
        } catch (...) {
            self->~callback();
            throw;
        }
        if (code != 0) {
            self->~callback();
            return to.refused(code);
        }
        to.set_deadline(id, timeout_ms);
        return sent(code);
    }

private:
    callback(binding &to, on_type on) : waiter(arrived), to_(&to), on_(std::move(on)) {}
    static void arrived(waiter &base, uint32_t, std::error_code error, const page *) {
        auto &self = static_cast<callback &>(base);
        result_type value;
        conclude(*self.to_, error, value);
        on_type on = std::move(self.on_);
        self.~callback(); /* before the call, because a command of `on` may reuse the slot */
        on(value);
    }

    binding *to_;
    on_type on_;
};

}  // namespace detail

/**
 * Awaits `count` commands, with at most `width` outstanding at a time. Gives an all_result. If `make` or `each` throws,
 * the outstanding commands are dropped and the coroutine gets the exception. Allocates no memory of its own.
 * @param count number of commands.
 * @param width size of the window; 0 is taken as 1.
 * @param make  gets an index from 0 and returns the command, with a deadline if it sets one. It is not called any more
 *              when the client has been closed or destroyed; the commands that are left end with
 *              FWX_NAT64_ERR_NOT_READY.
 * @param each  gets the index and the result of each command, in the order of the answers.
 */
template <class make_type, class each_type>
requires std::invocable<each_type &, size_t,
                        const typename std::invoke_result_t<make_type &, size_t>::value_type &> auto
when_all(size_t count, size_t width, make_type make, each_type each) {
    return detail::window<make_type, each_type>(count, width, std::move(make), std::move(each));
}
/** The same without a function for each result. */
template <class make_type>
requires std::invocable<make_type &, size_t>
auto when_all(size_t count, size_t width, make_type make) {
    return when_all(count, width, std::move(make), [](size_t, const auto &) {});
}
/** Sends all of the commands and awaits them. Gives a tuple of their results. */
template <class... send_types, class... result_types>
auto when_all(command<send_types, result_types> &&...commands) {
    return detail::together<command<send_types, result_types>...>(std::move(commands)...);
}

}  // namespace fwx::nat64

#endif
