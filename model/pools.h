/* Address pools and their ranges. */
#ifndef MODEL_POOLS_H
#define MODEL_POOLS_H

#include <tuple>

#include "model/address.h"
#include "model/sessions.h"
#include "model/table.h"

using range_key_t = std::tuple<uint32_t, address_t, address_t>; /* pool, first and last address */

struct pools_t {
    explicit pools_t(sessions_t &table) : sessions(table) {}

    table_t<uint32_t, fwx_nat64_pool_payload_t> pools;   /* by identifier */
    table_t<range_key_t, fwx_nat64_pool_range_t> ranges; /* added to their pool's own; they may overlap */
    sessions_t &sessions;                                /* end with their pool */

    /** Adds a pool, or modifies the one with this identifier, which keeps its ranges. */
    uint32_t set(const fwx_nat64_pool_payload_t &payload);
    /** Deletes a pool with its ranges. */
    uint32_t remove(const fwx_nat64_delete_payload_t &payload);
    uint32_t range_add(const fwx_nat64_pool_range_t &range);
    uint32_t range_delete(const fwx_nat64_pool_range_del_payload_t &payload);
    /** Overlaps of a pool and its ranges are counted each time; UINT64_MAX addresses when they are more. */
    fwx_nat64_stats_pool_entry_t statistics(const fwx_nat64_pool_payload_t &pool) const;
};

#endif
