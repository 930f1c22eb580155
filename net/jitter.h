/* Times that many who began at one instant do not share. */
#ifndef NET_JITTER_H
#define NET_JITTER_H

#include <cstdint>
#include <random>

/** Three to five quarters of a time, each time others. */
inline uint64_t jitter(uint64_t time_ms) {
    thread_local std::minstd_rand random{std::random_device{}()};
    return std::uniform_int_distribution<uint64_t>(time_ms - time_ms / 4, time_ms + time_ms / 4)(random);
}

#endif
