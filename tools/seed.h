/* Seeds random(), with which the library draws the epoch of each binding. The epoch tells late replies to an earlier
 * binding from replies to this one. */
#ifndef TOOLS_SEED_H
#define TOOLS_SEED_H

#include <sys/random.h>

#include <cstdlib>

/** Seeds random() from the system, once in a process. */
inline void seed_random() {
    static const bool is_seeded = [] {
        unsigned seed = 0;
        const bool is_drawn = getrandom(&seed, sizeof seed, 0) == sizeof seed;
        if (is_drawn) srandom(seed);
        return is_drawn;
    }();
    static_cast<void>(is_seeded);
}

#endif
