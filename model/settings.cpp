#include "model/settings.h"

namespace {

constexpr uint32_t only_limit_type = 1;
constexpr uint32_t only_service_type = 1;
constexpr uint32_t last_timeout_type = 7;
constexpr uint32_t last_adjacency_type = 13;

bool is_between_1_and(uint32_t last, uint32_t type) {
    return type >= 1 && type <= last;
}

}  // namespace

uint32_t settings_t::timeout_set(const fwx_nat64_timeout_t &timeout) {
    if (!is_between_1_and(last_timeout_type, timeout.type)) return FWX_NAT64_MODEL_ERR_VALUE;
    timeouts.entries[timeout.type] = timeout.value;
    return 0;
}

uint32_t settings_t::limit_set(const fwx_nat64_limit_t &limit) {
    if (limit.type != only_limit_type) return FWX_NAT64_MODEL_ERR_VALUE;
    limits.entries[limit.type] = limit.value;
    return 0;
}

uint32_t settings_t::limit_delete(const fwx_nat64_limit_t &limit) {
    if (limit.type != only_limit_type) return FWX_NAT64_MODEL_ERR_VALUE;
    return limits.erase(limit.type);
}

uint32_t settings_t::service_set(const fwx_nat64_service_payload_t &payload) {
    if (payload.service.type != only_service_type || payload.add > 1) return FWX_NAT64_MODEL_ERR_VALUE;
    if (payload.add == 0) return services.erase(payload.service.type);
    services.entries[payload.service.type] = payload.service.value;
    return 0;
}

uint32_t settings_t::adjacency_set(const fwx_nat64_adj_t &adjacency) {
    if (!is_between_1_and(last_adjacency_type, adjacency.type)) return FWX_NAT64_MODEL_ERR_VALUE;
    adjacencies.entries[adjacency.type] = adjacency.address;
    return 0;
}

uint32_t settings_t::replication_set(const fwx_nat64_replication_t &record) {
    if (record.set == 0) return FWX_NAT64_MODEL_ERR_VALUE;
    replication = record;
    return 0;
}

uint32_t settings_t::replication_unset(const fwx_nat64_replication_t &record) {
    if (record.set != 0) return FWX_NAT64_MODEL_ERR_VALUE;
    replication.reset();
    return 0;
}
