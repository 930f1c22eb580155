/* Interfaces and global prefixes. */
#ifndef MODEL_INTERFACES_H
#define MODEL_INTERFACES_H

#include <array>
#include <tuple>

#include "fwx_nat64/wire.h"
#include "model/command.h"
#include "model/table.h"

using prefix_key_t = std::tuple<std::array<uint8_t, sizeof(fwx_nat64_prefix_t::prefix)>, uint8_t, uint32_t>;

struct interfaces_t {
    table_t<uint32_t, fwx_nat64_intf_payload_t> interfaces;         /* by handle */
    table_t<prefix_key_t, fwx_nat64_glb_prefix_payload_t> prefixes; /* by prefix, length in bits and kind */
    table_t<prefix_key_t, fwx_nat64_glb_prefix_payload_t> prefixes_kind2;

    uint32_t set(const fwx_nat64_intf_payload_t &payload);
    uint32_t nvi_enable(const fwx_nat64_intf_payload_t &payload);
    uint32_t prefix_set(const fwx_nat64_glb_prefix_payload_t &payload);
    uint32_t prefix_kind2_set(const fwx_nat64_glb_prefix_payload_t &payload);
};

/** Number of prefixes that came with an interface. */
uint32_t prefix_count(const fwx_nat64_intf_payload_t &interface);

constexpr config_command_t interfaces_commands[] = {
    kept<&interfaces_t::set, &interfaces_t::interfaces>(FWX_NAT64_CFG_INTF_SET),
    kept_as<&interfaces_t::nvi_enable>(FWX_NAT64_CFG_NVI_INTF_ENABLE, FWX_NAT64_CFG_INTF_SET),
    kept<&interfaces_t::prefix_set, &interfaces_t::prefixes>(FWX_NAT64_CFG_GLB_PREFIX),
    kept<&interfaces_t::prefix_kind2_set, &interfaces_t::prefixes_kind2>(FWX_NAT64_CFG_GLB_PREFIX_KIND2),
};

#endif
