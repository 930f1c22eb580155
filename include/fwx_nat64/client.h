/** @file
 * Binding to the NAT64 client library: the client info, the PAL's callbacks, and the life of a binding.
 *
 * Calling context of everything here: the thread that runs the event loop given to fwx_nat64_bind, never two calls at
 * the same time; the library takes no lock.
 *
 * Callbacks come from that loop, or from inside a call that is on its way: fwx_nat64_clnt_cleanup, and a synchronous
 * command on a platform that delivers other replies while it waits; they can nest then. A further reply to a query that
 * arrives inside that query's own callback is dropped. A callback may call everything: asynchronous and synchronous
 * commands, fwx_nat64_unbind, fwx_nat64_bind after it, and fwx_nat64_clnt_cleanup, whose comment says what a flush
 * refuses. It must return: an exception or a longjmp out of it would leave the library's stack frames behind. Once a
 * callback has ended its binding, the library touches nothing of that binding any more.
 *
 * Unloading: unbind, run the loop until it is idle, then unload. Completions of messages, classifier notifications and
 * replies call into the library, so unloading it while one may still come is a crash. An unload while bound flushes
 * what is outstanding, and nothing else.
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
 * The messaging channel on which the server is found. Who serves it is the platform's to say. On the host platform that
 * is a server in the same process, unless the PAL names another process before it binds:
 * `fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, "alpha")` (fwx_host/smc.h) for the server that listens as alpha, such
 * as `natctl serve alpha`. A server that has died is found again, under its name, by the next send that there is. What
 * it had taken stays outstanding: a PAL that sees `connected` 0 in its client info flushes it (fwx_nat64_clnt_cleanup).
 */
#define FWX_NAT64_CHANNEL_NAME "fwx_cp"

/* Flow control: the marks of the channel, in bytes that it has accepted and the server has not taken yet. */
#define FWX_NAT64_FC_HIGH_BYTES 10485760u /**< at or above this the PAL is told to stop */
#define FWX_NAT64_FC_LOW_BYTES 10240u     /**< at or below this it is told to go on */

/*
 * A PAL that sends in a loop hears of a full channel only when it lets its event loop run, since `throttle_cb` is
 * called from there. Until then the channel accepts more, and then refuses what is sent with the platform's code, on
 * the host platform FWX_HOST_ERR_FULL. So a sender stops at a refusal, lets the loop run, and sends the same command
 * again:
 *
 *     while (next < count) {
 *         const uint32_t code = fwx_nat64_pool_set_a(FWX_NAT64_OP_ADD, &pools[next], NULL);
 *         if (code == 0) ++next;
 *         if (code != 0 && code != FWX_HOST_ERR_FULL && !fwx_nat64_may_retry(code)) return code;
 *         if (code != 0 || may_send == 0) fwx_host_loop_run_once(loop, 1000); // may_send: as throttle_cb was told last
 *     }
 */

/** The library's identifier towards the classifier manager. */
#define FWX_NAT64_CGM_CLIENT_ID 20u

/* The classifier manager's operations that the library takes; every other one is refused. */
#define FWX_NAT64_CGM_OP_END_BATCH 2u         /**< the end of a batch, sent on to the server */
#define FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE 4u /**< an update of a classifier, sent on to the server */
#define FWX_NAT64_CGM_OP_IGNORED 5u           /**< accepted, and nothing is done */

/**
 * System statistics. What is said here holds for every query callback.
 * @param pal_ctx the context given with the query.
 * @param count   not 0 while further replies to this query follow, 0 with the last. It counts nothing else.
 * @param data    valid during the call: one fwx_nat64_stats_sys_entry_t (fwx_nat64/wire.h), with the other callbacks
 *                as many entries as a value says. Nothing tells how many bytes are there; the PAL trusts its server.
 * @return 0, or anything else to have the further replies to this query consumed without a call.
 *
 * A query that was refused or flushed is told once, with `count` and the number of entries 0 and `data` null or
 * without meaning: save for the system statistics, a refusal looks like an answer without entries.
 */
