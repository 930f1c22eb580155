/*
 * Pools and ranges, kept in two orders: by pool, and by address. Spans of different pools never overlap, so a check for
 * overlap only examines the neighbours of a span in the order of addresses.
 */
#include "server/pools.h"

#include <iterator>

namespace {

address_t address_of_ipv4(uint32_t network_order) {
    address_t address{};
    std::memcpy(address.bytes.data(), &network_order, sizeof(network_order));
    return address;
}

span_t span_of(const fwx_nat64_pool_payload_t &pool) {
    return {pool.id, address_of_ipv4(pool.start_addr), address_of_ipv4(pool.end_addr)};
}

span_t span_of(const fwx_nat64_pool_range_t &range) {
    return {range.id, address_of(range.start_addr), address_of(range.end_addr)};
}

bool is_in_order(const span_t &span) {
    return span.first.is_ipv6 == span.last.is_ipv6 && !(span.last < span.first);
}

uint64_t big_endian(const uint8_t *at, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value = value << 8 | at[i];
    }
    return value;
}

/* Number of addresses in a span, at most UINT64_MAX. */
uint64_t address_count(const span_t &span) {
    /* The IPv4 bytes are the upper half of the first word. */
    const uint64_t high = big_endian(span.last.bytes.data(), 8) - big_endian(span.first.bytes.data(), 8);
    if (!span.first.is_ipv6) return (high >> 32) + 1;
    const uint64_t first_low = big_endian(span.first.bytes.data() + 8, 8);
    const uint64_t last_low = big_endian(span.last.bytes.data() + 8, 8);
    const uint64_t difference = last_low - first_low;
    const bool fits = high == (last_low < first_low ? 1U : 0U) && difference != UINT64_MAX;
    return fits ? difference + 1 : UINT64_MAX;
}

/** Does the second of two steps, and undoes the first if that throws std::bad_alloc. */
template <typename step_t, typename undo_t>
void undo_if_thrown(step_t step, undo_t undo_first) {
    try {
        step();
    } catch (...) {
        undo_first();
        throw;
    }
}

uint64_t add_saturating(uint64_t a, uint64_t b) {
    return a > UINT64_MAX - b ? UINT64_MAX : a + b;
}

}  // namespace

uint32_t pools_t::set(const fwx_nat64_pool_payload_t &payload) {
    const span_t span = span_of(payload);
    const bool ok = payload.id != 0 && payload.id2 == payload.id && payload.param != 0 && is_in_order(span);
    if (!ok) return FWX_NAT64_MODEL_ERR_VALUE;
    if (overlaps_another_pool(span)) return FWX_NAT64_MODEL_ERR_OVERLAP;
    const auto present = pools.get(payload.id);
    const auto place = spans.insert(span);
    undo_if_thrown([&] { pools.set(payload.id, payload); }, [&] { spans.erase(place); });
    if (present) release(span_of(*present));
    return 0;
}

uint32_t pools_t::remove(const fwx_nat64_delete_payload_t &payload) {
    if (payload.one != 1) return FWX_NAT64_MODEL_ERR_VALUE;
    const auto present = pools.get(payload.id);
    if (!present) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
    if (is_range_of(first_range(payload.id), payload.id)) return FWX_NAT64_MODEL_ERR_HAS_RANGES;
    release(span_of(*present));
    return pools.erase(payload.id);
}

uint32_t pools_t::range_add(const fwx_nat64_pool_range_t &range) {
    const span_t span = span_of(range);
    if (!pools.get(range.id)) return FWX_NAT64_MODEL_ERR_NO_POOL;
    if (!is_in_order(span)) return FWX_NAT64_MODEL_ERR_VALUE;
    if (overlaps_another_pool(span)) return FWX_NAT64_MODEL_ERR_OVERLAP;
    const uint32_t result = ranges.add(span, range);
    if (result == 0) undo_if_thrown([&] { spans.insert(span); }, [&] { ranges.erase(span); });
    return result;
}

uint32_t pools_t::range_delete(const fwx_nat64_pool_range_del_payload_t &payload) {
    const span_t span = span_of(payload.range);
    if (!pools.get(span.pool_id)) return FWX_NAT64_MODEL_ERR_NO_POOL;
    if (payload.one != 1) return FWX_NAT64_MODEL_ERR_VALUE;
    const uint32_t result = ranges.erase(span);
    if (result == 0) release(span);
    return result;
}

fwx_nat64_stats_pool_entry_t pools_t::statistics(const fwx_nat64_pool_payload_t &pool) const {
    fwx_nat64_stats_pool_entry_t entry{pool.id, 0, address_count(span_of(pool)), 0};
    for (auto range = first_range(pool.id); is_range_of(range, pool.id); ++range) {
        ++entry.ranges;
        entry.addresses = add_saturating(entry.addresses, address_count(range->first));
    }
    return entry;
}

bool pools_t::overlaps_another_pool(const span_t &span) const {
    const auto start = spans.lower_bound({0, span.first, {}});
    for (auto within = start; within != spans.end() && !(span.last < within->first); ++within) {
        if (within->pool_id != span.pool_id) return true;
    }
    /* A span that begins before this one and reaches into it belongs to the pool of the last span that begins before,
     * because spans of other pools cannot lie between the two. */
    auto before = std::make_reverse_iterator(start);
    const uint32_t neighbour = before == spans.rend() ? span.pool_id : before->pool_id;
    for (; neighbour != span.pool_id && before != spans.rend() && before->pool_id == neighbour; ++before) {
        if (!(before->last < span.first)) return true;
    }
    return false;
}
