/** @file
 * Queries: lists as a whole or reply by reply, single records, the server's configuration, and the session walk page by
 * page. The members of fwx::nat64::client make them; PAL authors use the results and `page_walk`.
 *
 * All of them run on detail::list_walk, which sends further queries until the list is complete. It checks that the list
 * advances and waits for room, but leaves it to its functions to interpret the replies.
 */
#ifndef FWX_NAT64_CXX_QUERY_HPP
#define FWX_NAT64_CXX_QUERY_HPP

#include "fwx_nat64/cxx/command.hpp"

namespace fwx::nat64 {
namespace detail {

/**
 * Reads a list to its end, with a further query for each cookie. `ask` sends a query: it gets the `pal_ctx`, the cookie
 * and the number of entries so far. `on_page` gets each reply and says whether the list goes on. `on_end` is called
 * when the list has ended. `on_page` and `on_end` may destroy the list_walk.
 */
template <class ask_type, class page_type, class end_type>
class list_walk : waiter {
public:
    list_walk(binding &to, ask_type ask, page_type on_page, end_type on_end, uint64_t cookie, uint64_t timeout_ms)
        : waiter(arrived),
          to_(&to),
          cookie_(cookie),
          timeout_ms_(timeout_ms),
          time_left_(timeout_ms),
          ask_(std::move(ask)),
          on_page_(std::move(on_page)),
          on_end_(std::move(on_end)) {}
    list_walk(const list_walk &) = delete;
    ~list_walk() {
        if (id_ != 0) to_->close(id_);
        if (is_counted_) to_->list_ended();
    }

    /** Sends the first query. Returns 0 if it is sent or waits for room; on_end is called later in that case only. */
    uint32_t start() {
        const auto ask_first = [this](void *pal_ctx) { return ask_(pal_ctx, cookie_, taken_); };
        const uint32_t code = to_->start(ask_first, *this, 0, time_left_, id_);
        if (code == 0) count();
        return code != 0 && waits_for_room(code) ? 0 : code;
    }
    void within(uint64_t timeout_ms) noexcept { timeout_ms_ = time_left_ = timeout_ms; }
    bool was_sent() const noexcept { return was_sent_; }
    /** Makes a list_walk in the storage of its own slot, where it stays until the list has ended, and sends the first
     * query. Returns the code of the send; after an error on_end is not called. */
    static uint32_t start_in_slot(binding &to, ask_type ask, page_type on_page, end_type on_end, uint64_t cookie,
                                  uint64_t timeout_ms) {
        static_assert(sizeof(list_walk) <= binding::storage_size, "callbacks hold too much: let them hold a pointer");
        waiter nobody{nullptr};
        const uint64_t id = to.open(nobody, 0);
        list_walk *self = nullptr;
        try {
            self = new (to.storage(id))
                list_walk(to, std::move(ask), std::move(on_page), std::move(on_end), cookie, timeout_ms);
        } catch (...) {
            to.close(id);
            throw;
        }
        to.own(id, *self);
        self->is_in_slot_ = true;
        const auto ask_first = [self](void *pal_ctx) { return self->ask_(pal_ctx, self->cookie_, 0); };
        uint32_t code = 0;
        try {
            code = to.send(id, ask_first);
        } catch (...) {
            self->~list_walk();
            throw;
        }
        if (code != 0) {
            self->~list_walk();
            return code;
        }
        self->id_ = id;
        self->count();
        to.set_deadline(id, timeout_ms);
        return 0;
    }

private:
    void count() noexcept {
        if (!is_counted_) to_->list_began(); /* it stays counted while its next query waits for room */
        was_sent_ = is_counted_ = true;
    }
    /** Queues the query until another list has ended, if the server refused it because it answers only a limited number
     * of lists at a time. Returns false if it is not queued. */
    bool waits_for_another(std::error_code error) {
        if (is_in_slot_ || error != nat64_error(FWX_NAT64_MODEL_ERR_TOO_MANY)) return false;
        id_ = to_->queue_list(*this, time_left_);
        is_counted_ = id_ == 0;
        return id_ != 0;
    }
    bool waits_for_room(uint32_t code) {
        if (!to_->is_full(code)) return false;
        id_ = to_->queue(*this, 0, time_left_);
        return true;
    }
    static void arrived(waiter &base, uint32_t, std::error_code error, const page *got) {
        auto &self = static_cast<list_walk &>(base);
        if (got == nullptr) return self.refused(error);
        if (got == &room_page) return self.has_room();
        binding &to = *self.to_;
        const binding::life_t life(to);
        const uint64_t id = self.id_;
        to.set_deadline(id, self.timeout_ms_);
        self.time_left_ = self.timeout_ms_;
        list_step step = list_step::enough;
        std::exception_ptr thrown;
        try {
            step = self.on_page_(*got);
        } catch (...) {
            thrown = std::current_exception();
        }
        const bool is_there = life && to.is_open(id); /* on_page_ has not ended it */
        if (thrown && !is_there) binding::threw(thrown);
        if (!is_there) return;
        if (thrown) return self.end({}, thrown);
        self.go_on(step, *got);
    }
    void refused(std::error_code error) {
        id_ = 0;
        bool waits = false;
        std::exception_ptr thrown;
        try {
            waits = waits_for_another(error);
        } catch (...) {
            thrown = std::current_exception();
        }
        if (!waits) end(error, thrown);
    }
    void has_room() {
        id_ = 0;
        uint32_t code = 0;
        std::exception_ptr thrown;
        try {
            code = start();
        } catch (...) {
            thrown = std::current_exception();
        }
        if (code != 0 || thrown) end(nat64_error(code), thrown);
    }
    void go_on(list_step step, const page &got) {
        const bool goes_on = got.more || got.cookie != 0;
        if (step == list_step::too_short) return end(client_errc::list_short);
        if (step == list_step::enough || !goes_on) return end({});
        if (got.count == 0) return end(client_errc::list_empty);
        if (got.cookie != 0 && got.cookie <= cookie_) return end(client_errc::list_stalled);
        cookie_ = got.cookie;
        taken_ += got.count;
        if (got.more) return;
        const auto ask_again = [this](void *pal_ctx) { return ask_(pal_ctx, cookie_, taken_); };
        uint32_t code = 0;
        std::exception_ptr thrown;
        try {
            code = to_->send(id_, ask_again);
            if (code != 0 && !is_in_slot_ && waits_for_room(code)) return;
        } catch (...) {
            thrown = std::current_exception();
        }
        if (thrown) return end({}, thrown);
        if (code != 0) end(to_->refused(code).error);
    }
    void end(std::error_code error, const std::exception_ptr &thrown = {}) {
        binding &to = *to_;
        const binding::life_t life(to);
        const bool was_counted = std::exchange(is_counted_, false);
        to.close(std::exchange(id_, 0));
        end_type on_end = std::move(on_end_);
        if (is_in_slot_) this->~list_walk();
        try {
            on_end(error, thrown);
        } catch (...) {
            binding::threw(std::current_exception());
        }
        if (was_counted && life) to.list_ended();
    }

