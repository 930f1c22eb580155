/* Replies that carry data: statistics, the session walk and MAP-T rules. */
#include "client/log.h"
#include "fwx_nat64/mapt.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "transport/handlers.h"
#include "transport/reply_admission.h"

namespace {

constexpr char handler_name[] = "fwx_nat64_async_rsp_svr";

/* What becomes of a context after its reply was delivered. */
enum fate_t : uint32_t { fate_keep = 0, fate_finished = 1 };

void mark_and_free(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx) {
    ctx->cmd = FWX_NAT64_MSG_MAX;
    chunk_free(info->clnt_ctx_chunk, ctx);
}

void release(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, uint32_t msgno) {
    NAT64_LOG_INFO("\n%s client ctx=%p cb=%p msgno=%d - freed", handler_name, static_cast<void *>(ctx), ctx->cb_func,
                   msgno);
    mark_and_free(info, ctx);
}

bool put_back(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, const char *caller) {
    const uint32_t rc = fwx_list_insert_tail(info->clnt_ctx_list, ctx);
    if (rc == 0) return true;
    NAT64_LOG_ERROR("\n%s fwx_list_insert_tail %s failed", caller, xerr_strerror(rc));
    return false;
}

uint32_t fwx_nat64_clnt_ctx_requeue(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, uint32_t more,
                                    uint32_t stop) {
    if (more == 0) return fate_finished;
    if (stop != 0) ctx->cb_func = nullptr;
    return put_back(info, ctx, __func__) ? fate_keep : fate_finished;
}

uint32_t system_statistics(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg) {
    auto *stats = static_cast<fwx_nat64_stats_sys_reply_t *>(msg);
    const auto callback = clnt_ctx_callback<fwx_nat64_sys_stats_fn_t>(ctx);
    if (stats->reply.result != 0) {
        if (callback != nullptr) callback(ctx->pal_ctx, 0, nullptr);
        return fate_finished;
    }
    const uint32_t more = stats->more; /* the message may be gone after the callback */
    const uint32_t stop = callback != nullptr ? callback(ctx->pal_ctx, more, stats + 1) : 1;
    return fwx_nat64_clnt_ctx_requeue(info, ctx, more, stop);
}

uint32_t interface_or_limit_statistics(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg) {
    auto *stats = static_cast<fwx_nat64_stats_intf_reply_t *>(msg);
    if (stats->reply.result != 0) {
        stats->more = 0;
        stats->value = 0;
    }
    const auto callback = clnt_ctx_callback<fwx_nat64_intf_stats_fn_t>(ctx);
    const uint32_t more = stats->more;
    const uint32_t stop = callback != nullptr ? callback(ctx->pal_ctx, more, stats->value, stats + 1) : 1;
    return fwx_nat64_clnt_ctx_requeue(info, ctx, more, stop);
}

uint32_t pool_or_mapping_statistics(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg) {
    auto *stats = static_cast<fwx_nat64_stats_all_reply_t *>(msg);
    if (stats->reply.result != 0) {
        stats->more = 0;
        stats->value2 = 0;
    }
    const auto callback = clnt_ctx_callback<fwx_nat64_pool_stats_fn_t>(ctx);
    const uint32_t more = stats->more;
    const uint32_t stop =
        callback != nullptr ? callback(ctx->pal_ctx, more, stats->value, stats->value2, stats + 1) : 1;
    return fwx_nat64_clnt_ctx_requeue(info, ctx, more, stop);
}

uint32_t walk_status(const fwx_nat64_sess_walk_reply_t *reply) {
    if (reply->stopped != 0) return FWX_NAT64_WALK_STOPPED;
    return reply->more != 0 ? FWX_NAT64_WALK_MORE : FWX_NAT64_WALK_DONE;
}

uint32_t session_walk(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg) {
    auto *reply = static_cast<fwx_nat64_sess_walk_reply_t *>(msg);
    auto *walk = static_cast<fwx_nat64_sess_walk_cb_t *>(ctx->cb_func);
    NAT64_LOG_INFO("\n%s PAL ctx=%p sess_walk_cb=%p", handler_name, ctx->pal_ctx, ctx->cb_func);
    const bool failed = reply->reply.result != 0;
    if (failed) {
        NAT64_LOG_WARNING("\n%s error: PAL ctx=%p sess_walk_cb=%p", handler_name, ctx->pal_ctx, ctx->cb_func);
    }
    if (walk == nullptr) return fate_finished;

    const uint32_t status = failed ? FWX_NAT64_WALK_ERROR : walk_status(reply);
    /* Back on the list before the PAL hears of it: from the callback on the walk is outstanding again. */
    if (failed || (status == FWX_NAT64_WALK_MORE && !put_back(info, ctx, handler_name))) {
        clnt_ctx_deliver_failure(ctx);
        return fate_finished;
    }
    if (walk->done == 0 &&
        walk->walk_cb(ctx->pal_ctx, reply->count, reply + 1, reply->value, reply->value2, status) == 1) {
        walk->done = 1;
    }
    if (status == FWX_NAT64_WALK_MORE) return fate_keep;
    fwx_free_named(walk);
    return fate_finished;
}

/* The server's own result does not count: the verdict is the rule table's. */
void mapt_rule(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg) {
    auto *reply = static_cast<fwx_nat64_mapt_reply_t *>(msg);
    uint32_t rc = 0;
    if (reply->rule_type == FWX_NAT64_MAPT_RULE_BMR && reply->op == FWX_NAT64_OP_ADD) rc = fwx_mapt_plu_add_rule(msg);
    if (reply->op == FWX_NAT64_OP_DEL && reply->cleanup == 1) fwx_mapt_plu_cleanup();
    reply->reply.result = rc;
    if (ctx->cb_func != nullptr) {
        fwx_nat64_cmd_result_t result = {rc, ctx->pal_ctx};
        clnt_ctx_callback<fwx_nat64_cfg_reply_fn_t>(ctx)(&result);
    }
    mark_and_free(info, ctx);
}

}  // namespace

