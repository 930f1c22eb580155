/** @file
 * Binding to the NAT64 client library: the client info, the PAL's callbacks, and the life of a binding.
 *
 * Calling context of everything here: the thread that runs the event loop given to fwx_nat64_bind, never two calls at
 * the same time; the library takes no lock. No function here may be called from inside one of the PAL's callbacks, save
 * fwx_nat64_client_info_get.
 *
 * Not supported: more than one binding per process; unregistering from the classifier manager (unbind leaves the
 * registration in place, the next bind renews it); clearing the MAP-T rule table by unbinding.
 */
#ifndef FWX_NAT64_CLIENT_H
#define FWX_NAT64_CLIENT_H

#include <stddef.h>
#include <stdint.h>

#include "fwx_nat64/transport.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** The messaging channel on which the server is found. */
#define FWX_NAT64_CHANNEL_NAME "fwx_cp"

/** The library's identifier towards the classifier manager. */
#define FWX_NAT64_CGM_CLIENT_ID 20u

/* The classifier manager's operations that the library takes; every other one is refused. */
#define FWX_NAT64_CGM_OP_END_BATCH 2u         /**< the end of a batch, sent on to the server */
#define FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE 4u /**< an update of a classifier, sent on to the server */
#define FWX_NAT64_CGM_OP_IGNORED 5u           /**< accepted, and nothing is done */

/**
 * Query callbacks. `pal_ctx` is the context given with the query; `count` is the number of further replies that follow,
 * 0 with the last; `data` is the server's and valid during the call. A query that failed or was flushed is told with
 * zero counts; its `data` is null or carries nothing. A
 * non-zero return asks that the further replies of this query be consumed without a call.
 */
typedef uint32_t (*fwx_nat64_sys_stats_fn_t)(void *pal_ctx, uint32_t count, void *data);
/** Interface and limit statistics; `value` is the server's. */
typedef uint32_t (*fwx_nat64_intf_stats_fn_t)(void *pal_ctx, uint32_t count, uint32_t value, void *data);
/** Pool and mapping statistics; `value` (a cookie) and `value2` are the server's. */
typedef uint32_t (*fwx_nat64_pool_stats_fn_t)(void *pal_ctx, uint32_t count, uint64_t value, uint32_t value2,
                                              void *data);
/** Verdict on a configuration or MAP-T rule command; `result` lives during the call. */
typedef void (*fwx_nat64_cfg_reply_fn_t)(fwx_nat64_cmd_result_t *result);
/** Unsolicited command 0: `op` is FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL, `record` three 32-bit words that live during
 * the call. */
typedef void (*fwx_nat64_unsol_record_fn_t)(uint32_t op, const void *record);
/** Unsolicited command 1. */
typedef void (*fwx_nat64_unsol_event_fn_t)(void);
/** Receiver of the server's unsolicited messages inside the library. */
typedef void (*fwx_nat64_unsol_hndlr_fn_t)(void *msg, size_t size);
/** Flow control: `may_send` is 0 when the channel is full up to its high mark and 1 when it has room again. */
typedef void (*fwx_nat64_throttle_fn_t)(uint32_t may_send, void *ctx);

/** The PAL's reply callbacks; a null entry is skipped. */
typedef struct {
    fwx_nat64_cfg_reply_fn_t cfg_reply_cb;      /**< configuration and MAP-T rule commands */
    fwx_nat64_sys_stats_fn_t sys_stats_cb;      /**< system statistics */
    fwx_nat64_intf_stats_fn_t intf_stats_cb;    /**< interface statistics */
    fwx_nat64_pool_stats_fn_t pool_stats_cb;    /**< pool statistics */
    fwx_nat64_intf_stats_fn_t limit_stats_cb;   /**< limit statistics */
    fwx_nat64_pool_stats_fn_t mapping_stats_cb; /**< mapping statistics; also unsolicited mapping records */
} fwx_nat64_reply_cbs_t;

/** The PAL's callbacks for unsolicited commands; a null entry is skipped. */
typedef struct {
    fwx_nat64_unsol_event_fn_t reserved;   /**< stored, never called */
    fwx_nat64_unsol_record_fn_t record_cb; /**< command 0 */
    fwx_nat64_unsol_event_fn_t event_cb;   /**< command 1 */
} fwx_nat64_unsol_cbs_t;

struct fwx_chunk;
struct fwx_list;

/**
 * The state of a binding, shared with the PAL. The PAL may read all of it and may write `throttle_cb` and
 * `throttle_ctx`. Field order and widths are part of the interface.
 */
