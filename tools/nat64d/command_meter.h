/* Counts configuration commands by result and measures their response times, for the metrics. It reads the platform's
 * message tap, so it sees every command, whichever part of the process sends it. */
#ifndef TOOLS_NAT64D_COMMAND_METER_H
#define TOOLS_NAT64D_COMMAND_METER_H

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>

#include "fwx_host/smc.h"

class command_meter_t {
public:
    /** `exists` and `gone` are refusals that a replay counts as success. */
    enum class end_t : uint8_t { ok, exists, gone, refused, lost };
    /** Upper bounds of the histogram's buckets, in seconds. */
    static constexpr std::array bounds = {0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005,
                                          0.01,   0.05,    0.1,    0.5,   1.0,    5.0};
    struct times_t {
        std::array<uint64_t, bounds.size() + 1> counts{}; /* by bucket; the last one is for longer times */
        uint64_t count = 0;
        double sum = 0; /* seconds */
    };

    /** Occupies the tap of the process during its lifetime. */
    command_meter_t();
    ~command_meter_t() { fwx_host_tap_set(nullptr, nullptr); }
    command_meter_t(const command_meter_t &) = delete;
    command_meter_t &operator=(const command_meter_t &) = delete;

    /** The channel has ended: counts all outstanding commands as lost. */
    void channel_lost();

    /** By kind, which is the name of the message, and result. All combinations exist from the start, with 0. */
    const std::map<std::pair<std::string, end_t>, uint64_t> &counts() const { return counts_; }
    const times_t &times() const { return times_; }
    /** Number of outstanding commands. */
    size_t outstanding() const { return waiting_.size(); }

private:
    struct waiting_t {
        const char *kind;
        uint64_t since_ns;
    };

    static void tapped(void *arg, fwx_host_direction_t direction, const void *msg, size_t size);
    void sent(const void *msg, size_t size);
    void received(const void *msg, size_t size);

    std::unordered_map<uint64_t, waiting_t> waiting_; /* by the context that the server echoes */
    std::map<std::pair<std::string, end_t>, uint64_t> counts_;
    times_t times_;
};

/** The value of the label `result`, for example `ok`. */
const char *end_name(command_meter_t::end_t end);

#endif
