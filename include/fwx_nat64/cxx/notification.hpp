/** @file
 * What the server tells unasked, as something to await. For PALs that would rather read notifications in a coroutine
 * than get them through fwx::nat64::handlers; both get all of them.
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

#include "fwx_nat64/wire.h"

namespace fwx::nat64 {

enum class notification_kind { record, event, mapping };

/** Something that the server told unasked. */
struct notification {
    notification_kind kind{};
    uint32_t op = 0;                           /**< of a record: FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL */
    std::array<uint32_t, 3> words{};           /**< of a record: its contents */
    fwx_nat64_stats_mapping_entry_t mapping{}; /**< that became active or inactive */
};

class notification_stream;

namespace detail {

/** The streams of a client. Resuming their coroutines is left to the binding, because each may end the client. */
class streams {
public:
    void add(notification_stream &stream) noexcept;
    void remove(const notification_stream &stream) noexcept;
    void tell(const notification &what) noexcept;
    /** A coroutine to resume, or null: none waits for what has come. */
    std::coroutine_handle<> take_ready() noexcept;
    /** Ends the first stream; false when there is none. `waiting` gets its coroutine, or null. */
    bool end_one(std::coroutine_handle<> &waiting) noexcept;

private:
    notification_stream *first_ = nullptr;
};

}  // namespace detail

/**
 * The notifications from now on, in the order in which they come:
 * `while (const auto told = co_await stream.next())`. A stream keeps the latest `kept_most` that nobody has awaited.
 * One coroutine at a time awaits it. It may outlive the client: what it has kept is given out, and then nothing.
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

    /** Awaits the next notification; none: the client has ended or was closed. */
    auto next() noexcept {
        struct awaiter {
            notification_stream *self;
            bool await_ready() const noexcept { return self->has_one() || self->of_ == nullptr; }
            void await_suspend(std::coroutine_handle<> waiting) const noexcept { self->waiting_ = waiting; }
            std::optional<notification> await_resume() const noexcept { return self->take(); }
        };
        return awaiter{this};
    }
    /** How many were dropped because the stream was full, or for want of memory. */
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

    detail::streams *of_; /* null: the client has ended */
    notification_stream *next_ = nullptr;
    std::vector<notification> kept_; /* given out up to read_ */
    size_t read_ = 0;
    uint64_t missed_ = 0;
    std::coroutine_handle<> waiting_;
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
        if (each->waiting_ && each->has_one()) return std::exchange(each->waiting_, nullptr);
    }
    return nullptr;
}
inline bool streams::end_one(std::coroutine_handle<> &waiting) noexcept {
    if (first_ == nullptr) return false;
    notification_stream &ended = *std::exchange(first_, first_->next_);
    ended.of_ = nullptr;
    waiting = std::exchange(ended.waiting_, nullptr);
    return true;
}

}  // namespace detail
}  // namespace fwx::nat64

#endif
