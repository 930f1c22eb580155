/* How replies and failures reach the callbacks of the PAL: one function for each type of reply and each type of
 * callback. A callback may end the binding or the walk; the delivery_t then tells that the context is gone. */
#include "transport/delivery.h"

#include "client/log.h"
#include "fwx_nat64/mapt.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "transport/handler_table.h"
#include "transport/walk.h"

namespace {

/** Returns the callback of a context, as the type that belongs to its message number. */
template <typename fn_t>
fn_t callback_of(const fwx_nat64_clnt_ctx_t *ctx) {
    return reinterpret_cast<fn_t>(ctx->cb_func);
}

bool put_back(fwx_nat64_client_info_t *info, delivery_t &delivery, const char *caller) {
    const uint32_t rc = delivery.put_back(info);
    if (rc != 0) NAT64_LOG_ERROR("\n%s fwx_list_insert_tail %s failed", caller, xerr_strerror(rc));
    return rc == 0;
}

void fwx_nat64_clnt_ctx_requeue(fwx_nat64_client_info_t *info, delivery_t &delivery, uint32_t more, uint32_t stop) {
    if (more == 0 || delivery.ctx() == nullptr) return;
    if (stop != 0) delivery.ctx()->cb_func = nullptr;
    put_back(info, delivery, __func__);
}

uint32_t walk_status(const fwx_nat64_sess_walk_reply_t *reply) {
    if (reply->stopped != 0) return FWX_NAT64_WALK_STOPPED;
    return reply->more != 0 ? FWX_NAT64_WALK_MORE : FWX_NAT64_WALK_DONE;
}

}  // namespace

/* Each function reads `more` before the callback, because the message may be gone after it. */

void deliver_sys(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg) {
    fwx_nat64_clnt_ctx_t *ctx = delivery.ctx();
    auto *stats = static_cast<fwx_nat64_stats_sys_reply_t *>(msg);
    if (stats->reply.result != 0) return fail_sys(ctx);
    const auto callback = callback_of<fwx_nat64_sys_stats_fn_t>(ctx);
    const uint32_t more = stats->more;
    const uint32_t stop = callback != nullptr ? callback(ctx->pal_ctx, more, stats + 1) : 1;
    fwx_nat64_clnt_ctx_requeue(info, delivery, more, stop);
}

void deliver_intf(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg) {
    fwx_nat64_clnt_ctx_t *ctx = delivery.ctx();
    auto *stats = static_cast<fwx_nat64_stats_intf_reply_t *>(msg);
    if (stats->reply.result != 0) {
        stats->more = 0;
        stats->value = 0;
    }
    const auto callback = callback_of<fwx_nat64_intf_stats_fn_t>(ctx);
    const uint32_t more = stats->more;
    const uint32_t stop = callback != nullptr ? callback(ctx->pal_ctx, more, stats->value, stats + 1) : 1;
    fwx_nat64_clnt_ctx_requeue(info, delivery, more, stop);
}

void deliver_pool(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg) {
    fwx_nat64_clnt_ctx_t *ctx = delivery.ctx();
    auto *stats = static_cast<fwx_nat64_stats_all_reply_t *>(msg);
    if (stats->reply.result != 0) {
        stats->more = 0;
        stats->value2 = 0;
    }
    const auto callback = callback_of<fwx_nat64_pool_stats_fn_t>(ctx);
    const uint32_t more = stats->more;
    const uint32_t stop =
        callback != nullptr ? callback(ctx->pal_ctx, more, stats->value, stats->value2, stats + 1) : 1;
    fwx_nat64_clnt_ctx_requeue(info, delivery, more, stop);
}

void deliver_walk(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg) {
    fwx_nat64_clnt_ctx_t *ctx = delivery.ctx();
    auto *reply = static_cast<fwx_nat64_sess_walk_reply_t *>(msg);
    NAT64_LOG_INFO("\n%s PAL ctx=%p sess_walk_cb=%p", rsp_handler_name, ctx->pal_ctx, ctx->cb_func);
    const bool failed = reply->reply.result != 0;
    if (failed) {
        NAT64_LOG_WARNING("\n%s error: PAL ctx=%p sess_walk_cb=%p", rsp_handler_name, ctx->pal_ctx, ctx->cb_func);
    }
    auto *walk = static_cast<fwx_nat64_sess_walk_cb_t *>(ctx->cb_func);
    if (walk == nullptr) return;

    const uint32_t status = failed ? FWX_NAT64_WALK_ERROR : walk_status(reply);
    /* Put back before the callback, because the walk is outstanding again while the callback runs. */
    if (failed || (status == FWX_NAT64_WALK_MORE && !put_back(info, delivery, rsp_handler_name))) {
        return deliver_failure(ctx);
    }
    walk_report(walk, ctx->pal_ctx, {reply->count, reply + 1, reply->value, reply->value2, status});
}

/* Ignores the server's own result: the verdict is the rule table's. */
void deliver_rule(fwx_nat64_client_info_t * /*info*/, delivery_t &delivery, void *msg) {
    auto *reply = static_cast<fwx_nat64_mapt_reply_t *>(msg);
    uint32_t rc = 0;
    if (reply->rule_type == FWX_NAT64_MAPT_RULE_BMR && reply->op == FWX_NAT64_OP_ADD) rc = fwx_mapt_plu_add_rule(msg);
    if (reply->op == FWX_NAT64_OP_DEL && reply->cleanup == 1) fwx_mapt_plu_cleanup();
    reply->reply.result = rc;
    deliver_result(delivery.ctx(), rc);
}

void deliver_result(const fwx_nat64_clnt_ctx_t *ctx, uint32_t code) {
    if (ctx->cb_func == nullptr) return;
    fwx_nat64_cmd_result_t result = {code, ctx->pal_ctx};
    callback_of<fwx_nat64_cfg_reply_fn_t>(ctx)(&result);
}

void fail_result(fwx_nat64_clnt_ctx_t *ctx) {
    deliver_result(ctx, FWX_NAT64_ERR_AGAIN);
}

void fail_sys(fwx_nat64_clnt_ctx_t *ctx) {
    if (ctx->cb_func != nullptr) callback_of<fwx_nat64_sys_stats_fn_t>(ctx)(ctx->pal_ctx, 0, nullptr);
}

void fail_intf(fwx_nat64_clnt_ctx_t *ctx) {
    if (ctx->cb_func != nullptr) callback_of<fwx_nat64_intf_stats_fn_t>(ctx)(ctx->pal_ctx, 0, 0, nullptr);
}

void fail_pool(fwx_nat64_clnt_ctx_t *ctx) {
    if (ctx->cb_func != nullptr) callback_of<fwx_nat64_pool_stats_fn_t>(ctx)(ctx->pal_ctx, 0, 0, 0, nullptr);
}

void fail_walk(fwx_nat64_clnt_ctx_t *ctx) {
    auto *walk = static_cast<fwx_nat64_sess_walk_cb_t *>(ctx->cb_func);
    if (walk != nullptr) walk_report(walk, ctx->pal_ctx, {0, nullptr, 0, 0, FWX_NAT64_WALK_ERROR});
}

void deliver_failure(fwx_nat64_clnt_ctx_t *ctx) {
    const deliver_failure_fn_t deliver = msg_row(ctx->cmd).deliver_failure;
    if (deliver != nullptr) return deliver(ctx);
    NAT64_LOG_WARNING("\n%s invalid reply code %d", "fwx_nat64_clnt_cmd_cb", ctx->cmd);
}
