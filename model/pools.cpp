#include "model/pools.h"

namespace {

range_key_t key_of(const fwx_nat64_pool_payload_t &pool) {
    return {pool.id, address_of_ipv4(pool.start_addr), address_of_ipv4(pool.end_addr)};
}

range_key_t key_of(const fwx_nat64_pool_range_t &range) {
    return {range.id, address_of(range.start_addr), address_of(range.end_addr)};
}

/* What comes before every range of a pool. */
range_key_t start_of(uint32_t pool_id) {
    return {pool_id, {}, {}};
}

bool is_in_order(const range_key_t &key) {
    const auto &[pool_id, first, last] = key;
    return first.is_ipv6 == last.is_ipv6 && !(last < first);
}

uint64_t address_count(const range_key_t &key) {
    return addresses_between(std::get<1>(key), std::get<2>(key));
}

uint64_t add_saturating(uint64_t a, uint64_t b) {
    return a > UINT64_MAX - b ? UINT64_MAX : a + b;
}

}  // namespace

uint32_t pools_t::set(const fwx_nat64_pool_payload_t &payload) {
    const bool ok = payload.id != 0 && payload.id2 == payload.id && payload.param != 0 && is_in_order(key_of(payload));
    return ok ? pools.set(payload.id, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t pools_t::remove(const fwx_nat64_delete_payload_t &payload) {
    if (payload.one != 1) return FWX_NAT64_MODEL_ERR_VALUE;
    auto range = ranges.entries.lower_bound(start_of(payload.id));
    while (range != ranges.entries.end() && range->second.id == payload.id) {
        range = ranges.entries.erase(range);
    }
    sessions.close_of_pool(payload.id);
    return pools.erase(payload.id);
}

uint32_t pools_t::range_add(const fwx_nat64_pool_range_t &range) {
    if (!pools.get(range.id)) return FWX_NAT64_MODEL_ERR_NO_POOL;
    return is_in_order(key_of(range)) ? ranges.add(key_of(range), range) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t pools_t::range_delete(const fwx_nat64_pool_range_del_payload_t &payload) {
    if (!pools.get(payload.range.id)) return FWX_NAT64_MODEL_ERR_NO_POOL;
    return payload.one == 1 ? ranges.erase(key_of(payload.range)) : FWX_NAT64_MODEL_ERR_VALUE;
}

fwx_nat64_stats_pool_entry_t pools_t::statistics(const fwx_nat64_pool_payload_t &pool) const {
    fwx_nat64_stats_pool_entry_t entry{pool.id, 0, address_count(key_of(pool)), sessions.count_of_pool(pool.id)};
    auto range = ranges.entries.lower_bound(start_of(pool.id));
    for (; range != ranges.entries.end() && range->second.id == pool.id; ++range) {
        ++entry.ranges;
        entry.addresses = add_saturating(entry.addresses, address_count(range->first));
    }
    return entry;
}
