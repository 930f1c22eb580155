/* Times that many who began at one instant do not share. */
#ifndef NET_JITTER_H
#define NET_JITTER_H

#include <algorithm>
#include <cstdint>
#include <random>

/** Three to five quarters of a time, each time others. */
inline uint64_t jitter(uint64_t time_ms) {
    thread_local std::minstd_rand random{std::random_device{}()};
    return std::uniform_int_distribution<uint64_t>(time_ms - time_ms / 4, time_ms + time_ms / 4)(random);
}

/** Delays between tries that fail one behind the other: each twice as long as the one before, with jitter. */
class backoff_t {
public:
    explicit backoff_t(uint64_t first_ms) : first_ms_(first_ms), next_ms_(first_ms) {}

    /** The next delay, no longer than `most_ms` and a quarter. */
    uint64_t next(uint64_t most_ms) {
        const uint64_t delay_ms = std::min(next_ms_, most_ms);
        next_ms_ = 2 * delay_ms;
        return jitter(delay_ms);
    }
    /** The next failure is the first one. */
    void reset() { next_ms_ = first_ms_; }

private:
    const uint64_t first_ms_;
    uint64_t next_ms_;
};

#endif
