/* Checks by the platform's counters that a test released all objects and caused no errors. */
#ifndef TESTS_SUPPORT_PLATFORM_WATCH_H
#define TESTS_SUPPORT_PLATFORM_WATCH_H

#include <string>

#include "fwx_host/inspect.h"

/** The platform's objects that are in use. */
inline fwx_host_live_t live() {
    fwx_host_live_t now{};
    fwx_host_live_get(&now);
    return now;
}

class platform_watch_t {
public:
    platform_watch_t() { fwx_host_errors_get(&errors_before_); }

    /** Describes the differences in live objects since its creation, and the elements that were in use when their pool
     * or list was destroyed, as "2 lists, 1 channels". Empty when there are none. Does not count trees, because no
     * operation destroys a tree: an empty tree is freed when another is created for its complex. */
    std::string left() const {
        std::string text = difference(live(), live_before_, live_counters);
        if (const uint64_t lost = errors().destroyed_in_use - destroyed_in_use_expected_) {
            text += (text.empty() ? "" : ", ") + std::to_string(lost) + " elements of destroyed pools and lists";
        }
        return text;
    }
    /** Announces elements that the test leaves in use on purpose; left() then does not report them. */
    void expect_destroyed_in_use(uint64_t elements) { destroyed_in_use_expected_ += elements; }
    /** Describes the errors counted since its creation, in the same form. */
    std::string faults() const { return difference(errors(), {}, error_counters); }
    fwx_host_errors_t errors() const {
        fwx_host_errors_t now{};
        fwx_host_errors_get(&now);
        for (const auto &counter : error_counters) {
            now.*counter.member -= errors_before_.*counter.member;
        }
        return now;
    }

private:
    template <typename record_t>
    struct counter_t {
        const char *name;
        uint64_t record_t::*member;
    };
    static constexpr counter_t<fwx_host_live_t> live_counters[] = {
        {"memory blocks", &fwx_host_live_t::memory_blocks},
        {"memory bytes", &fwx_host_live_t::memory_bytes},
        {"lists", &fwx_host_live_t::lists},
        {"hash tables", &fwx_host_live_t::hash_tables},
        {"pools", &fwx_host_live_t::pools},
        {"pool elements", &fwx_host_live_t::pool_elements},
        {"transmit buffers", &fwx_host_live_t::tx_buffers},
        {"channels", &fwx_host_live_t::channels},
    };
    static constexpr counter_t<fwx_host_errors_t> error_counters[] = {
        {"bad frees", &fwx_host_errors_t::bad_frees},
        {"messages without handler", &fwx_host_errors_t::dropped_no_handler},
        {"messages without buffer", &fwx_host_errors_t::dropped_no_buffer},
        {"malformed messages", &fwx_host_errors_t::dropped_malformed},
        {"elements of destroyed pools and lists", &fwx_host_errors_t::destroyed_in_use},
    };
    template <typename record_t, size_t n>
    static std::string difference(const record_t &now, const record_t &before,
                                  const counter_t<record_t> (&counters)[n]) {
        std::string text;
        for (const auto &counter : counters) {
            const auto more = static_cast<int64_t>(now.*counter.member - before.*counter.member);
            if (more != 0) text += (text.empty() ? "" : ", ") + std::to_string(more) + " " + counter.name;
        }
        return text;
    }

    const fwx_host_live_t live_before_ = live();
    fwx_host_errors_t errors_before_{};
    uint64_t destroyed_in_use_expected_ = 0;
};

#endif
