/* Times of long drills, which they print and hold to their bounds. */
#ifndef TESTS_SUPPORT_STOPWATCH_H
#define TESTS_SUPPORT_STOPWATCH_H

#include <chrono>

using clock_type = std::chrono::steady_clock;

inline double seconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

#endif
