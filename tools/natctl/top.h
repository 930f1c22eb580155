/*
 * The page of `natctl top`: the result of one look at a server, as text that fits a window, or as JSON.
 *
 * The most used pools, mappings and limits come first. A pool's use is its sessions divided by the sessions that it
 * could have: 64512 ports, 1024 and above, for each address.
 */
#ifndef TOOLS_NATCTL_TOP_H
#define TOOLS_NATCTL_TOP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/natctl/outcome.h"

/** The totals, in the order of the page. */
constexpr const char *top_totals[] = {"sessions", "static_mappings", "dynamic_mappings", "pools",   "pool_ranges",
                                      "rules",    "prefixes",        "interfaces",       "loggings"};

struct top_pool_t {
    uint32_t id;
    uint64_t addresses; /* including its ranges */
    uint64_t sessions;
};
struct top_mapping_t {
    uint32_t id;
    std::string kind; /* `static` */
    uint64_t sessions;
};
struct top_limit_t {
    std::string type; /* `sessions` */
    uint64_t value;
    uint64_t in_use;
};
/** The number of commands of a kind with the same result. */
struct top_command_t {
    std::string kind; /* `all`, because a server does not count by kind */
    std::string result;
    uint64_t count;
};
struct top_look_t {
    std::string source;                                   /* `server alpha` */
    std::string time;                                     /* of the answer */
    std::string problem;                                  /* why there is no newer answer; empty: this is the newest */
    std::vector<std::pair<std::string, uint64_t>> totals; /* the known ones of top_totals, in the same order */
    std::vector<top_limit_t> limits;
    std::vector<top_pool_t> pools;
    std::vector<top_mapping_t> mappings;
    std::vector<top_command_t> commands;
    bool has_more_pools = false; /* than were listed */
    bool has_more_mappings = false;
};

/** The use of a pool, 1 if it is full; 0 for a pool without addresses. */
double use_of(const top_pool_t &pool);

/** Sorts each list by use, the most used first. */
void sort_by_use(top_look_t &look);

constexpr size_t top_any_height = SIZE_MAX;
/** Formats a sorted look as at most `height` lines of at most `width` characters, each with its line feed. */
std::string top_page(const top_look_t &look, size_t width, size_t height);

/** The same as an object, always with the same members; unknown values are null. `in_step` and `command_times` are
 * always null, because no server reports them, but readers of the object may expect them. */
json_t top_json(const top_look_t &look);

#endif
