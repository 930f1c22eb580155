/*
 * The page that `natctl top` shows: what one look at a server found, as text that fits a window, or as JSON.
 *
 * What is used most comes first. A pool's use is its sessions by those that it could have: 64512 ports, 1024 and above,
 * of each address.
 */
#ifndef TOOLS_NATCTL_TOP_H
#define TOOLS_NATCTL_TOP_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "tools/natctl/outcome.h"

/** What is counted as a whole, in the order in which it is shown. */
constexpr const char *top_totals[] = {"sessions", "static_mappings", "dynamic_mappings", "pools",   "pool_ranges",
                                      "rules",    "prefixes",        "interfaces",       "loggings"};

struct top_pool_t {
    uint32_t id;
    uint64_t addresses; /* with those of its ranges */
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
/** Commands of a kind that ended in the same way. */
struct top_command_t {
    std::string kind; /* `all`: a server does not tell them apart */
    std::string result;
    uint64_t count;
};
struct top_look_t {
    std::string source;                                   /* `server alpha` */
    std::string time;                                     /* of the answer */
    std::string problem;                                  /* why there is no newer answer; empty: this is one */
    std::vector<std::pair<std::string, uint64_t>> totals; /* those of top_totals that are known, in their order */
    std::vector<top_limit_t> limits;
    std::vector<top_pool_t> pools;
    std::vector<top_mapping_t> mappings;
    std::vector<top_command_t> commands;
    bool has_more_pools = false; /* than were listed */
    bool has_more_mappings = false;
};

/** Share of its sessions that a pool has, 1 for all; 0 for one without addresses. */
double use_of(const top_pool_t &pool);

/** Puts what is used most first. */
void sort_by_use(top_look_t &look);

constexpr size_t top_any_height = SIZE_MAX;
/** A sorted look as lines of at most `width` characters, at most `height` of them, each with its line feed. */
std::string top_page(const top_look_t &look, size_t width, size_t height);

/** The same as an object whose members stay the same; null is what is not known. `in_step` and `command_times` are
 * always null: no server tells them, but readers of the object may expect them. */
json_t top_json(const top_look_t &look);

#endif
