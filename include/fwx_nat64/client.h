/** @file
 * Binding to the NAT64 client library: the client info, the PAL's callbacks, and the start and end of a binding.
 *
 * Calling context of every function here: the thread that runs the event loop given to fwx_nat64_bind, never two calls
 * at the same time. The library takes no lock.
 *
 * Callbacks come from that loop, or from inside a call that is in progress: fwx_nat64_clnt_cleanup, and a synchronous
 * command on a platform that delivers other replies while it waits. In the latter two cases callbacks can nest. A
 * further reply to a query that arrives inside that query's own callback is dropped.
 *
 * A callback may call every function: asynchronous and synchronous commands, fwx_nat64_unbind, fwx_nat64_bind after it,
 * and fwx_nat64_clnt_cleanup, whose comment says which calls are refused during a flush. A callback must return: an
 * exception or a longjmp out of it would skip the clean-up of the library's stack frames. Once a callback has ended its
 * binding, the library no longer touches anything of that binding.
 *
 * Unloading: unbind, run the loop until it is idle, then unload. Completions of messages, classifier notifications and
 * replies call into the library, so the program crashes if one of them arrives after the unload. An unload while bound
 * flushes the outstanding commands and does nothing else.
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

/**
 * The messaging channel on which the library finds the server. The platform decides which server that is. On the host
 * platform it is a server in the same process, unless the PAL names another process before it binds:
 * `fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, "alpha")` (fwx_host/smc.h) selects the server that listens as alpha,
 * such as `natctl serve alpha`. When a server has died, the next send looks for one under the same name again. The
 * commands that the dead server had taken stay outstanding: a PAL that sees `connected` 0 in its client info flushes
 * them with fwx_nat64_clnt_cleanup.
 */
#define FWX_NAT64_CHANNEL_NAME "fwx_cp"

/* Flow control: high and low watermark of the channel, in bytes that it has accepted and the server has not taken yet.
 */
#define FWX_NAT64_FC_HIGH_BYTES 10485760u /**< at or above this, the PAL is told to stop */
#define FWX_NAT64_FC_LOW_BYTES 10240u     /**< at or below this, it is told to go on */

/*
 * A PAL that sends in a loop learns that the channel is full only when it runs its event loop, because `throttle_cb` is
 * called from there. Until then the channel accepts more messages, up to a point at which sends fail with the
 * platform's code, on the host platform FWX_HOST_ERR_FULL. So a sender stops at a refusal, runs the loop, and sends the
 * same command again:
 *
 *     while (next < count) {
 *         const uint32_t code = fwx_nat64_pool_set_a(FWX_NAT64_OP_ADD, &pools[next], NULL);
 *         if (code == 0) ++next;
 *         if (code != 0 && code != FWX_HOST_ERR_FULL && !fwx_nat64_may_retry(code)) return code;
 *         if (code != 0 || may_send == 0) fwx_host_loop_run_once(loop, 1000); // may_send: from the last throttle_cb
 *     }
 */

/** The client identifier under which the library registers with the classifier manager. */
#define FWX_NAT64_CGM_CLIENT_ID 20u

/* The operations of the classifier manager that the library accepts; it refuses every other one. */
#define FWX_NAT64_CGM_OP_END_BATCH 2u         /**< end of a batch, forwarded to the server */
#define FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE 4u /**< update of a classifier, forwarded to the server */
#define FWX_NAT64_CGM_OP_IGNORED 5u           /**< accepted without effect */

/**
 * Callback of the system statistics. The following holds for every query callback.
 *
 * @param pal_ctx the context given with the query.
 * @param count   not 0 while further replies to this query follow, 0 with the last one. It is only a flag.
 * @param data    valid during the call: one fwx_nat64_stats_sys_entry_t (fwx_nat64/wire.h); in the other callbacks, as
 *                many entries as an argument says. The library cannot check that so many bytes are there; the PAL
 *                trusts its server.
 * @return 0 to go on; any other value makes the library consume the further replies to this query without a call.
 *
 * A query that the server refused, or that was flushed, is reported once: `count` and the number of entries are 0, and
 * `data` is null or meaningless. Except for the system statistics, a refusal therefore looks like an answer without
 * entries.
 */
typedef uint32_t (*fwx_nat64_sys_stats_fn_t)(void *pal_ctx, uint32_t count, void *data);
/** Callback of the interface statistics (`data` is `value` fwx_nat64_stats_intf_entry_t) and of the limits (`value`
 * fwx_nat64_stats_limit_entry_t). */
typedef uint32_t (*fwx_nat64_intf_stats_fn_t)(void *pal_ctx, uint32_t count, uint32_t value, void *data);
/**
 * Callback of the pool statistics (`data` is `value2` fwx_nat64_stats_pool_entry_t) and of the mapping statistics
 * (`value2` fwx_nat64_stats_mapping_entry_t). `value` is the cookie with which the next query continues, 0 when the
 * list is complete. It has no meaning when there are no entries.
 */
typedef uint32_t (*fwx_nat64_pool_stats_fn_t)(void *pal_ctx, uint32_t count, uint64_t value, uint32_t value2,
                                              void *data);
