/* Forwards notifications of the classifier manager to the server: the end of a batch and updates of a classifier, each
 * as a synchronous or an asynchronous command. The manager gets the outcome as the result of the call, or through
 * cgm_notification_async_return when the reply arrives. */
#include "client/log.h"
#include "commands/envelope.h"
#include "fwx_nat64/client.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"
#include "notify/notify.h"
#include "platform/runtime.h"

namespace {

constexpr char module_name[] = "FWX NAT64 EA";

uint32_t fwx_nat64_client_ctrl_cmd_send(uint32_t op, const void *data, uint32_t len) {
    if (fwx_nat64_client_info_get() == nullptr) {
        NAT64_LOG_ERROR("\n%s - EA not initialized yet", __func__);
        return FWX_NAT64_ERR_NOT_READY;
    }
    const size_t size = sizeof(fwx_nat64_ctrl_msg_t) + len;
    void *msg = nullptr;
    uint32_t rc = fwx_nat64_client_sync_cmd_init(size, FWX_NAT64_MSG_CONFIG, &msg);
    if (rc == 0) {
        auto *command = static_cast<fwx_nat64_ctrl_msg_t *>(msg);
        command->op_code = op;
        fwx_memcpy(command + 1, data, len);
        rc = fwx_nat64_client_sync_cmd_send(msg, size);
    }
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s - fwx_nat64_client_sync_cmd_send failed - %s", __func__, xerr_strerror(rc));
    }
    return rc;
}

uint32_t fwx_nat64_client_send_classifier_update(uint32_t batch_id, const void *data, uint32_t async, void *ctx) {
    NAT64_LOG_INFO("\nNAT_CLIENT: %s entered", __func__);
    if (data == nullptr) return FWX_NAT64_ERR_INVALID;
    fwx_nat64_classifier_update_t update;
    fwx_memcpy(update.data, data, sizeof(update.data));
    update.batch_id = batch_id;
    if (async == 0) {
        return fwx_nat64_client_ctrl_cmd_send(FWX_NAT64_CFG_CLASSIFIER_UPDATE, &update, sizeof(update));
    }
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_CLASSIFIER_UPDATE, &update, sizeof(update), ctx);
}

uint32_t end_batch(uint32_t batch_id, uint32_t async, void *ctx, const char *caller) {
    uint32_t rc = 0;
    if (async == 0) {
        rc = fwx_nat64_client_ctrl_cmd_send(FWX_NAT64_CFG_END_BATCH, &batch_id, sizeof(batch_id));
    } else {
        NAT64_LOG_INFO("\n%s - %s: CGM_OP_END_BATCH event implemented", module_name, caller);
        if (ctx == nullptr) return FWX_NAT64_ERR_CGM_INVALID;
        rc = fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_END_BATCH, &batch_id, sizeof(batch_id), ctx);
    }
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: failed to send END_BATCH to server , %s", caller, xerr_strerror(rc));
    }
    return rc;
}

uint32_t classifier_update(void **data, uint32_t batch_id, uint32_t async, void *ctx) {
    if (data == nullptr || (async != 0 && ctx == nullptr)) return FWX_NAT64_ERR_CGM_INVALID;
    const uint32_t rc =
        fwx_nat64_client_send_classifier_update(batch_id, data[0], async != 0 ? 1 : 0, async != 0 ? ctx : nullptr);
    return async != 0 ? rc : 0; /* the manager is not told of a failed synchronous update */
}

}  // namespace

uint32_t fwx_nat64_cgm_notification_handler(uint32_t op, void **data, uint32_t batch_id, uint32_t async,
                                            void * /*unused*/, void *ctx) {
    NAT64_LOG_INFO("\n%s - %s: op=%d batch_id=%d async=%d ctx=%p", module_name, __func__, op, batch_id, async, ctx);
    switch (op) {
        case FWX_NAT64_CGM_OP_END_BATCH:
            return end_batch(batch_id, async, ctx, __func__);
        case FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE:
            return classifier_update(data, batch_id, async, ctx);
        case FWX_NAT64_CGM_OP_IGNORED:
            return 0;
        default:
            return FWX_NAT64_ERR_CGM_INVALID;
    }
}
