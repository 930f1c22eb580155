/* Address pools and their ranges. */
#ifndef SERVER_POOLS_H
#define SERVER_POOLS_H

#include <set>
#include <tuple>

#include "server/address.h"
#include "server/table.h"

/** A range of addresses of a pool. Sorts by pool first. */
struct span_t {
    uint32_t pool_id;
    address_t first;
    address_t last;

    auto operator<=>(const span_t &other) const = default;
};

struct pools_t {
    table_t<uint32_t, fwx_nat64_pool_payload_t> pools; /* by identifier */
    table_t<span_t, fwx_nat64_pool_range_t> ranges;    /* added to pools; may overlap their own pool */

    /** Adds a pool, or modifies the one with this identifier, which keeps its ranges. */
    uint32_t set(const fwx_nat64_pool_payload_t &payload);
    /** Deletes a pool that has no ranges. */
    uint32_t remove(const fwx_nat64_delete_payload_t &payload);
    uint32_t range_add(const fwx_nat64_pool_range_t &range);
    uint32_t range_delete(const fwx_nat64_pool_range_del_payload_t &payload);
    /** A pool's statistics, with 0 sessions. Addresses in overlaps of the pool and its ranges count repeatedly. The
     * number of addresses is at most UINT64_MAX. */
    fwx_nat64_stats_pool_entry_t statistics(const fwx_nat64_pool_payload_t &pool) const;

private:
    struct by_address_t {
        bool operator()(const span_t &a, const span_t &b) const {
            return std::tie(a.first, a.last, a.pool_id) < std::tie(b.first, b.last, b.pool_id);
        }
    };
    std::multiset<span_t, by_address_t> spans; /* of all pools and ranges; only spans of the same pool overlap */

    bool overlaps_another_pool(const span_t &span) const;
    void release(const span_t &span) { spans.erase(spans.find(span)); }
    auto first_range(uint32_t pool_id) const { return ranges.entries.lower_bound({pool_id, {}, {}}); }
    bool is_range_of(std::map<span_t, fwx_nat64_pool_range_t>::const_iterator range, uint32_t pool_id) const {
        return range != ranges.entries.end() && range->first.pool_id == pool_id;
    }
};

#endif
