/* Addresses of pools, which no two share. */
#ifndef CONFIG_POOLS_H
#define CONFIG_POOLS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "config/document.h"

/** From first to last address, in host order. */
struct pool_span_t {
    uint32_t first;
    uint32_t last;
    uint32_t pool_id;
};

/** Of an item of the family `pool`, without its ranges, or of the family `range`. */
pool_span_t pool_span_of(const config_item_t &item);

/** A pool that is to have these addresses, and those that it has until then if it is there. */
struct pool_move_t {
    pool_span_t to;
    pool_span_t from;
    bool is_there;
    bool must_leave; /* first, and come anew: others wait for its addresses and it for theirs */
};

/** Orders moves so that each finds its addresses free, and says which pools must leave first. Returns indices. */
std::vector<size_t> order_pool_moves(std::vector<pool_move_t> &moves);

#endif
