#include "model/pools.h"

namespace {

bool is_in_order(const address_range_t &range) {
    return range.first.is_ipv6 == range.second.is_ipv6 && !(range.second < range.first);
}

address_range_t range_of(const fwx_nat64_pool_range_t &record) {
    return {address_of(record.start_addr), address_of(record.end_addr)};
}

uint64_t add_saturating(uint64_t a, uint64_t b) {
    return a > UINT64_MAX - b ? UINT64_MAX : a + b;
}

}  // namespace

uint32_t pools_t::set(const fwx_nat64_pool_payload_t &payload) {
    const address_range_t own{address_of_ipv4(payload.start_addr), address_of_ipv4(payload.end_addr)};
    const bool ok = payload.id != 0 && payload.id2 == payload.id && payload.param != 0 && is_in_order(own);
    if (!ok) return FWX_NAT64_MODEL_ERR_VALUE;
    pools.entries[payload.id].own = own;
    return 0;
}

uint32_t pools_t::remove(const fwx_nat64_delete_payload_t &payload) {
    return payload.one == 1 ? pools.erase(payload.id) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t pools_t::range_add(const fwx_nat64_pool_range_t &range) {
    const auto pool = pools.entries.find(range.id);
    if (pool == pools.entries.end()) return FWX_NAT64_MODEL_ERR_NO_POOL;
    if (!is_in_order(range_of(range))) return FWX_NAT64_MODEL_ERR_VALUE;
    return pool->second.ranges.insert(range_of(range)).second ? 0 : FWX_NAT64_MODEL_ERR_EXISTS;
}

uint32_t pools_t::range_delete(const fwx_nat64_pool_range_del_payload_t &payload) {
    const auto pool = pools.entries.find(payload.range.id);
    if (pool == pools.entries.end()) return FWX_NAT64_MODEL_ERR_NO_POOL;
    if (payload.one != 1) return FWX_NAT64_MODEL_ERR_VALUE;
    return pool->second.ranges.erase(range_of(payload.range)) != 0 ? 0 : FWX_NAT64_MODEL_ERR_NO_ENTRY;
}

uint64_t pools_t::range_count() const {
    uint64_t count = 0;
    for (const auto &[id, pool] : pools.entries) {
        count += pool.ranges.size();
    }
    return count;
}

uint64_t address_count(const pool_t &pool) {
    uint64_t count = addresses_between(pool.own.first, pool.own.second);
    for (const address_range_t &range : pool.ranges) {
        count = add_saturating(count, addresses_between(range.first, range.second));
    }
    return count;
}
