#include "model/mappings.h"

#include <algorithm>
#include <iterator>

namespace {

bool is_acceptable(const fwx_nat64_dmapping_payload_t &payload) {
    return payload.map.id != 0 && payload.map.type <= FWX_NAT64_DMAPPING_TYPE_MAX;
}

}  // namespace

uint32_t mappings_t::static_add(const fwx_nat64_smapping_t &mapping) {
    const uint32_t result = fixed.add(mapping.id, mapping);
    if (result == 0) sessions.open_static(mapping);
    return result;
}

uint32_t mappings_t::static_delete(const fwx_nat64_delete_payload_t &payload) {
    if (payload.one != 1) return FWX_NAT64_MODEL_ERR_VALUE;
    sessions.close_static(payload.id);
    return fixed.erase(payload.id);
}

uint32_t mappings_t::dynamic_add(const fwx_nat64_dmapping_payload_t &payload) {
    return is_acceptable(payload) ? dynamic.add(payload.map.id, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t mappings_t::dynamic_modify(const fwx_nat64_dmapping_payload_t &payload) {
    if (!is_acceptable(payload)) return FWX_NAT64_MODEL_ERR_VALUE;
    const auto present = dynamic.get(payload.map.id);
    if (!present) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
    fwx_nat64_dmapping_payload_t modified = *present;
    modified.map = payload.map;
    std::copy(std::begin(present->map.ext), std::end(present->map.ext), modified.map.ext);
    modified.map.ext_arg = present->map.ext_arg;
    return dynamic.set(payload.map.id, modified);
}

uint32_t mappings_t::dynamic_delete(const fwx_nat64_delete_payload_t &payload) {
    if (payload.one != 1) return FWX_NAT64_MODEL_ERR_VALUE;
    sessions.close_of_mapping(payload.id);
    return dynamic.erase(payload.id);
}