    binding *to_;
    uint64_t id_ = 0; /* of its slot; 0: it is not outstanding */
    uint64_t cookie_;
    uint64_t taken_ = 0;
    uint64_t timeout_ms_; /* between replies */
    uint64_t time_left_;  /* to the next reply: timeout_ms_, or a point in time after a wait */
    bool is_in_slot_ = false;
    bool was_sent_ = false;
    bool is_counted_ = false; /* list_began was called, list_ended was not */
    [[no_unique_address]] ask_type ask_;
    [[no_unique_address]] page_type on_page_;
    [[no_unique_address]] end_type on_end_;
};

/** The entries of a reply, or null if the reply is too short for the number that it claims. */
template <class entry_type>
const entry_type *entries_of(const page &got) noexcept {
    return got.bytes / sizeof(entry_type) < got.count ? nullptr : static_cast<const entry_type *>(got.data);
}

/** Size of a payload in a page of the configuration, padding included. */
constexpr size_t padded(uint32_t size) noexcept {
    return (size_t{size} + 7) / 8 * 8;
}

/** Passes the entries of a reply to a function. If the function returns false, the list ends. */
template <class entry_type, class on_type>
list_step hand_over(on_type &on, const page &got) {
    const entry_type *entries = entries_of<entry_type>(got);
    if (entries == nullptr) return list_step::too_short;
    const std::span<const entry_type> span(entries, got.count);
    if constexpr (std::is_void_v<std::invoke_result_t<on_type &, std::span<const entry_type>>>) {
        on(span);
        return list_step::next;
    } else {
        return on(span) ? list_step::next : list_step::enough;
    }
}

/** Awaits the end of a list and gives a value. `on_page` gets the value and each reply, and fills the value in. */
template <class value_type, class ask_type, class page_type>
class [[nodiscard]] awaited_list {
public:
    awaited_list(binding &to, ask_type ask, page_type on_page, uint64_t timeout_ms)
        : on_page_(std::move(on_page)), walk_(to, std::move(ask), page_fn{this}, end_fn{this}, 0, timeout_ms) {}
    awaited_list(const awaited_list &) = delete;

