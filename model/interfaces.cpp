#include "model/interfaces.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr uint8_t max_prefix_len = 128;

bool prefix_ok(uint32_t valid, const fwx_nat64_prefix_t &prefix) {
    return valid == 0 || prefix.prefix_len <= max_prefix_len;
}

bool kind_ok(uint32_t kind, bool of_kind2) {
    return of_kind2 ? kind == 2 : kind == 1 || kind == 3 || kind == 4;
}

}  // namespace

uint32_t interfaces_t::set(const fwx_nat64_intf_payload_t &payload) {
    const bool prefixes_ok = prefix_ok(payload.sless_prefix_valid, payload.sless_prefix) &&
                             prefix_ok(payload.sful_prefix_valid, payload.sful_prefix) &&
                             prefix_ok(payload.sless_prefix_v6v4_valid, payload.sless_prefix_v6v4);
    if (!prefixes_ok) return FWX_NAT64_MODEL_ERR_VALUE;
    interfaces.entries[payload.ifh] = payload;
    return 0;
}

uint32_t interfaces_t::nvi_enable(const fwx_nat64_intf_payload_t &payload) {
    fwx_nat64_intf_payload_t &interface = interfaces.entries[payload.ifh];
    interface.ifh = payload.ifh;
    interface.enable = payload.enable;
    interface.nvi = payload.nvi;
    return 0;
}

uint32_t interfaces_t::prefix_set(const fwx_nat64_glb_prefix_payload_t &payload, bool of_kind2) {
    const fwx_nat64_prefix_t &prefix = payload.prefix;
    if (payload.add > 1 || prefix.prefix_len > max_prefix_len || !kind_ok(prefix.kind, of_kind2)) {
        return FWX_NAT64_MODEL_ERR_VALUE;
    }
    std::array<uint8_t, 12> bytes{};
    std::copy(std::begin(prefix.prefix), std::end(prefix.prefix), bytes.begin());
    const auto key = std::make_tuple(bytes, prefix.prefix_len, prefix.kind);
    if (payload.add == 0) return prefixes.erase(key) != 0 ? 0 : FWX_NAT64_MODEL_ERR_NO_ENTRY;
    prefixes.insert(key);
    return 0;
}

uint32_t prefix_count(const fwx_nat64_intf_payload_t &interface) {
    const uint32_t valid_flags[] = {interface.sless_prefix_valid, interface.sful_prefix_valid,
                                    interface.sless_prefix_v6v4_valid};
    return static_cast<uint32_t>(
        std::count_if(std::begin(valid_flags), std::end(valid_flags), [](uint32_t valid) { return valid != 0; }));
}
