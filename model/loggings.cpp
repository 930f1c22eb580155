#include "model/loggings.h"

namespace {

bool is_acceptable(const fwx_nat64_logging_payload_t &payload) {
    return payload.dest != 0 && payload.dest_port != 0 && payload.mode == FWX_NAT64_LOGGING_MODE;
}

std::pair<uint32_t, uint16_t> key_of(const fwx_nat64_logging_payload_t &payload) {
    return {payload.dest, payload.dest_port};
}

}  // namespace

uint32_t loggings_t::add(const fwx_nat64_logging_payload_t &payload) {
    return is_acceptable(payload) ? loggings.add(key_of(payload), payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t loggings_t::modify(const fwx_nat64_logging_payload_t &payload) {
    return is_acceptable(payload) ? loggings.modify(key_of(payload), payload) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t loggings_t::remove(const fwx_nat64_logging_payload_t &payload) {
    return is_acceptable(payload) ? loggings.erase(key_of(payload)) : FWX_NAT64_MODEL_ERR_VALUE;
}
