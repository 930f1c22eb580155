#include "client/log.h"
#include "commands/envelope.h"
#include "fwx_nat64/config.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"

namespace {

uint32_t fwx_nat64_pool_add_a(const fwx_nat64_pool_t *pool, void *pal_ctx) {
    if (pool->family != FWX_NAT64_FAMILY_IPV4 || pool->param == 0) return FWX_NAT64_ERR_INVALID;
    const uint32_t start = addr_ipv4_word(&pool->start_addr);
    const uint32_t end = addr_ipv4_word(&pool->end_addr);
    const fwx_nat64_pool_payload_t payload = {
        pool->id, pool->param, pool->hsl_id, pool->id, to_network_order(start), to_network_order(end)};
    const uint32_t rc = fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_POOL_ADD, &payload, sizeof(payload), pal_ctx);
    NAT64_LOG_INFO("\n%s pool add id(%d) hsl_id(%u) start_addr(%#x) end_addr(%#x)", __func__, pool->id, pool->hsl_id,
                   start, end);
    return rc;
}

}  // namespace

uint32_t fwx_nat64_pool_set_a(uint32_t op, const fwx_nat64_pool_t *pool, void *pal_ctx) {
    if (pool == nullptr || pool->id == 0) return FWX_NAT64_ERR_INVALID;
    if (op == FWX_NAT64_OP_DEL) return cfg_delete_send_a(FWX_NAT64_CFG_POOL_DEL, pool->id, pal_ctx);
    if (op != FWX_NAT64_OP_ADD && op != FWX_NAT64_OP_MOD) return FWX_NAT64_ERR_INVALID;
    return fwx_nat64_pool_add_a(pool, pal_ctx);
}

uint32_t fwx_nat64_pool_range_set_a(uint32_t op, const fwx_nat64_pool_range_t *range, void *pal_ctx) {
    if (range == nullptr || range->id == 0) return FWX_NAT64_ERR_INVALID;
    if (op != FWX_NAT64_OP_ADD && op != FWX_NAT64_OP_DEL) return FWX_NAT64_ERR_INVALID;

    fwx_nat64_pool_range_del_payload_t payload = {*range, 1}; /* an add sends only the range */
    addr_to_wire(&payload.range.start_addr);
    addr_to_wire(&payload.range.end_addr);
    if (op == FWX_NAT64_OP_DEL) {
        return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_POOL_RANGE_DEL, &payload, sizeof(payload), pal_ctx);
    }
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_POOL_RANGE_ADD, &payload.range, sizeof(payload.range),
                                           pal_ctx);
}
