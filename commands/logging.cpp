#include "commands/envelope.h"
#include "fwx_nat64/config.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"

namespace {

bool acceptable(const fwx_nat64_logging_t *log) {
    return log != nullptr && log->type == FWX_NAT64_LOGGING_TYPE && log->mode == FWX_NAT64_LOGGING_MODE &&
           log->dest.family == FWX_NAT64_FAMILY_IPV4 && addr_ipv4_word(&log->dest) != 0 && log->dest_port != 0;
}

}  // namespace

uint32_t fwx_nat64_logging_set_a(uint32_t op, const fwx_nat64_logging_t *log, void *pal_ctx) {
    static constexpr uint32_t op_codes[] = {FWX_NAT64_CFG_LOGGING_ADD, FWX_NAT64_CFG_LOGGING_MOD,
                                            FWX_NAT64_CFG_LOGGING_DEL};
    if (!acceptable(log) || op < FWX_NAT64_OP_ADD || op > FWX_NAT64_OP_DEL) return FWX_NAT64_ERR_INVALID;

    fwx_nat64_logging_payload_t payload = {};
    payload.dest = to_network_order(addr_ipv4_word(&log->dest));
    payload.dest_port = log->dest_port;
    payload.param2 = log->param2;
    payload.mode = log->mode;
    payload.param = log->param;
    return fwx_nat64_client_cfg_cmd_send_a(op_codes[op - FWX_NAT64_OP_ADD], &payload, sizeof(payload), pal_ctx);
}
