/* What the drills of the gateway share. Each prints what it measured. */
#ifndef TESTS_GATEWAY_DRILL_H
#define TESTS_GATEWAY_DRILL_H

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "commander.h"
#include "gateway_fixture.h"

using clock_type = std::chrono::steady_clock;

inline double seconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

class drill : public gateway_fixture_t {
protected:
    std::string table() const { return middle.run("nft list table ip6 fwx_nat64_edge").output; }
    std::string tracked() const { return middle.run("{ conntrack -L -f ipv6 2>/dev/null; }").output; }
    /** The number of sessions that connection tracking lists. */
    size_t listed_sessions() const {
        const std::string list = tracked();
        return static_cast<size_t>(std::count(list.begin(), list.end(), '\n'));
    }
    /** So many changes that concern none of the flows. */
    static void change_unrelated(commander_t &commander, size_t count) {
        for (size_t i = 0; i < count; i += 4) {
            for (const char *line : {"smapping add --id 900 --addr1 2001:db8:9::9 --addr2 203.0.113.77",
                                     "pool add --id 900 --param 1 --start 203.0.113.80 --end 203.0.113.87",
                                     "smapping del --id 900", "pool del --id 900"}) {
                commander.carry_out(line);
            }
        }
    }
};

#endif
