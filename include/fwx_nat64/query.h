/** @file
 * Statistics queries and the session walk.
 *
 * Conventions of all queries. A result of 0 means that the query was handed to the channel; its answers reach the
 * callback of that query in one or more calls. That callback was given at bind; a walk has its own. Other results are
 * FWX_NAT64_ERR_NOT_READY while unbound, which is checked first; FWX_NAT64_ERR_INVALID for a rejected argument; or
 * those of fwx_nat64_client_async_cmd_init and _send. After such a result no callback is called. `pal_ctx` is passed to
 * the callback. The server alone defines the meaning of `sel`, `arg`, `cookie` and `walk_arg`. The callback types in
 * fwx_nat64/client.h say what the callbacks get.
 *
 * Calling context: the thread that runs the event loop of the binding; allowed from inside the PAL's callbacks.
 */
#ifndef FWX_NAT64_QUERY_H
#define FWX_NAT64_QUERY_H

#include <stdint.h>

#include "fwx_nat64/config.h"
#include "fwx_nat64/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

#define FWX_NAT64_WALK_STOPPED 1u /**< the server ended the walk early; nothing more follows */
#define FWX_NAT64_WALK_MORE 2u    /**< further replies follow */
#define FWX_NAT64_WALK_DONE 3u    /**< the walk is complete */
#define FWX_NAT64_WALK_ERROR 4u   /**< the walk was refused or flushed; `data` is null, the numbers are 0 */

/**
 * Session-walk callback, called for each reply.
 * @param pal_ctx the context given with the walk.
 * @param count   sessions at `data`.
 * @param data    `count` fwx_nat64_session_t (fwx_nat64/wire.h), valid during the call. The library cannot check that
 *                so many bytes are there; the PAL trusts its server.
 * @param value   the cookie with which the next walk continues, 0 when the table is complete.
 * @param value2  defined by the server.
 * @param status  FWX_NAT64_WALK_MORE, or one of the other three, which end the walk: no call follows.
 * @return 1 makes the library consume the further replies of this walk without a call; any other value goes on.
 *
 * A callback may unbind, flush and send. During a call with FWX_NAT64_WALK_MORE the walk is already outstanding again,
 * so a flush from inside this call makes one more call, with FWX_NAT64_WALK_ERROR.
 */
typedef uint32_t (*fwx_nat64_sess_walk_fn_t)(void *pal_ctx, uint32_t count, void *data, uint64_t value, uint32_t value2,
                                             uint32_t status);

/** Filter of the sessions to walk. */
typedef struct {
    uint8_t opaque0[16];  /**< defined by the server */
    fwx_nat64_addr_t src; /**< source address; the server defines the wildcard */
    uint8_t opaque36[4];  /**< defined by the server */
    fwx_nat64_addr_t dst; /**< always sent as zeros */
    uint8_t opaque60[28]; /**< defined by the server */
} fwx_nat64_sess_walk_filter_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_sess_walk_filter_t, 88);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_filter_t, opaque0, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_filter_t, src, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_filter_t, dst, 40);

/** Queries the system statistics; answered through `sys_stats_cb`. */
uint32_t fwx_nat64_stats_sys_query_a(uint32_t sel, void *pal_ctx);
/** Queries the statistics of all interfaces; answered through `intf_stats_cb`. */
uint32_t fwx_nat64_stats_intf_query_a(void *pal_ctx);
/**
 * Queries the statistics of all pools; answered through `pool_stats_cb`.
 * @param sel     defined by the server.
 * @param cookie  where to continue, sent as a 64-bit value and never dereferenced; null for the start.
 * @param count   largest number of entries, not 0 (FWX_NAT64_ERR_INVALID); the server may answer with fewer entries and
 *                a cookie with which to continue.
 * @param arg     defined by the server.
 * @param pal_ctx passed to the callback.
 */
uint32_t fwx_nat64_stats_pool_all_query_a(uint32_t sel, void *cookie, uint32_t count, uint32_t arg, void *pal_ctx);
/** As fwx_nat64_stats_pool_all_query_a, but for all mappings; answered through `mapping_stats_cb`. */
uint32_t fwx_nat64_stats_mapping_all_query_a(uint32_t sel, void *cookie, uint32_t count, uint32_t arg, void *pal_ctx);
/** Queries the statistics of all limits; answered through `limit_stats_cb`. `count` as for the pools. */
uint32_t fwx_nat64_stats_limit_all_query_a(uint32_t sel, uint32_t count, void *pal_ctx);
/**
 * Walks the server's sessions.
 * @param count   sessions per reply, not 0.
 * @param filter  the sessions to walk; only read, not null. IPv4 `src` in host order; `dst` is not sent.
 * @param cookie  where to continue, 0 for the start.
 * @param arg     defined by the server.
 * @param walk_arg defined by the server.
 * @param walk_cb called for each reply until it returns 1; not null. A walk still outstanding at unbind ends without a
 *                call.
 * @param pal_ctx passed to `walk_cb`.
 * @return also FWX_NAT64_ERR_INVALID for `count` 0, a null `filter` or a null `walk_cb`, and FWX_NAT64_ERR_NOMEM.
 */
uint32_t fwx_nat64_session_walk_a(uint32_t count, const fwx_nat64_sess_walk_filter_t *filter, uint64_t cookie,
                                  uint32_t arg, uint32_t walk_arg, fwx_nat64_sess_walk_fn_t walk_cb, void *pal_ctx);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
