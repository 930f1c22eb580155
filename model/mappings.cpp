#include "model/mappings.h"

namespace {

constexpr uint32_t dynamic_types = 8;

bool is_acceptable(const fwx_nat64_dmapping_payload_t &payload) {
    return payload.map.id != 0 && payload.map.type < dynamic_types;
}

}  // namespace

uint32_t mappings_t::static_add(const fwx_nat64_smapping_t &mapping) {
    return fixed.add(mapping.id, mapping);
}

uint32_t mappings_t::static_delete(const fwx_nat64_delete_payload_t &payload) {
    return payload.one == 1 ? fixed.erase(payload.id) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t mappings_t::dynamic_add(const fwx_nat64_dmapping_payload_t &payload) {
    return is_acceptable(payload) ? dynamic.add(payload.map.id, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t mappings_t::dynamic_modify(const fwx_nat64_dmapping_payload_t &payload) {
    return is_acceptable(payload) ? dynamic.modify(payload.map.id, payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t mappings_t::dynamic_delete(const fwx_nat64_delete_payload_t &payload) {
    return payload.one == 1 ? dynamic.erase(payload.id) : FWX_NAT64_MODEL_ERR_VALUE;
}