/**
 * Reports the verdict on a configuration or MAP-T rule command; fwx_nat64/mapt.h says what the verdict on a rule is.
 * `result` is valid during the call. When a classifier command is flushed (fwx_nat64_clnt_cleanup), `pal_ctx` in it is
 * the classifier manager's context.
 */
typedef void (*fwx_nat64_cfg_reply_fn_t)(fwx_nat64_cmd_result_t *result);
/** Callback of unsolicited command 0. `op` is FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL; `record` points to three 32-bit
 * words that are valid during the call. */
typedef void (*fwx_nat64_unsol_record_fn_t)(uint32_t op, const void *record);
/** Callback of unsolicited command 1. */
typedef void (*fwx_nat64_unsol_event_fn_t)(void);
/** The library's own handler of the server's unsolicited messages. */
typedef void (*fwx_nat64_unsol_hndlr_fn_t)(void *msg, size_t size);
/**
 * Flow-control callback. `may_send` is 0 when the channel has filled up to FWX_NAT64_FC_HIGH_BYTES, and 1 when it has
 * drained to FWX_NAT64_FC_LOW_BYTES again. This is advice: the library refuses no send because of it. After a channel
 * error, a call with 0 need not be followed by one with 1, because the next send opens a channel that is empty.
 */
typedef void (*fwx_nat64_throttle_fn_t)(uint32_t may_send, void *ctx);

/**
 * The PAL's reply callbacks; a null entry is skipped. Unsolicited command 3 calls `mapping_stats_cb` with a null
 * context, 0, 0, 1 and one fwx_nat64_stats_mapping_entry_t of kind FWX_NAT64_MAPPING_UNKNOWN, and ignores the return
 * value. A PAL that gives its own mapping queries a non-null context can distinguish the two.
 */
typedef struct {
    fwx_nat64_cfg_reply_fn_t cfg_reply_cb;      /**< configuration and MAP-T rule commands */
    fwx_nat64_sys_stats_fn_t sys_stats_cb;      /**< system statistics */
    fwx_nat64_intf_stats_fn_t intf_stats_cb;    /**< interface statistics */
    fwx_nat64_pool_stats_fn_t pool_stats_cb;    /**< pool statistics */
    fwx_nat64_intf_stats_fn_t limit_stats_cb;   /**< limit statistics */
    fwx_nat64_pool_stats_fn_t mapping_stats_cb; /**< mapping statistics, and unsolicited command 3 */
} fwx_nat64_reply_cbs_t;

/** The PAL's callbacks for unsolicited commands; a null entry is skipped. */
typedef struct {
    fwx_nat64_unsol_event_fn_t reserved;   /**< never called */
    fwx_nat64_unsol_record_fn_t record_cb; /**< command 0 */
    fwx_nat64_unsol_event_fn_t event_cb;   /**< command 1 */
} fwx_nat64_unsol_cbs_t;

struct fwx_chunk;
struct fwx_list;

/**
 * The state of a binding, shared with the PAL. The PAL may read every field, and may write only `throttle_cb` and
 * `throttle_ctx`. Field order and widths are part of the interface.
 */
typedef struct {
    void *ev_ctx;                           /**< owned: event context, freed with fwx_free_named */
    void *smc_ev;                           /**< owned: 8-byte cell with the messaging handle */
    struct fwx_chunk *clnt_ctx_chunk;       /**< owned: pool of client contexts */
    struct fwx_list *clnt_ctx_list;         /**< owned: outstanding contexts, ordered by creation or latest reply */
    void *rx_buf;                           /**< owned: receive buffer that the channel uses */
    uint64_t chan;                          /**< valid while `connected` */
    uint32_t epoch;                         /**< stamps every asynchronous message of this binding */
    uint32_t connected;                     /**< 1 while the channel is open and its handlers are attached */
    uint8_t client_id[4];                   /**< the PAL's identifier, interpreted by the server alone */
    fwx_nat64_reply_cbs_t reply_cb;         /**< as given at bind */
    fwx_nat64_unsol_cbs_t unsol_cb;         /**< as given at bind */
    fwx_nat64_unsol_hndlr_fn_t unsol_hndlr; /**< the library's handler of unsolicited commands */
    fwx_nat64_throttle_fn_t throttle_cb;    /**< set by the PAL; null after bind */
    void *throttle_ctx;                     /**< set by the PAL; passed to throttle_cb */
    uint32_t throttle_off_cnt;              /**< how often the channel drained to the low watermark */
    uint32_t throttle_on_cnt;               /**< how often the channel filled to the high watermark */
} fwx_nat64_client_info_t;

