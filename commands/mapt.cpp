/* MAP-T rule commands. A basic rule changes the library's rule table and goes to the server; a default rule goes to the
 * server only. */
#include "fwx_nat64/mapt.h"

#include <cerrno>

#include "client/client.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "transport/context.h"

namespace {

/* The server reads the prefixes as numbers in its own (little-endian) byte order. */
void copy_reversed(uint8_t *dst, const uint8_t *src, size_t size) {
    for (size_t i = 0; i < size; ++i)
        dst[i] = src[size - 1 - i];
}

void fill_bmr(fwx_nat64_bmr_msg_t *msg, uint32_t op, const fwx_nat64_mapt_bmr_t *bmr) {
    msg->rule_type = FWX_NAT64_MAPT_RULE_BMR;
    msg->op = op;
    msg->rule_id = bmr->rule_id;
    msg->domain_id = bmr->domain_id;
    copy_reversed(msg->v6_prefix, bmr->v6_prefix, sizeof(msg->v6_prefix));
    msg->v6_prefix_len = bmr->v6_prefix_len;
    copy_reversed(msg->v4_prefix, bmr->v4_prefix, sizeof(msg->v4_prefix));
    msg->v4_prefix_len = bmr->v4_prefix_len;
    fwx_memcpy(msg->rule_params, bmr->rule_params, sizeof(msg->rule_params));
}

uint32_t change_rule_table(uint32_t op, const fwx_nat64_mapt_bmr_t *bmr) {
    switch (op) {
        case FWX_NAT64_OP_ADD:
            return fwx_mapt_plu_add_pending_rule(bmr);
        case FWX_NAT64_OP_DEL:
            return fwx_mapt_plu_del_rule(bmr);
        default:
            return EINVAL;
    }
}

uint32_t frame_rule(size_t size, void *pal_ctx, void **msg) {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return FWX_NAT64_ERR_NOT_READY;
    return fwx_nat64_client_async_cmd_init(size, FWX_NAT64_MSG_MAPT_RULE, pal_ctx,
                                           reinterpret_cast<void *>(info->reply_cb.cfg_reply_cb), msg);
}

}  // namespace

/* The table changes only after the message was framed, and the message is sent only after the table accepted the
 * change. So a command that cannot be framed changes nothing, and a rule that the table refuses is not sent. */
uint32_t fwx_nat64_mapt_bmr_set_a(uint32_t op, const fwx_nat64_mapt_bmr_t *bmr, void *pal_ctx) {
    if (bmr == nullptr || bmr->rule_id == 0) return FWX_NAT64_ERR_INVALID;
    void *msg = nullptr;
    uint32_t rc = frame_rule(sizeof(fwx_nat64_bmr_msg_t), pal_ctx, &msg);
    if (rc != 0) return rc;
    fill_bmr(static_cast<fwx_nat64_bmr_msg_t *>(msg), op, bmr);
    rc = change_rule_table(op, bmr);
    if (rc != 0) {
        fwx_nat64_client_async_cmd_abandon(fwx_nat64_client_info_get(), msg);
        return rc;
    }
    return fwx_nat64_client_async_cmd_send(msg, sizeof(fwx_nat64_bmr_msg_t));
}

uint32_t fwx_nat64_mapt_dmr_set_a(uint32_t op, const fwx_nat64_mapt_dmr_t *dmr, void *pal_ctx) {
    if (dmr == nullptr || dmr->id == 0) return FWX_NAT64_ERR_INVALID;
    void *msg = nullptr;
    const uint32_t rc = frame_rule(FWX_NAT64_DMR_MSG_SIZE, pal_ctx, &msg);
    if (rc != 0) return rc;
    auto *rule = static_cast<fwx_nat64_dmr_msg_t *>(msg);
    rule->rule_type = FWX_NAT64_MAPT_RULE_DMR;
    rule->op = op;
    fwx_memcpy(&rule->dmr, dmr, sizeof(rule->dmr));
    return fwx_nat64_client_async_cmd_send(msg, FWX_NAT64_DMR_MSG_SIZE);
}
