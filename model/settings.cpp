#include "model/settings.h"

#include <netinet/in.h>

namespace {

bool is_between_1_and(uint32_t last, uint32_t type) {
    return type >= 1 && type <= last;
}

}  // namespace

uint32_t settings_t::lifetime_s(uint32_t protocol) const {
    struct lifetime_t {
        uint32_t type;
        uint32_t default_s;
    };
    lifetime_t lifetime = {FWX_NAT64_TIMEOUT_UDP, 300};
    if (protocol == IPPROTO_TCP) lifetime = {FWX_NAT64_TIMEOUT_TCP_EST, 7440};
    if (protocol == IPPROTO_ICMP || protocol == IPPROTO_ICMPV6) lifetime = {FWX_NAT64_TIMEOUT_ICMP, 60};
    const auto set = timeouts.get(lifetime.type);
    return set && set->value != 0 ? set->value : lifetime.default_s;
}

uint32_t settings_t::timeout_set(const fwx_nat64_timeout_t &timeout) {
    const bool ok = is_between_1_and(FWX_NAT64_TIMEOUT_TYPE_MAX, timeout.type);
    return ok ? timeouts.set(timeout.type, timeout) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t settings_t::limit_set(const fwx_nat64_limit_t &limit) {
    return limit.type == FWX_NAT64_LIMIT_TYPE ? limits.set(limit.type, limit) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t settings_t::limit_delete(const fwx_nat64_limit_t &limit) {
    return limit.type == FWX_NAT64_LIMIT_TYPE ? limits.erase(limit.type) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t settings_t::service_set(const fwx_nat64_service_payload_t &payload) {
    const uint32_t type = payload.service.type;
    if (type != FWX_NAT64_SERVICE_TYPE || payload.add > 1) return FWX_NAT64_MODEL_ERR_VALUE;
    return payload.add == 0 ? services.erase(type) : services.set(type, payload);
}

uint32_t settings_t::adjacency_set(const fwx_nat64_adj_t &adjacency) {
    const bool ok = is_between_1_and(FWX_NAT64_ADJ_TYPE_MAX, adjacency.type);
    return ok ? adjacencies.set(adjacency.type, adjacency) : FWX_NAT64_MODEL_ERR_VALUE;
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

uint32_t settings_t::global_set(const fwx_nat64_global_settings_t &record) {
    global = record;
    return 0;
}