/**
 * Binds the PAL to the library: connects to the server, initialises the MAP-T rule table, registers with the classifier
 * manager, sends the init command and waits for the server's answer, and asks for unsolicited notifications.
 *
 * The library recognises replies to an earlier binding by their epoch, which it draws with random(). Seed random() once
 * in a process (srandom() with entropy from the system); otherwise every process has the same epochs.
 *
 * @param client_id   four bytes that identify the PAL to the server; null means four zero bytes. Copied.
 * @param ev_arg      the PAL's event argument (its loop). Required; must outlive the binding.
 * @param unsol_cbs   callbacks for unsolicited commands, or null. Copied.
 * @param reply_cbs   reply callbacks. Required. Copied.
 * @return 0; 22 for a null `ev_arg` or `reply_cbs`; 17 when already bound; 12, FWX_NAT64_ERR_NOMEM or
 *         FWX_NAT64_ERR_COMINGUP_NOMEM when memory is out; FWX_NAT64_ERR_AGAIN when the channel cannot be opened;
 *         FWX_NAT64_ERR_NOT_READY while the library is being unloaded, or when a callback ended the new binding;
 *         otherwise the code of the platform, or the result with which the server refused the init command.
 *
 * If the rule-table initialisation or the classifier registration fails, the library stays bound: call fwx_nat64_unbind
 * before binding again. Code 17 leaves the existing binding unchanged. After every other failure the library is
 * unbound.
 */
uint32_t fwx_nat64_bind(const void *client_id, void *ev_arg, const fwx_nat64_unsol_cbs_t *unsol_cbs,
                        const fwx_nat64_reply_cbs_t *reply_cbs);

/**
 * Ends the binding, also from inside a callback. Outstanding commands are discarded without a callback; a PAL that
 * needs to know them keeps its own count. The server may still carry out commands that were sent. The completions of
 * their messages still arrive through the loop, and free the message buffers. Does nothing while unbound.
 */
void fwx_nat64_unbind(void);

/** Returns the state of the binding, or null while unbound. The library owns it and frees it at unbind. */
fwx_nat64_client_info_t *fwx_nat64_client_info_get(void);

/** Reads the debug environment variables (fwx_nat64/debug.h) at the first call after the library is loaded; bind calls
 * it. */
void fwx_nat64_clnt_init(void);

/**
 * Flushes: reports every outstanding command to its callback as failed (FWX_NAT64_ERR_AGAIN, or empty results) and
 * releases it, whether the server has carried it out or not. Runs by itself when the library is unloaded while bound.
 *
 * The callbacks come in the order of the list of outstanding commands. A flushed classifier command calls
 * `cfg_reply_cb` with the classifier manager's context instead of the PAL's: do not dereference a context that you do
 * not know.
 *
 * While the flushed binding is still bound, a callback of the flush that sends is refused with FWX_NAT64_ERR_NOT_READY;
 * the PAL sends again after the flush. A callback may unbind, and then bind and send. During an unload everything is
 * refused, including bind.
 *
 * @return 0 when nothing is outstanding any more, or the list service's code; the rest of the list is then unchanged.
 */
uint32_t fwx_nat64_clnt_cleanup(void);

/**
 * Creates the event context of a client info (messaging handle and event context) and makes it the current one. Bind
 * calls it.
 *
 * @param ev_arg the PAL's event argument.
 * @param info   receives `smc_ev` and `ev_ctx`.
 * @return 0; 12 when memory is out; or the platform's code. `smc_ev` is null after a failure.
 */
uint32_t fwx_nat64_client_ev_setup(void *ev_arg, fwx_nat64_client_info_t *info);

/** Releases what fwx_nat64_client_ev_setup created. Accepts a partly set-up client info, and may be called twice. */
void fwx_nat64_client_ev_teardown(fwx_nat64_client_info_t *info);

/**
 * Asks the server for its unsolicited notifications. Bind and every reconnection call it.
 * @return 0 when handed to the channel; otherwise the codes of fwx_nat64_client_async_cmd_init and _send.
 */
uint32_t fwx_nat64_client_unsol_setup_send_a(void);

/**
 * Creates the context list, receive buffer and context pool of a client info, draws its epoch and connects to the
 * server. Bind calls it.
 *
 * @param info the published client info, the one that fwx_nat64_client_info_get returns.
 * @return 0; FWX_NAT64_ERR_COMINGUP_NO_INFO for null; FWX_NAT64_ERR_COMINGUP_NOMEM; FWX_NAT64_ERR_AGAIN when the
 *         channel cannot be opened; or the platform's code. After a failure nothing stays allocated; list, pool and
 *         receive buffer are null.
 */
uint32_t fwx_nat64_client_comingup(fwx_nat64_client_info_t *info);

/**
 * Undoes fwx_nat64_client_comingup: closes the channel and discards outstanding commands without a callback. Afterwards
 * list, pool and receive buffer are null, and commands are refused with FWX_NAT64_ERR_NOT_READY. Null is ignored.
 */
void fwx_nat64_client_goingdown(fwx_nat64_client_info_t *info);

/**
 * Sends the asynchronous init command. Every reconnection calls it, without context and callback.
 * @param info    the client info whose identifier is sent.
 * @param pal_ctx passed to the callback.
 * @param cb_func a fwx_nat64_cfg_reply_fn_t, or null.
 * @return 0 when handed to the channel; otherwise the codes of fwx_nat64_client_async_cmd_init and _send.
 */
uint32_t fwx_nat64_client_init_cmd_send_a(fwx_nat64_client_info_t *info, void *pal_ctx, void *cb_func);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