void fwx_nat64_async_rsp_svr(void * /*arg1*/, void * /*arg2*/, void *msg, size_t size) {
    fwx_nat64_client_info_t *info = nullptr;
    const reply_admission_t admission = reply_admit(msg, size, handler_name, &info);
    if (admission == reply_admission_t::dropped) return;

    const auto *reply = static_cast<const fwx_nat64_reply_t *>(msg);
    const uint32_t msgno = reply_msgno(msg);
    fwx_nat64_clnt_ctx_t *ctx = clnt_ctx_named_by(&reply->hdr);
    if (ctx == nullptr) {
        NAT64_LOG_ERROR("\n%s no clnt_ctx for msgno=-%d", handler_name, msgno);
        return;
    }
    if (ctx->cmd != msgno) {
        NAT64_LOG_ERROR("\n%s client context %p found invalid cmd=%d for msgno=%d", handler_name,
                        static_cast<void *>(ctx), ctx->cmd, msgno);
        return;
    }
    NAT64_LOG_INFO("\n%s client ctx=%p cb=%p msgno=%d - %s", handler_name, static_cast<void *>(ctx), ctx->cb_func,
                   msgno, xerr_strerror(reply->result));
    if (fwx_list_remove_element(info->clnt_ctx_list, ctx) != 0) {
        NAT64_LOG_ERROR("\n%s client context not found on list for cmd=%d", handler_name, msgno);
        return;
    }

    uint32_t fate = fate_finished;
    if (admission == reply_admission_t::failure_only) {
        clnt_ctx_deliver_failure(ctx);
    } else {
        switch (msgno) {
            case FWX_NAT64_MSG_STATS_SYS:
                fate = system_statistics(info, ctx, msg);
                break;
            case FWX_NAT64_MSG_STATS_INTF:
            case FWX_NAT64_MSG_STATS_LIMIT_ALL:
                fate = interface_or_limit_statistics(info, ctx, msg);
                break;
            case FWX_NAT64_MSG_STATS_POOL_ALL:
            case FWX_NAT64_MSG_STATS_MAPPING_ALL:
                fate = pool_or_mapping_statistics(info, ctx, msg);
                break;
            case FWX_NAT64_MSG_SESSION_WALK:
                fate = session_walk(info, ctx, msg);
                break;
            case FWX_NAT64_MSG_MAPT_RULE:
                mapt_rule(info, ctx, msg);
                return;
            default:
                NAT64_LOG_ERROR("\n%s invalid reply code %d", handler_name, msgno);
                break;
        }
    }
    if (fate == fate_finished) release(info, ctx, msgno);
}