    /** Awaits a list without moving it, because g++ 12 would copy an awaitable that is awaited by reference. */
    class [[nodiscard]] in_place {
    public:
        explicit in_place(awaited_list &list) noexcept : list_(&list) {}
        bool await_ready() const noexcept { return false; }
        bool await_suspend(std::coroutine_handle<> waiting) const { return list_->await_suspend(waiting); }
        value_type await_resume() const { return list_->await_resume(); }

    private:
        awaited_list *list_;
    };
    /** Sets a time limit as for a command. For a list it limits the time between replies. Await the returned object in
     * the same expression, because it refers to this one. */
    template <class rep_type, class period_type>
    in_place within(std::chrono::duration<rep_type, period_type> timeout) && {
        walk_.within(deadline_of(timeout));
        return in_place(*this);
    }

    bool await_ready() const noexcept { return false; }
    bool await_suspend(std::coroutine_handle<> waiting) {
        waiting_ = waiting;
        const uint32_t code = walk_.start();
        static_cast<result &>(value_) = sent(code);
        return code == 0;
    }
    value_type await_resume() {
        if (thrown_) std::rethrow_exception(thrown_);
        return std::move(value_);
    }

private:
    struct page_fn {
        awaited_list *self;
        list_step operator()(const page &got) const { return self->on_page_(self->value_, got); }
    };
    struct end_fn {
        awaited_list *self;
        void operator()(std::error_code error, const std::exception_ptr &thrown) const {
            if (!self->value_.error) self->value_.error = error;
            self->value_.was_sent = self->walk_.was_sent();
            self->thrown_ = thrown;
            self->waiting_.resume();
        }
    };

    page_type on_page_;
    value_type value_;
    std::exception_ptr thrown_; /* by a function of the PAL */
    std::coroutine_handle<> waiting_;
    list_walk<ask_type, page_fn, end_fn> walk_;
};

}  // namespace detail

/** The result of a query that gives one record. */
template <class record_type>
struct record_result : result {
    record_type record{}; /**< valid if there is no error */
};

/** An item of the server's configuration, as the command that creates it. */
struct running_item {
    uint16_t number;                  /**< message number: FWX_NAT64_MSG_CONFIG or FWX_NAT64_MSG_MAPT_RULE */
    uint16_t op_code;                 /**< FWX_NAT64_CFG_*, or FWX_NAT64_MAPT_RULE_BMR or _DMR */
    std::span<const uint8_t> payload; /**< described at fwx_nat64_config_entry_t; its address is divisible by 8 */
};

/** The configuration of a server, in an order in which it can be sent to another server. */
struct running_configuration : result {
    uint64_t boot_id = 0;       /**< as in fwx_nat64_stats_boot_t */
    uint64_t changes = 0;       /**< as in fwx_nat64_stats_boot_t */
    std::vector<uint8_t> bytes; /**< each fwx_nat64_config_entry_t with its payload; meaningless after an error */

