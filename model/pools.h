/* Address pools and their ranges. */
#ifndef MODEL_POOLS_H
#define MODEL_POOLS_H

#include <set>
#include <utility>

#include "model/address.h"
#include "model/table.h"

using address_range_t = std::pair<address_t, address_t>; /* first and last address */

struct pool_t {
    address_range_t own;
    std::set<address_range_t> ranges; /* added to its own; they may overlap */
};

struct pools_t {
    table_t<uint32_t, pool_t> pools; /* by identifier */

    /** Adds a pool, or modifies the one with this identifier, which keeps its ranges. */
    uint32_t set(const fwx_nat64_pool_payload_t &payload);
    /** Deletes a pool with its ranges. */
    uint32_t remove(const fwx_nat64_delete_payload_t &payload);
    uint32_t range_add(const fwx_nat64_pool_range_t &range);
    uint32_t range_delete(const fwx_nat64_pool_range_del_payload_t &payload);
    uint64_t range_count() const;
};

/** Addresses of a pool and its ranges, overlaps counted each time; UINT64_MAX when they are more. */
uint64_t address_count(const pool_t &pool);

#endif
