#include "model/interfaces.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr uint8_t max_prefix_len = 128;

bool prefix_ok(uint32_t valid, const fwx_nat64_prefix_t &prefix) {
    return valid == 0 || prefix.prefix_len <= max_prefix_len;
}

uint32_t set_in(table_t<prefix_key_t, fwx_nat64_glb_prefix_payload_t> &prefixes,
                const fwx_nat64_glb_prefix_payload_t &payload) {
    const fwx_nat64_prefix_t &prefix = payload.prefix;
    if (payload.add > 1 || prefix.prefix_len > max_prefix_len) return FWX_NAT64_MODEL_ERR_VALUE;
    prefix_key_t key{{}, prefix.prefix_len, prefix.kind};
    std::copy(std::begin(prefix.prefix), std::end(prefix.prefix), std::get<0>(key).begin());
    return payload.add == 0 ? prefixes.erase(key) : prefixes.set(key, payload);
}

}  // namespace

uint32_t interfaces_t::set(const fwx_nat64_intf_payload_t &payload) {
    const bool prefixes_ok = prefix_ok(payload.sless_prefix_valid, payload.sless_prefix) &&
                             prefix_ok(payload.sful_prefix_valid, payload.sful_prefix) &&
                             prefix_ok(payload.sless_prefix_v6v4_valid, payload.sless_prefix_v6v4);
    if (!prefixes_ok) return FWX_NAT64_MODEL_ERR_VALUE;
    return interfaces.set(payload.ifh, payload);
}

uint32_t interfaces_t::nvi_enable(const fwx_nat64_intf_payload_t &payload) {
    fwx_nat64_intf_payload_t &interface = interfaces.entries[payload.ifh];
    interface.ifh = payload.ifh;
    interface.enable = payload.enable;
    interface.nvi = payload.nvi;
    return 0;
}

uint32_t interfaces_t::prefix_set(const fwx_nat64_glb_prefix_payload_t &payload) {
    const uint32_t kind = payload.prefix.kind;
    const bool ok = kind >= 1 && kind <= FWX_NAT64_PREFIX_KIND_MAX && kind != FWX_NAT64_PREFIX_KIND2;
    return ok ? set_in(prefixes, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t interfaces_t::prefix_kind2_set(const fwx_nat64_glb_prefix_payload_t &payload) {
    const bool ok = payload.prefix.kind == FWX_NAT64_PREFIX_KIND2;
    return ok ? set_in(prefixes_kind2, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t prefix_count(const fwx_nat64_intf_payload_t &interface) {
    const uint32_t valid_flags[] = {interface.sless_prefix_valid, interface.sful_prefix_valid,
                                    interface.sless_prefix_v6v4_valid};
    return static_cast<uint32_t>(
        std::count_if(std::begin(valid_flags), std::end(valid_flags), [](uint32_t valid) { return valid != 0; }));
}