typedef uint32_t (*fwx_nat64_sys_stats_fn_t)(void *pal_ctx, uint32_t count, void *data);
/** Interface statistics (`value` fwx_nat64_stats_intf_entry_t at `data`) and limits (`value`
 * fwx_nat64_stats_limit_entry_t). */
typedef uint32_t (*fwx_nat64_intf_stats_fn_t)(void *pal_ctx, uint32_t count, uint32_t value, void *data);
/**
 * Pool statistics (`value2` fwx_nat64_stats_pool_entry_t at `data`) and mapping statistics (`value2`
 * fwx_nat64_stats_mapping_entry_t). `value` is the cookie to go on with in the next query, 0 when the list is
 * complete; it has no meaning when there are no entries.
 */
typedef uint32_t (*fwx_nat64_pool_stats_fn_t)(void *pal_ctx, uint32_t count, uint64_t value, uint32_t value2,
                                              void *data);
/**
 * Verdict on a configuration or MAP-T rule command; fwx_nat64/mapt.h says what a verdict on a rule is. `result` lives
 * during the call. Its `pal_ctx` is the classifier manager's when a classifier command is flushed
 * (fwx_nat64_clnt_cleanup).
 */
typedef void (*fwx_nat64_cfg_reply_fn_t)(fwx_nat64_cmd_result_t *result);
/** Unsolicited command 0: `op` is FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL, `record` three 32-bit words that live during
 * the call. */
typedef void (*fwx_nat64_unsol_record_fn_t)(uint32_t op, const void *record);
/** Unsolicited command 1. */
typedef void (*fwx_nat64_unsol_event_fn_t)(void);
/** Receiver of the server's unsolicited messages inside the library. */
typedef void (*fwx_nat64_unsol_hndlr_fn_t)(void *msg, size_t size);
/**
 * Flow control: `may_send` is 0 when the channel has filled up to FWX_NAT64_FC_HIGH_BYTES and 1 when it is down to
 * FWX_NAT64_FC_LOW_BYTES again. It is advice; the library refuses nothing by it. After a channel error no call with 1
 * need follow one with 0: the next send opens a channel that is empty.
 */
typedef void (*fwx_nat64_throttle_fn_t)(uint32_t may_send, void *ctx);

/**
 * The PAL's reply callbacks; a null entry is skipped. Unsolicited command 3 calls `mapping_stats_cb` with a null
 * context, 0, 0, 1 and one fwx_nat64_stats_mapping_entry_t of kind FWX_NAT64_MAPPING_UNKNOWN, and does not look at what
 * it returns: a PAL that gives its own mapping queries a context can tell the two.
 */