typedef struct {
    void *ev_ctx;                           /**< owned: event context, goes back through fwx_free_named */
    void *smc_ev;                           /**< owned: 8-byte cell with the messaging handle */
    struct fwx_chunk *clnt_ctx_chunk;       /**< owned: pool of client contexts */
    struct fwx_list *clnt_ctx_list;         /**< owned: outstanding client contexts, oldest first */
    void *rx_buf;                           /**< owned, lent to the channel */
    uint64_t chan;                          /**< valid while `connected` */
    uint32_t epoch;                         /**< stamps every asynchronous message of this binding */
    uint32_t connected;                     /**< 1 while the channel is open and its handlers are attached */
    uint8_t client_id[4];                   /**< the PAL's identifier, opaque */
    fwx_nat64_reply_cbs_t reply_cb;         /**< as given at bind */
    fwx_nat64_unsol_cbs_t unsol_cb;         /**< as given at bind */
    fwx_nat64_unsol_hndlr_fn_t unsol_hndlr; /**< the library's own */
    fwx_nat64_throttle_fn_t throttle_cb;    /**< the PAL's, null after bind */
    void *throttle_ctx;                     /**< the PAL's, handed to throttle_cb */
    uint32_t throttle_off_cnt;              /**< times that the channel had room again */
    uint32_t throttle_on_cnt;               /**< times that the channel was full */
} fwx_nat64_client_info_t;

/**
 * Binds the PAL to the library: connects to the server, initialises the MAP-T rule table, registers with the classifier
 * manager, waits for the server's answer to the init command and asks for unsolicited notifications.
 *
 * @param client_id   four bytes that identify the PAL to the server; null stands for four zero bytes. Copied.
 * @param ev_arg      the PAL's event argument (its loop). Required; must outlive the binding.
 * @param unsol_cbs   callbacks for unsolicited commands, or null. Copied.
 * @param reply_cbs   reply callbacks. Required. Copied.
 * @return 0; 22 for a null `ev_arg` or `reply_cbs`; 17 when already bound; 12 without memory;
 * FWX_NAT64_ERR_COMINGUP_NOMEM; FWX_NAT64_ERR_AGAIN when the channel cannot be opened; else the code of the platform or
 * the server's refusal. After a failed rule-table initialisation or classifier registration the library stays bound:
 * call fwx_nat64_unbind before binding again. After every other failure it is unbound.
 */
uint32_t fwx_nat64_bind(const void *client_id, void *ev_arg, const fwx_nat64_unsol_cbs_t *unsol_cbs,
                        const fwx_nat64_reply_cbs_t *reply_cbs);

/**
 * Ends the binding. Outstanding commands are discarded without a callback; a PAL that must know them keeps its own
 * count. Does nothing while unbound.
 */
void fwx_nat64_unbind(void);

/** The state of the binding, or null while unbound. It stays the library's and ends with unbind. */
fwx_nat64_client_info_t *fwx_nat64_client_info_get(void);

/** Reads the debug environment at its first call in the life of the loaded library; bind calls it. */
void fwx_nat64_clnt_init(void);

/**
 * Reports every outstanding command to its callback as failed (FWX_NAT64_ERR_AGAIN, or empty results) and releases it.
 * Runs by itself when the library is unloaded while bound.
 * @return 0 when nothing is outstanding any more, or the list service's code, the rest of the list left as it is.
 */
uint32_t fwx_nat64_clnt_cleanup(void);

/**
 * Makes the event context of a client info: messaging handle, event context, current context. Bind calls it.
 * @param ev_arg the PAL's event argument.
 * @param info   receives `smc_ev` and `ev_ctx`.
 * @return 0, 12, or the platform's code, `smc_ev` then null.
 */
uint32_t fwx_nat64_client_ev_setup(void *ev_arg, fwx_nat64_client_info_t *info);

/** Releases what fwx_nat64_client_ev_setup made; may run on a partly set-up client info, and twice. */
void fwx_nat64_client_ev_teardown(fwx_nat64_client_info_t *info);

/**
 * Asks the server for its unsolicited notifications. Bind and every reconnection call it.
 * @return 0 when handed to the channel, or as fwx_nat64_client_async_cmd_init and _send.
 */
uint32_t fwx_nat64_client_unsol_setup_send_a(void);

/**
 * Makes list, receive buffer and pool of a client info, draws its epoch and connects to the server. Bind calls it.
 * Requires: `info` is the published client info.
 * @return 0; FWX_NAT64_ERR_COMINGUP_NO_INFO for null; FWX_NAT64_ERR_COMINGUP_NOMEM; FWX_NAT64_ERR_AGAIN when the
 * channel cannot be opened; or the platform's code. Nothing stays allocated after a failure.
 */
uint32_t fwx_nat64_client_comingup(fwx_nat64_client_info_t *info);

/** Undoes fwx_nat64_client_comingup: closes the channel and discards outstanding commands. Null is ignored. */
void fwx_nat64_client_goingdown(fwx_nat64_client_info_t *info);

/**
 * Sends the asynchronous init command. Every reconnection calls it, without context and callback.
 * @param info    the client info, whose identifier is sent.
 * @param pal_ctx handed back to the callback.
 * @param cb_func a fwx_nat64_cfg_reply_fn_t, or null.
 * @return 0 when handed to the channel, or as fwx_nat64_client_async_cmd_init and _send.
 */
uint32_t fwx_nat64_client_init_cmd_send_a(fwx_nat64_client_info_t *info, void *pal_ctx, void *cb_func);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
