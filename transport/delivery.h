/* How replies and failures reach the PAL: one function for each type of reply, and one for each type of callback that
 * reports a failure. */
#ifndef TRANSPORT_DELIVERY_H
#define TRANSPORT_DELIVERY_H

#include "transport/context.h"

/** Name under which the handler of replies with data, and the functions that it calls, write their log lines. */
constexpr char rsp_handler_name[] = "fwx_nat64_async_rsp_svr";

/**
 * Delivers a reply that is as long as its type requires. Puts the context back on the list when further replies follow;
 * a finished command leaves it in delivery.
 */
typedef void (*deliver_fn_t)(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg);
void deliver_sys(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg);
void deliver_intf(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg);
void deliver_pool(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg);
void deliver_walk(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg);
void deliver_rule(fwx_nat64_client_info_t *info, delivery_t &delivery, void *msg);

/** Passes a result to the callback of a command, if it has one. */
void deliver_result(const fwx_nat64_clnt_ctx_t *ctx, uint32_t code);

/** Reports to a callback that its command failed: FWX_NAT64_ERR_AGAIN, or empty results. */
typedef void (*deliver_failure_fn_t)(fwx_nat64_clnt_ctx_t *ctx);
void fail_result(fwx_nat64_clnt_ctx_t *ctx);
void fail_sys(fwx_nat64_clnt_ctx_t *ctx);
void fail_intf(fwx_nat64_clnt_ctx_t *ctx);
void fail_pool(fwx_nat64_clnt_ctx_t *ctx);
void fail_walk(fwx_nat64_clnt_ctx_t *ctx);

/** Reports a failed command to the PAL in the way of its message number. Requires: the context is in delivery. */
void deliver_failure(fwx_nat64_clnt_ctx_t *ctx);

#endif
