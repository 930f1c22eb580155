/* Settings that have a value each: timeouts, limits, services, adjacencies, replication, global settings. */
#ifndef MODEL_SETTINGS_H
#define MODEL_SETTINGS_H

#include "fwx_nat64/wire.h"
#include "model/command.h"
#include "model/table.h"

struct settings_t {
    table_t<uint32_t, fwx_nat64_timeout_t> timeouts; /* these four by type; one of 0 has its default */
    table_t<uint32_t, fwx_nat64_limit_t> limits;
    table_t<uint32_t, fwx_nat64_service_payload_t> services;
    table_t<uint32_t, fwx_nat64_adj_t> adjacencies; /* IPv4 in network order */
    std::optional<fwx_nat64_replication_t> replication;
    std::optional<fwx_nat64_global_settings_t> global;

    /** How long a session of that IP protocol lives without traffic; TCP when it is established. */
    uint32_t lifetime_s(uint32_t protocol) const;

    uint32_t timeout_set(const fwx_nat64_timeout_t &timeout);
    uint32_t limit_set(const fwx_nat64_limit_t &limit);
    uint32_t limit_delete(const fwx_nat64_limit_t &limit);
    uint32_t service_set(const fwx_nat64_service_payload_t &payload);
    uint32_t adjacency_set(const fwx_nat64_adj_t &adjacency);
    uint32_t replication_set(const fwx_nat64_replication_t &record);
    uint32_t replication_unset(const fwx_nat64_replication_t &record);
    uint32_t global_set(const fwx_nat64_global_settings_t &record);
};

constexpr config_command_t settings_commands[] = {
    kept<&settings_t::timeout_set, &settings_t::timeouts>(FWX_NAT64_CFG_TIMEOUT_SET),
    kept<&settings_t::limit_set, &settings_t::limits>(FWX_NAT64_CFG_LIMIT_SET),
    kept_as<&settings_t::limit_delete>(FWX_NAT64_CFG_LIMIT_DEL, FWX_NAT64_CFG_LIMIT_SET),
    kept<&settings_t::service_set, &settings_t::services>(FWX_NAT64_CFG_SERVICE_SET),
    kept<&settings_t::adjacency_set, &settings_t::adjacencies>(FWX_NAT64_CFG_ADJ_SET),
    kept<&settings_t::replication_set, &settings_t::replication>(FWX_NAT64_CFG_REPLICATION_SET),
    kept_as<&settings_t::replication_unset>(FWX_NAT64_CFG_REPLICATION_UNSET, FWX_NAT64_CFG_REPLICATION_SET),
    kept<&settings_t::global_set, &settings_t::global>(FWX_NAT64_CFG_GLOBAL_SETTINGS),
    not_kept(FWX_NAT64_CFG_IPALIAS_UPLOAD), /* goes to the routing side, which the model has none of */
};

#endif
