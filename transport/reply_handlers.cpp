/* Handlers of replies that carry only a result: to commands, and to classifier commands. */
#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "platform/cgm.h"
#include "platform/runtime.h"
#include "transport/handler_table.h"
#include "transport/reply_admission.h"

void fwx_nat64_async_rc_svr(void * /*arg1*/, void * /*arg2*/, void *msg, size_t size) {
    fwx_nat64_client_info_t *info = reply_admit(msg, size, __func__);
    if (info == nullptr) return;

    const auto *reply = static_cast<const fwx_nat64_reply_t *>(msg);
    fwx_nat64_clnt_ctx_t *ctx = clnt_ctx_named_by(&reply->hdr);
    if (ctx == nullptr) return;
    if (!clnt_ctx_is_ours(info, ctx) || clnt_ctx_take(info, ctx) != 0) {
        NAT64_LOG_ERROR("\n%s client context not found on list", __func__);
        return;
    }
    if (msg_row(ctx->cmd).is_query) { /* the query was refused with a bare result, which its callback cannot take */
        fwx_nat64_clnt_cmd_cb(info, ctx);
        return;
    }
    delivery_t delivery(ctx);
    deliver_result(ctx, reply->result);
    if (delivery.ctx() != nullptr) clnt_ctx_to_pool(info, ctx);
}

void fwx_nat64_async_cgm_reply_svr(void * /*arg1*/, void * /*arg2*/, void *msg, size_t size) {
    fwx_nat64_client_info_t *info = reply_admit(msg, size, __func__);
    if (info == nullptr) return;

    const auto *reply = static_cast<const fwx_nat64_reply_t *>(msg);
    fwx_nat64_clnt_ctx_t *ctx = clnt_ctx_named_by(&reply->hdr);
    const bool found = ctx != nullptr && clnt_ctx_is_ours(info, ctx) && clnt_ctx_take(info, ctx) == 0;
    if (!found) {
        if (ctx != nullptr) NAT64_LOG_ERROR("\n%s client context not found on list", __func__);
        NAT64_LOG_WARNING(
            "\n%s epoch(%d/%d) - cgm_notification_async_return() not invoked due to clnt_ctx of being NULL", __func__,
            info->epoch, reply->hdr.epoch);
        return;
    }
    NAT64_LOG_TRACE("\n%s epoch(%d/%d) - cgm_notification_async_return() for PAL CTX: %#x, %s", __func__, info->epoch,
                    reply->hdr.epoch, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(ctx->pal_ctx)),
                    xerr_strerror(reply->result));
    delivery_t delivery(ctx);
    void *manager_ctx = ctx->pal_ctx; /* copied, because context and message may be gone after a callback */
    const uint32_t result = reply->result;
    if (msg_row(ctx->cmd).is_query) {
        deliver_failure(ctx);
        if (delivery.ctx() != nullptr) clnt_ctx_free_owned(ctx);
    }
    cgm_notification_async_return(FWX_NAT64_CGM_CLIENT_ID, manager_ctx, result);
    if (delivery.ctx() != nullptr) clnt_ctx_to_pool(info, ctx);
}