    /** Passes each item to a function. */
    template <class on_type>
    void for_each(on_type on) const {
        for (size_t at = 0; at < bytes.size();) {
            const auto *entry = reinterpret_cast<const fwx_nat64_config_entry_t *>(bytes.data() + at);
            on(running_item{entry->number, entry->op_code, {bytes.data() + at + sizeof *entry, entry->size}});
            at += sizeof *entry + detail::padded(entry->size);
        }
    }
};

namespace detail {

/** Checks a reply to FWX_NAT64_SEL_CONFIG and appends its entries. */
inline list_step take_config_page(running_configuration &into, const page &got) {
    fwx_nat64_config_page_t head{};
    const bool has_head = got.bytes != SIZE_MAX && got.bytes >= sizeof head && got.value2 == FWX_NAT64_SEL_CONFIG;
    if (has_head) std::memcpy(&head, got.data, sizeof head);
    if (head.magic != FWX_NAT64_CONFIG_MAGIC) {
        into.error = client_errc::unreadable;
        return list_step::enough;
    }
    if (head.bytes < sizeof head || head.bytes > got.bytes) return list_step::too_short;
    if (into.boot_id == 0) {
        into.boot_id = head.boot_id;
        into.changes = head.changes;
    }
    if (into.boot_id != head.boot_id || into.changes != head.changes) {
        into.error = client_errc::changing;
        return list_step::enough;
    }
    const auto *begin = static_cast<const uint8_t *>(got.data) + sizeof head;
    const size_t size = head.bytes - sizeof head;
    size_t at = 0;
    for (uint32_t i = 0; i < head.entries; ++i) {
        fwx_nat64_config_entry_t entry;
        if (size - at < sizeof entry) return list_step::too_short;
        std::memcpy(&entry, begin + at, sizeof entry);
        at += sizeof entry;
        if (size - at < padded(entry.size)) return list_step::too_short;
        at += padded(entry.size);
    }
    if (at != size) return list_step::too_short;
    into.bytes.insert(into.bytes.end(), begin, begin + size);
    return list_step::next;
}

}  // namespace detail

/**
 * A walk over a list, page by page: `while (auto page = co_await walk.next())`. The first next() sends the query, and
 * destroying the walk stops it. A page refers to the message in which it arrived, without a copy, so it is valid until
 * the coroutine awaits something. Pages that arrive while the coroutine awaits something else are copied and kept.
 */
template <class entry_type, class ask_type>
class [[nodiscard]] page_walk {
public:
    /** The entries of a page; false if it is empty, which means that the walk has ended. */
    class entries_t : public std::span<const entry_type> {
    public:
        using std::span<const entry_type>::span;
        explicit operator bool() const noexcept { return !this->empty(); }
    };

    page_walk(detail::binding &to, ask_type ask, uint64_t timeout_ms)
        : walk_(to, std::move(ask), page_fn{this}, end_fn{this}, 0, timeout_ms) {}
    page_walk(const page_walk &) = delete;

    /** Sets a time limit as for a list. Call it before the first next(). */
    template <class rep_type, class period_type>
    void within(std::chrono::duration<rep_type, period_type> timeout) {
        walk_.within(detail::deadline_of(timeout));
    }
    auto next() noexcept {
        struct awaiter : detail::waiting_place::guest {
            explicit awaiter(page_walk *walk) noexcept : guest(walk->waiting_), self(walk) {}
            bool await_ready() const { return self->is_ready(); }
            entries_t await_resume() const { return self->take(); }
            page_walk *self;
        };
        return awaiter(this);
    }
    /** The error with which the walk has ended; no error: all pages have arrived. */
    result end() const noexcept { return end_; }

private:
    struct page_fn {
        page_walk *self;
        list_step operator()(const page &got) const {
            auto take = [this](std::span<const entry_type> entries) { self->arrived(entries); };
            return detail::hand_over<entry_type>(take, got);
        }
    };
    struct end_fn {
        page_walk *self;
        void operator()(std::error_code error, const std::exception_ptr &thrown) const { self->ended(error, thrown); }
    };

    bool is_ready() {
        here_ = {};
        read_.clear();
        if (!is_started_) {
            const uint32_t code = walk_.start();
            is_started_ = true;
            has_ended_ = code != 0;
            end_ = detail::sent(code);
        }
        return has_ended_ || !kept_.empty();
    }
    entries_t take() {
        if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
        if (!kept_.empty()) {
            read_.swap(kept_);
            return {read_.data(), read_.size()};
        }
        return here_;
    }
    void arrived(std::span<const entry_type> entries) {
        if (entries.empty()) return;
        if (!waiting_) {
            kept_.insert(kept_.end(), entries.begin(), entries.end());
            return;
        }
        here_ = {entries.data(), entries.size()};
        waiting_.take().resume();
    }
    void ended(std::error_code error, const std::exception_ptr &thrown) {
        end_ = {error, walk_.was_sent()};
        thrown_ = thrown;
        has_ended_ = true;
        if (waiting_) waiting_.take().resume();
    }

    bool is_started_ = false;
    bool has_ended_ = false;
    result end_;
    std::exception_ptr thrown_;    /* next() throws it */
    entries_t here_;               /* entries in the reply that is being delivered */
    std::vector<entry_type> kept_; /* entries that arrived while nobody waited */
    std::vector<entry_type> read_; /* kept entries that the coroutine has got */
    detail::waiting_place waiting_;
    detail::list_walk<ask_type, page_fn, end_fn> walk_;
};

}  // namespace fwx::nat64

#endif
