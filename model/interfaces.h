/* Interfaces and global prefixes. */
#ifndef MODEL_INTERFACES_H
#define MODEL_INTERFACES_H

#include <array>
#include <set>
#include <tuple>

#include "fwx_nat64/wire.h"
#include "model/table.h"

struct interfaces_t {
    table_t<uint32_t, fwx_nat64_intf_payload_t> interfaces;                    /* by handle */
    std::set<std::tuple<std::array<uint8_t, 12>, uint8_t, uint32_t>> prefixes; /* prefix, length in bits, kind */

    uint32_t set(const fwx_nat64_intf_payload_t &payload);
    uint32_t nvi_enable(const fwx_nat64_intf_payload_t &payload);
    /** `of_kind2` says whether the op code is the one for kind 2. */
    uint32_t prefix_set(const fwx_nat64_glb_prefix_payload_t &payload, bool of_kind2);
};

/** Number of prefixes that came with an interface. */
uint32_t prefix_count(const fwx_nat64_intf_payload_t &interface);

#endif
