#include "commands/envelope.h"
#include "fwx_nat64/config.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"

namespace {

/* If there is no second part, the first byte of its slot says so. Requires: a zeroed payload. */
uint32_t fill_dmapping(fwx_nat64_dmapping_payload_t *payload, const fwx_nat64_dmapping_t *map, const uint8_t *second) {
    if (map == nullptr) return FWX_NAT64_ERR_INVALID;
    payload->map = *map;
    if (second != nullptr) {
        fwx_memcpy(payload->second, second, sizeof(payload->second));
    } else {
        payload->second[0] = FWX_NAT64_DMAPPING_NO_SECOND_PART;
    }
    return 0;
}

}  // namespace

uint32_t fwx_nat64_smapping_set_a(uint32_t op, const fwx_nat64_smapping_t *map, void *pal_ctx) {
    if (map == nullptr) return FWX_NAT64_ERR_INVALID;
    if (op == FWX_NAT64_OP_DEL) return cfg_delete_send_a(FWX_NAT64_CFG_SMAPPING_DEL, map->id, pal_ctx);
    if (op != FWX_NAT64_OP_ADD) return FWX_NAT64_ERR_INVALID;
    fwx_nat64_smapping_t payload = *map;
    addr_to_wire(&payload.addr1);
    addr_to_wire(&payload.addr2);
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_SMAPPING_ADD, &payload, sizeof(payload), pal_ctx);
}

uint32_t fwx_nat64_dmapping_set_a(uint32_t op, const fwx_nat64_dmapping_t *map, void *pal_ctx) {
    if (map == nullptr || map->id == 0 || map->type > FWX_NAT64_DMAPPING_TYPE_MAX) return FWX_NAT64_ERR_INVALID;
    if (op == FWX_NAT64_OP_DEL) return cfg_delete_send_a(FWX_NAT64_CFG_DMAPPING_DEL, map->id, pal_ctx);
    if (op != FWX_NAT64_OP_ADD && op != FWX_NAT64_OP_MOD) return FWX_NAT64_ERR_INVALID;

    const bool add = op == FWX_NAT64_OP_ADD;
    fwx_nat64_dmapping_payload_t payload = {};
    const uint32_t rc = fill_dmapping(&payload, map, add ? map->ext : nullptr);
    if (rc != 0) return rc;
    payload.ext_arg = add ? map->ext_arg : 0;
    return fwx_nat64_client_cfg_cmd_send_a(add ? FWX_NAT64_CFG_DMAPPING_ADD : FWX_NAT64_CFG_DMAPPING_MOD, &payload,
                                           sizeof(payload), pal_ctx);
}
