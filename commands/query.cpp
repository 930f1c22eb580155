/* Statistics queries and the session walk. All queries are framed and sent in one way; each fills only its own body. A
 * walk also allocates the record of its callback, which the context of the sent command owns. */
#include "fwx_nat64/query.h"
#include "client/client.h"
#include "commands/envelope.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "transport/walk.h"

namespace {

/* Frames a query, has `fill` write the body behind the header, and sends it. Requires: the library is bound. */
template <typename message_t, typename callback_t, typename fill_t>
uint32_t send_query(uint32_t msgno, callback_t callback, void *pal_ctx, fill_t fill) {
    void *msg = nullptr;
    const uint32_t rc =
        fwx_nat64_client_async_cmd_init(sizeof(message_t), msgno, pal_ctx, reinterpret_cast<void *>(callback), &msg);
    if (rc != 0) return rc;
    fill(static_cast<message_t *>(msg));
    return fwx_nat64_client_async_cmd_send(msg, sizeof(message_t));
}

struct all_query_t {
    uint32_t sel;
    void *cookie;
    uint32_t count;
    uint32_t arg;
};

/* Queries all pools (message number 6) or all mappings (7). */
uint32_t send_all_query(uint32_t msgno, const all_query_t &query, void *pal_ctx) {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return FWX_NAT64_ERR_NOT_READY;
    if (query.count == 0) return FWX_NAT64_ERR_INVALID;
    const auto callback =
        msgno == FWX_NAT64_MSG_STATS_POOL_ALL ? info->reply_cb.pool_stats_cb : info->reply_cb.mapping_stats_cb;
    return send_query<fwx_nat64_stats_all_msg_t>(msgno, callback, pal_ctx, [&query](fwx_nat64_stats_all_msg_t *msg) {
        msg->sel = query.sel;
        msg->one = 1;
        msg->zero = 0;
        msg->count = query.count;
        msg->arg = query.arg;
        msg->cookie = reinterpret_cast<uintptr_t>(query.cookie);
    });
}

}  // namespace

uint32_t fwx_nat64_stats_sys_query_a(uint32_t sel, void *pal_ctx) {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return FWX_NAT64_ERR_NOT_READY;
    return send_query<fwx_nat64_stats_sys_msg_t>(FWX_NAT64_MSG_STATS_SYS, info->reply_cb.sys_stats_cb, pal_ctx,
                                                 [sel](fwx_nat64_stats_sys_msg_t *msg) { msg->sel = sel; });
}

uint32_t fwx_nat64_stats_intf_query_a(void *pal_ctx) {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return FWX_NAT64_ERR_NOT_READY;
    return send_query<fwx_nat64_msg_hdr_t>(FWX_NAT64_MSG_STATS_INTF, info->reply_cb.intf_stats_cb, pal_ctx,
                                           [](fwx_nat64_msg_hdr_t *) {});
}

uint32_t fwx_nat64_stats_pool_all_query_a(uint32_t sel, void *cookie, uint32_t count, uint32_t arg, void *pal_ctx) {
    return send_all_query(FWX_NAT64_MSG_STATS_POOL_ALL, {sel, cookie, count, arg}, pal_ctx);
}

uint32_t fwx_nat64_stats_mapping_all_query_a(uint32_t sel, void *cookie, uint32_t count, uint32_t arg, void *pal_ctx) {
    return send_all_query(FWX_NAT64_MSG_STATS_MAPPING_ALL, {sel, cookie, count, arg}, pal_ctx);
}

uint32_t fwx_nat64_stats_limit_all_query_a(uint32_t sel, uint32_t count, void *pal_ctx) {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return FWX_NAT64_ERR_NOT_READY;
    if (count == 0) return FWX_NAT64_ERR_INVALID;
    return send_query<fwx_nat64_stats_limit_msg_t>(FWX_NAT64_MSG_STATS_LIMIT_ALL, info->reply_cb.limit_stats_cb,
                                                   pal_ctx, [sel, count](fwx_nat64_stats_limit_msg_t *msg) {
                                                       msg->sel = sel;
                                                       msg->one = 1;
                                                       msg->count = count;
                                                   });
}

uint32_t fwx_nat64_session_walk_a(uint32_t count, const fwx_nat64_sess_walk_filter_t *filter, uint64_t cookie,
                                  uint32_t arg, uint32_t walk_arg, fwx_nat64_sess_walk_fn_t walk_cb, void *pal_ctx) {
    if (fwx_nat64_client_info_get() == nullptr) return FWX_NAT64_ERR_NOT_READY;
    if (count == 0 || filter == nullptr || walk_cb == nullptr) return FWX_NAT64_ERR_INVALID;

    auto *walk = static_cast<fwx_nat64_sess_walk_cb_t *>(
        fwx_calloc_named(nat64_client_memory_tag, 1, sizeof(fwx_nat64_sess_walk_cb_t)));
    if (walk == nullptr) return FWX_NAT64_ERR_NOMEM;
    walk->walk_arg = walk_arg;
    walk->walk_cb = walk_cb;

    const walk_watch_t watch(walk);
    const uint32_t rc = send_query<fwx_nat64_sess_walk_msg_t>(
        FWX_NAT64_MSG_SESSION_WALK, walk, pal_ctx, [&](fwx_nat64_sess_walk_msg_t *msg) {
            msg->cookie = cookie;
            msg->arg = arg;
            msg->walk_arg = walk_arg;
            msg->count = count;
            fwx_memcpy(&msg->filter, filter, sizeof(msg->filter));
            fwx_memset(&msg->filter.dst, 0, sizeof(msg->filter.dst));
            addr_to_wire(&msg->filter.src);
        });
    if (rc != 0 && !watch.is_gone()) fwx_free_named(walk); /* once sent, the context of the command owns it */
    return rc;
}
