/* Address intervals of pools, and the order in which pools can change them: no two pools may share an address. */
#ifndef CONFIG_POOLS_H
#define CONFIG_POOLS_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "config/document.h"

/** An interval of addresses, in host order, both ends included. */
struct pool_span_t {
    uint32_t first;
    uint32_t last;
    uint32_t pool_id;
};

/** The addresses of an item of the family `pool`, without its ranges, or of the family `range`. */
pool_span_t pool_span_of(const config_item_t &item);

/** A change of the addresses of a pool, or a new pool. */
struct pool_move_t {
    pool_span_t to;
    pool_span_t from; /* if `is_there` */
    bool is_there;    /* the pool exists already */
    bool must_leave;  /* the pool must be deleted before all moves, and added again */
};

/**
 * Sorts moves topologically, so that each finds its addresses free. Where pools wait for each other in a circle, sets
 * `must_leave` of one of them.
 * @return indices of `moves`.
 */
std::vector<size_t> order_pool_moves(std::vector<pool_move_t> &moves);

#endif
