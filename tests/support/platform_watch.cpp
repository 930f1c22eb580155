#include "tests/support/platform_watch.h"

#include <cstdint>

namespace {

template <typename record_t>
struct counter_t {
    const char *name;
    uint64_t record_t::*member;
};

constexpr counter_t<fwx_host_live_t> live_counters[] = {
    {"memory blocks", &fwx_host_live_t::memory_blocks},
    {"memory bytes", &fwx_host_live_t::memory_bytes},
    {"lists", &fwx_host_live_t::lists},
    {"hash tables", &fwx_host_live_t::hash_tables},
    {"pools", &fwx_host_live_t::pools},
    {"pool elements", &fwx_host_live_t::pool_elements},
    {"transmit buffers", &fwx_host_live_t::tx_buffers},
    {"channels", &fwx_host_live_t::channels},
};

constexpr counter_t<fwx_host_errors_t> error_counters[] = {
    {"bad frees", &fwx_host_errors_t::bad_frees},
    {"messages without handler", &fwx_host_errors_t::dropped_no_handler},
    {"messages without buffer", &fwx_host_errors_t::dropped_no_buffer},
    {"malformed messages", &fwx_host_errors_t::dropped_malformed},
    {"elements of destroyed pools and lists", &fwx_host_errors_t::destroyed_in_use},
};

template <typename record_t, size_t n>
std::string difference(const record_t &now, const record_t &before, const counter_t<record_t> (&counters)[n]) {
    std::string text;
    for (const counter_t<record_t> &counter : counters) {
        const auto more = static_cast<int64_t>(now.*counter.member - before.*counter.member);
        if (more != 0) text += (text.empty() ? "" : ", ") + std::to_string(more) + " " + counter.name;
    }
    return text;
}

}  // namespace

platform_watch_t::platform_watch_t() {
    fwx_host_live_get(&live_before_);
    fwx_host_errors_get(&errors_before_);
}

std::string platform_watch_t::left() const {
    fwx_host_live_t now{};
    fwx_host_live_get(&now);
    std::string text = difference(now, live_before_, live_counters);
    if (const uint64_t lost = errors().destroyed_in_use - destroyed_in_use_expected_) {
        text += (text.empty() ? "" : ", ") + std::to_string(lost) + " elements of destroyed pools and lists";
    }
    return text;
}

std::string platform_watch_t::faults() const {
    return difference(errors(), {}, error_counters);
}

fwx_host_errors_t platform_watch_t::errors() const {
    fwx_host_errors_t now{};
    fwx_host_errors_get(&now);
    for (const counter_t<fwx_host_errors_t> &counter : error_counters) {
        now.*counter.member -= errors_before_.*counter.member;
    }
    return now;
}
