/* Static and dynamic mappings; their identifiers are apart. */
#ifndef MODEL_MAPPINGS_H
#define MODEL_MAPPINGS_H

#include "fwx_nat64/wire.h"
#include "model/command.h"
#include "model/sessions.h"
#include "model/table.h"

struct mappings_t {
    explicit mappings_t(sessions_t &table) : sessions(table) {}

    sessions_t &sessions;                          /* end with their mapping */
    table_t<uint32_t, fwx_nat64_smapping_t> fixed; /* IPv4 addresses in network order */
    table_t<uint32_t, fwx_nat64_dmapping_payload_t> dynamic;

    uint32_t static_add(const fwx_nat64_smapping_t &mapping);
    uint32_t static_delete(const fwx_nat64_delete_payload_t &payload);
    uint32_t dynamic_add(const fwx_nat64_dmapping_payload_t &payload);
    /** The second part and its argument stay: a modify carries none. */
    uint32_t dynamic_modify(const fwx_nat64_dmapping_payload_t &payload);
    uint32_t dynamic_delete(const fwx_nat64_delete_payload_t &payload);
};

constexpr config_command_t mappings_commands[] = {
    kept<&mappings_t::static_add, &mappings_t::fixed>(FWX_NAT64_CFG_SMAPPING_ADD),
    kept_as<&mappings_t::static_delete>(FWX_NAT64_CFG_SMAPPING_DEL, FWX_NAT64_CFG_SMAPPING_ADD),
    kept<&mappings_t::dynamic_add, &mappings_t::dynamic>(FWX_NAT64_CFG_DMAPPING_ADD),
    kept_as<&mappings_t::dynamic_modify>(FWX_NAT64_CFG_DMAPPING_MOD, FWX_NAT64_CFG_DMAPPING_ADD),
    kept_as<&mappings_t::dynamic_delete>(FWX_NAT64_CFG_DMAPPING_DEL, FWX_NAT64_CFG_DMAPPING_ADD),
};

#endif
