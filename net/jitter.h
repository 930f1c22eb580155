/* Random jitter and exponential back-off for delays, so that clients that started together do not retry in lockstep. */
#ifndef NET_JITTER_H
#define NET_JITTER_H

#include <algorithm>
#include <cstdint>
#include <random>

/** The time with a random jitter of up to 25 % in either direction. */
inline uint64_t jitter(uint64_t time_ms) {
    thread_local std::minstd_rand random{std::random_device{}()};
    return std::uniform_int_distribution<uint64_t>(time_ms - time_ms / 4, time_ms + time_ms / 4)(random);
}

/** Exponential back-off: each delay after a further failure is twice as long as the one before, with jitter. */
class backoff_t {
public:
    explicit backoff_t(uint64_t first_ms) : first_ms_(first_ms), next_ms_(first_ms) {}

    /** The next delay, limited to `most_ms` before the jitter. */
    uint64_t next(uint64_t most_ms) {
        const uint64_t delay_ms = std::min(next_ms_, most_ms);
        next_ms_ = 2 * delay_ms;
        return jitter(delay_ms);
    }
    /** To be called after a success: the next delay is the first one again. */
    void reset() { next_ms_ = first_ms_; }

private:
    const uint64_t first_ms_;
    uint64_t next_ms_;
};

#endif
