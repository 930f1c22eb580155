#include "model/interfaces.h"

#include <algorithm>
#include <iterator>

#include "records/embedding.h"

namespace {

bool length_ok(const fwx_nat64_prefix_t &prefix) {
    return is_embedding_length(prefix.prefix_len);
}

bool prefix_ok(uint32_t valid, const fwx_nat64_prefix_t &prefix) {
    return valid == 0 || length_ok(prefix);
}

uint32_t set_in(table_t<prefix_key_t, fwx_nat64_glb_prefix_payload_t> &prefixes,
                const fwx_nat64_glb_prefix_payload_t &payload) {
    const fwx_nat64_prefix_t &prefix = payload.prefix;
    prefix_key_t key{{}, prefix.prefix_len, prefix.kind};
    std::copy(std::begin(prefix.prefix), std::end(prefix.prefix), std::get<0>(key).begin());
    if (payload.add > 1) return FWX_NAT64_MODEL_ERR_VALUE;
    if (payload.add == 0) return prefixes.erase(key);
    return length_ok(prefix) ? prefixes.set(key, payload) : FWX_NAT64_MODEL_ERR_PREFIX_LEN;
}

}  // namespace

uint32_t interfaces_t::set(const fwx_nat64_intf_payload_t &payload) {
    const bool prefixes_ok = prefix_ok(payload.sless_prefix_valid, payload.sless_prefix) &&
                             prefix_ok(payload.sful_prefix_valid, payload.sful_prefix) &&
                             prefix_ok(payload.sless_prefix_v6v4_valid, payload.sless_prefix_v6v4);
    return prefixes_ok ? interfaces.set(payload.ifh, payload) : FWX_NAT64_MODEL_ERR_PREFIX_LEN;
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
