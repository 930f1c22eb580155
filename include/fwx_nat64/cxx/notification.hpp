/** @file
 * The server's unsolicited messages as a stream of awaitables, for a PAL that reads them in a coroutine instead of
 * through fwx::nat64::handlers. Every notification goes to the handler and to every stream of the client.
 */
#ifndef FWX_NAT64_CXX_NOTIFICATION_HPP
#define FWX_NAT64_CXX_NOTIFICATION_HPP

#include <array>
#include <coroutine>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

#include "fwx_nat64/cxx/task.hpp"
#include "fwx_nat64/wire.h"

namespace fwx::nat64 {

enum class notification_kind { record, event, mapping };

/** An unsolicited message of the server. */
struct notification {
    notification_kind kind{};                  /**< says which of the other fields are set; for an event, none */
    uint32_t op = 0;                           /**< record: FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL */
    std::array<uint32_t, 3> words{};           /**< record: its contents */
    fwx_nat64_stats_mapping_entry_t mapping{}; /**< mapping: became active or inactive */
};

class notification_stream;

namespace detail {

/** The streams of a client. The binding resumes their coroutines, because each of them may destroy the client. */
class streams {
public:
    void add(notification_stream &stream) noexcept;
    void remove(const notification_stream &stream) noexcept;
    void tell(const notification &what) noexcept;
    /** Returns a coroutine that waits on a stream that has a notification, or null if there is none. */
    std::coroutine_handle<> take_ready() noexcept;
    /** Ends the first stream and sets `waiting` to its coroutine, or to null. Returns false if there is no stream. */
    bool end_one(std::coroutine_handle<> &waiting) noexcept;

private:
    notification_stream *first_ = nullptr;
};

}  // namespace detail

/**
 * The notifications since the stream was made, in the order of their arrival:
 * `while (const auto told = co_await stream.next())`. A stream keeps notifications until they are awaited, at most the
 * latest `kept_most`. One coroutine at a time may await it. A stream may outlive the client: it then gives the
 * notifications that it has kept, and after them the end.
 */
class notification_stream {
public:
    static constexpr size_t kept_most = 1000;

    explicit notification_stream(detail::streams &of) noexcept : of_(&of) { of.add(*this); }
    notification_stream(const notification_stream &) = delete;
    notification_stream &operator=(const notification_stream &) = delete;
    ~notification_stream() {
        if (of_ != nullptr) of_->remove(*this);
    }

    /** Awaits the next notification; nullopt: the client was closed or destroyed. */
    auto next() noexcept {
        struct awaiter : detail::waiting_place::guest {
            explicit awaiter(notification_stream *stream) noexcept : guest(stream->waiting_), self(stream) {}
            bool await_ready() const noexcept { return self->has_one() || self->of_ == nullptr; }
            std::optional<notification> await_resume() const noexcept { return self->take(); }
            notification_stream *self;
        };
        return awaiter(this);
    }
    /** Number of notifications dropped because the stream was full or memory was out. */
    uint64_t missed() const noexcept { return missed_; }

private:
    friend class detail::streams;

    bool has_one() const noexcept { return read_ < kept_.size(); }
    std::optional<notification> take() noexcept {
        if (!has_one()) return std::nullopt;
        const notification taken = kept_[read_++];
        if (!has_one()) {
            kept_.clear();
            read_ = 0;
        }
        return taken;
    }
    void keep(const notification &what) noexcept {
        if (kept_.size() - read_ == kept_most) {
            ++read_;
            ++missed_;
        }
        if (read_ == kept_most) {
            kept_.erase(kept_.begin(), kept_.begin() + kept_most);
            read_ = 0;
        }
        try {
            kept_.push_back(what);
        } catch (...) {
            ++missed_;
        }
    }

    detail::streams *of_; /* null: the client was closed or destroyed */
    notification_stream *next_ = nullptr;
    std::vector<notification> kept_; /* those before read_ have been awaited */
    size_t read_ = 0;
    uint64_t missed_ = 0;
    detail::waiting_place waiting_;
};

namespace detail {

inline void streams::add(notification_stream &stream) noexcept {
    stream.next_ = std::exchange(first_, &stream);
}
inline void streams::remove(const notification_stream &stream) noexcept {
    notification_stream **link = &first_;
    while (*link != &stream) {
        link = &(*link)->next_;
    }
    *link = stream.next_;
}
inline void streams::tell(const notification &what) noexcept {
    for (notification_stream *each = first_; each != nullptr; each = each->next_) {
        each->keep(what);
    }
}
inline std::coroutine_handle<> streams::take_ready() noexcept {
    for (notification_stream *each = first_; each != nullptr; each = each->next_) {
        if (each->waiting_ && each->has_one()) return each->waiting_.take();
    }
    return nullptr;
}
inline bool streams::end_one(std::coroutine_handle<> &waiting) noexcept {
    if (first_ == nullptr) return false;
    notification_stream &ended = *std::exchange(first_, first_->next_);
    ended.of_ = nullptr;
    waiting = ended.waiting_.take();
    return true;
}

}  // namespace detail
}  // namespace fwx::nat64

#endif
