/* What the drills of the gateway share. Each prints what it measured. */
#ifndef TESTS_GATEWAY_DRILL_H
#define TESTS_GATEWAY_DRILL_H

#include <chrono>
#include <cstdio>

#include "gateway_fixture.h"

using clock_type = std::chrono::steady_clock;

inline double seconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

class drill : public gateway_fixture_t {
protected:
    std::string table() const { return middle.run("nft list table ip6 fwx_nat64_edge").output; }
};

#endif
