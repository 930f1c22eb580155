/** @file
 * Statistics queries and the session walk.
 *
 * Conventions: a result of 0 says that the query was handed to the channel; its answers reach the callback of that
 * query, given at bind (with a walk: its own), in one or more calls. Other results: FWX_NAT64_ERR_NOT_READY while
 * unbound, which comes first; FWX_NAT64_ERR_INVALID for a rejected argument; or as fwx_nat64_client_async_cmd_init and
 * _send; no callback is then called. `pal_ctx` is handed back to the callback. The meaning of `sel`, `arg`, `cookie`
 * and `walk_arg` is the server's. What the callbacks get is said with their types in fwx_nat64/client.h.
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
 * @param data    `count` fwx_nat64_session_t (fwx_nat64/wire.h), valid during the call. Nothing tells how many bytes
 * are there; the PAL trusts its server.
 * @param value   the cookie to go on with in the next walk, 0 when the table is complete.
 * @param value2  the server's.
 * @param status  FWX_NAT64_WALK_MORE, or one of the three that end the walk: no call follows.
 * @return 1 to have the further replies of this walk consumed without a call; anything else goes on.
 *
 * A callback may unbind, flush and send; with FWX_NAT64_WALK_MORE the walk is outstanding again, so a flush from here
 * calls it once more with FWX_NAT64_WALK_ERROR.
 */
typedef uint32_t (*fwx_nat64_sess_walk_fn_t)(void *pal_ctx, uint32_t count, void *data, uint64_t value, uint32_t value2,
                                             uint32_t status);

/** Which sessions to walk. */
typedef struct {
    uint8_t opaque0[16];  /**< the server's */
    fwx_nat64_addr_t src; /**< source address; what stands for any is the server's */
    uint8_t opaque36[4];  /**< the server's */
    fwx_nat64_addr_t dst; /**< always sent as zeros */
    uint8_t opaque60[28]; /**< the server's */
} fwx_nat64_sess_walk_filter_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_sess_walk_filter_t, 88);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_filter_t, opaque0, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_filter_t, src, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_sess_walk_filter_t, dst, 40);

/** Queries the system statistics; answered through `sys_stats_cb`. `sel` is the server's. */
uint32_t fwx_nat64_stats_sys_query_a(uint32_t sel, void *pal_ctx);
/** Queries the statistics of all interfaces; answered through `intf_stats_cb`. */
uint32_t fwx_nat64_stats_intf_query_a(void *pal_ctx);
/**
 * Queries the statistics of all pools; answered through `pool_stats_cb`.
 * @param sel     the server's.
 * @param cookie  where to go on, sent as a 64-bit value and never dereferenced; null for the start.
 * @param count   largest number of entries, not 0 (FWX_NAT64_ERR_INVALID); the server may answer with fewer and a
 *                cookie to go on with.
 * @param arg     the server's.
 * @param pal_ctx handed back to the callback.
 */
uint32_t fwx_nat64_stats_pool_all_query_a(uint32_t sel, void *cookie, uint32_t count, uint32_t arg, void *pal_ctx);
/** As fwx_nat64_stats_pool_all_query_a for all mappings; answered through `mapping_stats_cb`. */
uint32_t fwx_nat64_stats_mapping_all_query_a(uint32_t sel, void *cookie, uint32_t count, uint32_t arg, void *pal_ctx);
/** Queries the statistics of all limits; answered through `limit_stats_cb`. `count` as for the pools. */
uint32_t fwx_nat64_stats_limit_all_query_a(uint32_t sel, uint32_t count, void *pal_ctx);
/**
 * Walks the server's sessions.
 * @param count   sessions a reply, not 0.
 * @param filter  which sessions; only read, not null. IPv4 `src` in host order; `dst` is not sent.
 * @param cookie  where to go on, 0 for the start.
 * @param arg     the server's.
 * @param walk_arg the server's.
 * @param walk_cb called for each reply until it returns 1; not null. A walk still outstanding at unbind ends without a
 * call.
 * @param pal_ctx handed back to `walk_cb`.
 * @return also FWX_NAT64_ERR_INVALID for `count` 0, a null `filter` or `walk_cb`, and FWX_NAT64_ERR_NOMEM.
 */
uint32_t fwx_nat64_session_walk_a(uint32_t count, const fwx_nat64_sess_walk_filter_t *filter, uint64_t cookie,
                                  uint32_t arg, uint32_t walk_arg, fwx_nat64_sess_walk_fn_t walk_cb, void *pal_ctx);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
