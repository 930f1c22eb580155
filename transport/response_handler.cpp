/* Handler of replies that carry data: statistics, the session walk and MAP-T rules. It checks that the reply is long
 * enough and that its context is outstanding under the same message number, delivers the reply, and releases the
 * context unless more replies follow. */
#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "transport/handler_table.h"
#include "transport/reply_admission.h"

namespace {

constexpr const char *name = rsp_handler_name;

void finish(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, uint32_t msgno) {
    const void *cb_func = ctx->cb_func;
    clnt_ctx_free_owned(ctx);
    if (msgno != FWX_NAT64_MSG_MAPT_RULE) { /* a rule command ends without this line */
        NAT64_LOG_INFO("\n%s client ctx=%p cb=%p msgno=%d - freed", name, static_cast<void *>(ctx), cb_func, msgno);
    }
    ctx->cmd = FWX_NAT64_MSG_MAX;
    clnt_ctx_to_pool(info, ctx);
}

}  // namespace

void fwx_nat64_async_rsp_svr(void * /*arg1*/, void * /*arg2*/, void *msg, size_t size) {
    fwx_nat64_client_info_t *info = reply_admit(msg, size, name);
    if (info == nullptr) return;

    const auto *reply = static_cast<const fwx_nat64_reply_t *>(msg);
    const uint32_t msgno = reply->hdr.type & FWX_NAT64_MSG_NUMBER_MASK;
    const fwx_nat64_msg_hndlr_t &row = msg_row(msgno);
    const bool is_whole = size >= (reply->result == 0 ? row.least_bytes : row.least_refusal_bytes);
    if (!is_whole && reply->result == 0) {
        NAT64_LOG_ERROR("\n%s reply of %zu bytes is too short for msgno=%d", name, size, msgno);
        return;
    }
    fwx_nat64_clnt_ctx_t *ctx = clnt_ctx_named_by(&reply->hdr);
    if (ctx == nullptr) {
        NAT64_LOG_ERROR("\n%s no clnt_ctx for msgno=-%d", name, msgno);
        return;
    }
    if (!clnt_ctx_is_ours(info, ctx)) {
        NAT64_LOG_ERROR("\n%s client context not found on list for cmd=%d", name, msgno);
        return;
    }
    if (ctx->cmd != msgno) {
        NAT64_LOG_ERROR("\n%s client context %p found invalid cmd=%d for msgno=%d", name, static_cast<void *>(ctx),
                        ctx->cmd, msgno);
        return;
    }
    NAT64_LOG_INFO("\n%s client ctx=%p cb=%p msgno=%d - %s", name, static_cast<void *>(ctx), ctx->cb_func, msgno,
                   xerr_strerror(reply->result));
    if (clnt_ctx_take(info, ctx) != 0) {
        NAT64_LOG_ERROR("\n%s client context not found on list for cmd=%d", name, msgno);
        return;
    }

    delivery_t delivery(ctx);
    if (!is_whole && row.is_query) { /* a short refusal: only the failure is reported */
        deliver_failure(ctx);
    } else if (!is_whole) {
        deliver_result(ctx, reply->result);
    } else if (row.deliver != nullptr) {
        row.deliver(info, delivery, msg);
    } else {
        NAT64_LOG_ERROR("\n%s invalid reply code %d", name, msgno);
    }
    if (delivery.ctx() != nullptr) finish(info, ctx, msgno);
}