typedef struct {
    fwx_nat64_cfg_reply_fn_t cfg_reply_cb;      /**< configuration and MAP-T rule commands */
    fwx_nat64_sys_stats_fn_t sys_stats_cb;      /**< system statistics */
    fwx_nat64_intf_stats_fn_t intf_stats_cb;    /**< interface statistics */
    fwx_nat64_pool_stats_fn_t pool_stats_cb;    /**< pool statistics */
    fwx_nat64_intf_stats_fn_t limit_stats_cb;   /**< limit statistics */
    fwx_nat64_pool_stats_fn_t mapping_stats_cb; /**< mapping statistics and, unasked, unsolicited command 3 */
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
 * The state of a binding, shared with the PAL. The PAL may read all of it and may write `throttle_cb` and
 * `throttle_ctx`. Field order and widths are part of the interface.
 */
typedef struct {
    void *ev_ctx;                           /**< owned: event context, goes back through fwx_free_named */
    void *smc_ev;                           /**< owned: 8-byte cell with the messaging handle */
    struct fwx_chunk *clnt_ctx_chunk;       /**< owned: pool of client contexts */
    struct fwx_list *clnt_ctx_list;         /**< owned: outstanding client contexts, in order of creation; a
                                                 query that goes on moves to the end */
    void *rx_buf;                           /**< owned, lent to the channel */
    uint64_t chan;                          /**< valid while `connected` */
    uint32_t epoch;                         /**< stamps every asynchronous message of this binding */
    uint32_t connected;                     /**< 1 while the channel is open and its handlers are attached */
    uint8_t client_id[4];                   /**< the PAL's identifier, the server's to read */
    fwx_nat64_reply_cbs_t reply_cb;         /**< as given at bind */
    fwx_nat64_unsol_cbs_t unsol_cb;         /**< as given at bind */
    fwx_nat64_unsol_hndlr_fn_t unsol_hndlr; /**< the library's, called for unsolicited commands */
    fwx_nat64_throttle_fn_t throttle_cb;    /**< the PAL's, null after bind */
    void *throttle_ctx;                     /**< the PAL's, handed to throttle_cb */
    uint32_t throttle_off_cnt;              /**< times that the channel had room again */
    uint32_t throttle_on_cnt;               /**< times that the channel was full */
} fwx_nat64_client_info_t;

/**
 * Binds the PAL to the library: connects to the server, initialises the MAP-T rule table, registers with the classifier
 * manager, waits for the server's answer to the init command and asks for unsolicited notifications.
 *
 * Replies to an earlier binding are told by the epoch, which is drawn with random(): seed it once in a process
 * (srandom() with something of the system's), or every process has the same epochs.
 *
 * @param client_id   four bytes that identify the PAL to the server; null stands for four zero bytes. Copied.
 * @param ev_arg      the PAL's event argument (its loop). Required; must outlive the binding.
 * @param unsol_cbs   callbacks for unsolicited commands, or null. Copied.
 * @param reply_cbs   reply callbacks. Required. Copied.
 * @return 0; 22 for a null `ev_arg` or `reply_cbs`; 17 when already bound; 12 without memory;
 * FWX_NAT64_ERR_COMINGUP_NOMEM; FWX_NAT64_ERR_AGAIN when the channel cannot be opened; else the code of the platform or
 * the server's refusal. After a failed rule-table initialisation or classifier registration the library stays bound:
 * call fwx_nat64_unbind before binding again. After every other failure it is unbound. Refused while the library is
 * being unloaded.
 */
uint32_t fwx_nat64_bind(const void *client_id, void *ev_arg, const fwx_nat64_unsol_cbs_t *unsol_cbs,
                        const fwx_nat64_reply_cbs_t *reply_cbs);

/**
 * Ends the binding, also from inside a callback. Outstanding commands are discarded without a callback; a PAL that must
 * know them keeps its own count. The server may carry out what it has been sent. Completions of messages still come
 * from the loop and give back their buffers. Does nothing while unbound.
 */
void fwx_nat64_unbind(void);

/** The state of the binding, or null while unbound. It stays the library's and ends with unbind. */
fwx_nat64_client_info_t *fwx_nat64_client_info_get(void);

/** Reads the debug environment at its first call in the life of the loaded library; bind calls it. */
void fwx_nat64_clnt_init(void);

/**
 * Flushes: reports every outstanding command to its callback as failed (FWX_NAT64_ERR_AGAIN, or empty results) and
 * releases it, whether the server has carried it out or not. Runs by itself when the library is unloaded while bound.
 *
 * The callbacks come in the order of the list of outstanding commands. A classifier command that is flushed calls
 * `cfg_reply_cb` with the classifier manager's context, not the PAL's: do not dereference a context that you do not
 * know.
 *
 * A callback of the flush that sends again is refused with FWX_NAT64_ERR_NOT_READY while the binding that is flushed is
 * still bound; it sends again when the flush is over. A callback may unbind, and then bind and send. During an unload
 * everything is refused, binding too.
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
 * channel cannot be opened; or the platform's code. Nothing stays allocated after a failure; list, pool and receive
 * buffer are null then.
 */
uint32_t fwx_nat64_client_comingup(fwx_nat64_client_info_t *info);

/**
 * Undoes fwx_nat64_client_comingup: closes the channel and discards outstanding commands without a callback. List, pool
 * and receive buffer are null afterwards, and commands are refused with FWX_NAT64_ERR_NOT_READY. Null is ignored.
 */
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
