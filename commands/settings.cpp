#include "commands/envelope.h"
#include "fwx_nat64/config.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"

uint32_t fwx_nat64_global_settings_set_a(const fwx_nat64_global_settings_t *settings, void *pal_ctx) {
    if (settings == nullptr) return FWX_NAT64_ERR_INVALID;
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_GLOBAL_SETTINGS, settings, sizeof(*settings), pal_ctx);
}

uint32_t fwx_nat64_adj_set_a(uint32_t /*op*/, const fwx_nat64_adj_t *adj, void *pal_ctx) {
    if (adj == nullptr || adj->type == 0 || adj->type > FWX_NAT64_ADJ_TYPE_MAX) return FWX_NAT64_ERR_INVALID;
    fwx_nat64_adj_t payload = *adj;
    addr_to_wire(&payload.address);
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_ADJ_SET, &payload, sizeof(payload), pal_ctx);
}

uint32_t fwx_nat64_limit_set_a(uint32_t op, const fwx_nat64_limit_t *limit, void *pal_ctx) {
    if (limit == nullptr || limit->type != FWX_NAT64_LIMIT_TYPE) return FWX_NAT64_ERR_INVALID;
    if (op < FWX_NAT64_OP_ADD || op > FWX_NAT64_OP_DEL) return FWX_NAT64_ERR_INVALID;
    const uint32_t op_code = op == FWX_NAT64_OP_DEL ? FWX_NAT64_CFG_LIMIT_DEL : FWX_NAT64_CFG_LIMIT_SET;
    return fwx_nat64_client_cfg_cmd_send_a(op_code, limit, sizeof(*limit), pal_ctx);
}

uint32_t fwx_nat64_service_set_a(uint32_t op, const fwx_nat64_service_t *service, void *pal_ctx) {
    if (service == nullptr || service->type != FWX_NAT64_SERVICE_TYPE) return FWX_NAT64_ERR_INVALID;
    if (op != FWX_NAT64_OP_ADD && op != FWX_NAT64_OP_DEL) return FWX_NAT64_ERR_INVALID;
    const fwx_nat64_service_payload_t payload = {op == FWX_NAT64_OP_ADD ? 1U : 0U, *service};
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_SERVICE_SET, &payload, sizeof(payload), pal_ctx);
}

uint32_t fwx_nat64_replication_set_a(uint32_t /*op*/, const fwx_nat64_replication_t *repl, void *pal_ctx) {
    if (repl == nullptr) return FWX_NAT64_ERR_INVALID;
    const uint32_t op_code = repl->set != 0 ? FWX_NAT64_CFG_REPLICATION_SET : FWX_NAT64_CFG_REPLICATION_UNSET;
    return fwx_nat64_client_cfg_cmd_send_a(op_code, repl, sizeof(*repl), pal_ctx);
}

uint32_t fwx_nat64_timeout_set_a(uint32_t /*op*/, const fwx_nat64_timeout_t *timeout, void *pal_ctx) {
    if (timeout == nullptr || timeout->type == 0 || timeout->type > FWX_NAT64_TIMEOUT_TYPE_MAX)
        return FWX_NAT64_ERR_INVALID;
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_TIMEOUT_SET, timeout, sizeof(*timeout), pal_ctx);
}

uint32_t fwx_nat64_ipalias_upload_a(void *pal_ctx) {
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_IPALIAS_UPLOAD, nullptr, 0, pal_ctx);
}

uint32_t fwx_nat64_session_clear_a(const fwx_nat64_session_filter_t *filter, void *pal_ctx) {
    if (filter == nullptr) return FWX_NAT64_ERR_INVALID;
    fwx_nat64_session_filter_t payload = *filter;
    addr_to_wire(&payload.src);
    addr_to_wire(&payload.dst);
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_SESSION_CLEAR, &payload, sizeof(payload), pal_ctx);
}
