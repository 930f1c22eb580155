/* How the PAL hears of a command: one function for each shape of reply, and one for each shape of callback that is told
 * of a failure. */
#ifndef TRANSPORT_DELIVERY_H
#define TRANSPORT_DELIVERY_H

#include "transport/context.h"

/** Under which the handler of replies with data, and what it calls, write their log lines. */
constexpr char rsp_handler_name[] = "fwx_nat64_async_rsp_svr";

/** What becomes of a context after a reply was delivered. */
enum class fate_t : uint8_t {
    keep,             /* outstanding again */
    release,          /* finished, which is logged */
    release_unlogged, /* finished */
    gone,             /* its binding ended, or it was released, in the callback: nothing of it may be touched */
};

/** Delivers a reply that is as long as its type needs. Requires: the context is off the list. */
typedef fate_t (*deliver_fn_t)(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg);
fate_t deliver_sys(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg);
fate_t deliver_intf(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg);
fate_t deliver_pool(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg);
fate_t deliver_walk(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg);
fate_t deliver_rule(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, void *msg);

/** Delivers a result as the whole reply to a command of type 13. */
fate_t deliver_bare(const fwx_nat64_clnt_ctx_t *ctx, uint32_t code);

/** Hands a result to the callback of a command, if it has one. */
void deliver_result(const fwx_nat64_clnt_ctx_t *ctx, uint32_t code);

/** Tells a callback that its command failed: FWX_NAT64_ERR_AGAIN, or empty results. */
typedef void (*deliver_failure_fn_t)(fwx_nat64_clnt_ctx_t *ctx);
void fail_result(fwx_nat64_clnt_ctx_t *ctx);
void fail_sys(fwx_nat64_clnt_ctx_t *ctx);
void fail_intf(fwx_nat64_clnt_ctx_t *ctx);
void fail_pool(fwx_nat64_clnt_ctx_t *ctx);
void fail_walk(fwx_nat64_clnt_ctx_t *ctx);

/**
 * Tells the PAL that a command failed, as its message number has it. Requires: the context is off the list.
 * @return whether the context is still there; false: its binding ended in the callback.
 */
bool deliver_failure(fwx_nat64_clnt_ctx_t *ctx);

#endif
