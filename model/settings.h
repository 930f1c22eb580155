/* Settings that have a value each: timeouts, limits, services, adjacencies, replication, global settings. */
#ifndef MODEL_SETTINGS_H
#define MODEL_SETTINGS_H

#include "fwx_nat64/wire.h"
#include "model/table.h"

struct settings_t {
    table_t<uint32_t, fwx_nat64_timeout_t> timeouts; /* these four by type */
    table_t<uint32_t, fwx_nat64_limit_t> limits;
    table_t<uint32_t, fwx_nat64_service_payload_t> services;
    table_t<uint32_t, fwx_nat64_adj_t> adjacencies; /* IPv4 in network order */
    std::optional<fwx_nat64_replication_t> replication;
    std::optional<fwx_nat64_global_settings_t> global;

    uint32_t timeout_set(const fwx_nat64_timeout_t &timeout);
    uint32_t limit_set(const fwx_nat64_limit_t &limit);
    uint32_t limit_delete(const fwx_nat64_limit_t &limit);
    uint32_t service_set(const fwx_nat64_service_payload_t &payload);
    uint32_t adjacency_set(const fwx_nat64_adj_t &adjacency);
    uint32_t replication_set(const fwx_nat64_replication_t &record);
    uint32_t replication_unset(const fwx_nat64_replication_t &record);
    uint32_t global_set(const fwx_nat64_global_settings_t &record);
};

#endif
