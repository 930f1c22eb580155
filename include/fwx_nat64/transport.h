/** @file
 * Commands as messages: their header and numbers, and the functions that frame and send them.
 *
 * A command is framed in a transmit buffer, its body is filled in place behind the header, and then it is sent. Byte
 * order on the wire is the host's.
 *
 * Calling context: the thread that runs the event loop of the binding, never two calls at the same time. Calls from
 * inside callbacks are allowed, but while a flush is in progress nothing can be framed (fwx_nat64_clnt_cleanup).
 *
 * Not supported: releasing a framed asynchronous command without sending it (sending is the only public way to release
 * it); time limits for answers (a command is outstanding until its reply, a failed completion, or the end of the
 * binding).
 */
#ifndef FWX_NAT64_TRANSPORT_H
#define FWX_NAT64_TRANSPORT_H

#include <stddef.h>
#include <stdint.h>

#include "fwx_nat64/layout.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The type word: the form of the message in the upper four bits, the message number in the lower twelve. */
#define FWX_NAT64_MSG_ASYNC 0xc000u       /**< asynchronous */
#define FWX_NAT64_MSG_SYNC 0x8000u        /**< synchronous */
#define FWX_NAT64_MSG_NUMBER_MASK 0x0fffu /**< the message number */
/** The domain of every message. */
#define FWX_NAT64_MSG_DOMAIN 96u

#define FWX_NAT64_MSG_RESULT 0u         /**< result of a command */
#define FWX_NAT64_MSG_UNSOL_SETUP 1u    /**< to the server: asks for unsolicited notifications; from it: one of them */
#define FWX_NAT64_MSG_INIT 2u           /**< announces the PAL */
#define FWX_NAT64_MSG_CONFIG 3u         /**< configuration command */
#define FWX_NAT64_MSG_STATS_SYS 4u      /**< system statistics */
#define FWX_NAT64_MSG_STATS_INTF 5u     /**< interface statistics */
#define FWX_NAT64_MSG_STATS_POOL_ALL 6u /**< pool statistics */
#define FWX_NAT64_MSG_STATS_MAPPING_ALL 7u /**< mapping statistics */
#define FWX_NAT64_MSG_STATS_LIMIT_ALL 8u   /**< limit statistics */
#define FWX_NAT64_MSG_SESSION_WALK 9u      /**< session walk */
#define FWX_NAT64_MSG_CGM_REPLY 10u        /**< result of the end of a classifier batch */
#define FWX_NAT64_MSG_CGM_REPLY2 11u       /**< result of a classifier update */
#define FWX_NAT64_MSG_PAL_CMD_Q_RESUME 12u /**< answers a wakeup of the command queue */
#define FWX_NAT64_MSG_MAPT_RULE 13u        /**< MAP-T rule */
#define FWX_NAT64_MSG_MAX 14u              /**< one above the last number */

/** Header of an asynchronous message in either direction; the body follows. */
typedef struct {
    uint16_t type;         /**< FWX_NAT64_MSG_ASYNC | message number */
    uint16_t domain;       /**< FWX_NAT64_MSG_DOMAIN */
    uint8_t reserved4[12]; /**< reserved */
    uint64_t clnt_ctx;     /**< set by the library; the server echoes it in its reply */
    uint32_t epoch;        /**< epoch of the binding; the server echoes it in its reply */
    uint8_t reserved28[4]; /**< reserved */
} fwx_nat64_msg_hdr_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_msg_hdr_t, 32);
FWX_NAT64_WIRE_AT(fwx_nat64_msg_hdr_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_msg_hdr_t, domain, 2);
FWX_NAT64_WIRE_AT(fwx_nat64_msg_hdr_t, clnt_ctx, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_msg_hdr_t, epoch, 24);

/** Header of a synchronous message in either direction: the first 16 bytes of the asynchronous one. */
typedef struct {
    uint16_t type;         /**< FWX_NAT64_MSG_SYNC | message number */
    uint16_t domain;       /**< FWX_NAT64_MSG_DOMAIN */
    uint8_t reserved4[12]; /**< reserved */
} fwx_nat64_sync_hdr_t;
FWX_NAT64_WIRE_SIZE(fwx_nat64_sync_hdr_t, 16);
FWX_NAT64_WIRE_AT(fwx_nat64_sync_hdr_t, type, 0);
FWX_NAT64_WIRE_AT(fwx_nat64_sync_hdr_t, domain, 2);

/** Argument of a command callback (fwx_nat64_cfg_reply_fn_t). */
typedef struct {
    uint32_t result; /**< 0 or the server's code; MAP-T rule: the rule table's; flushed: FWX_NAT64_ERR_AGAIN */
    void *pal_ctx;   /**< as given with the command; of a flushed classifier command the manager's */
} fwx_nat64_cmd_result_t;

/**
 * Frames an asynchronous command and appends it to the list of outstanding commands.
 *
 * @param size    bytes of the whole message, at least 32; not checked.
 * @param msgno   message number, FWX_NAT64_MSG_*; not checked.
 * @param pal_ctx passed to the callback, never dereferenced.
 * @param cb_func callback of the type that belongs to the message number, or null. Frame session walks with
 *                fwx_nat64_session_walk_a only, because their contexts hold a record of the library instead of a
 *                callback.
 * @param msg     receives the framed message; the caller fills the body, from offset 32 on.
 * @return 0; FWX_NAT64_ERR_NOT_READY, checked first, while unbound, after fwx_nat64_client_goingdown, and during a
 *         flush; FWX_NAT64_ERR_BAD_ARG for a null `msg`; FWX_NAT64_ERR_NOMEM. Nothing stays allocated after a failure.
 */
uint32_t fwx_nat64_client_async_cmd_init(size_t size, uint32_t msgno, void *pal_ctx, void *cb_func, void **msg);

/**
 * Sends a framed command. If the channel is down, it is reopened first and gets the two initial commands before this
 * one. The call takes ownership of the message, whatever the result.
 *
 * After 0 the message was handed to the channel and the callback will be called, unless the binding ends before. After
 * every other result the callback will not be called any more.
 *
 * @param msg  from fwx_nat64_client_async_cmd_init.
 * @param size the size it was framed with.
 * @return 0; FWX_NAT64_ERR_BAD_ARG for a null `msg`; FWX_NAT64_ERR_AGAIN when the channel cannot be opened, or goes
 *         down again while the initial commands are sent; FWX_NAT64_ERR_NOT_READY when the binding of the message has
 *         ended, or when the command was flushed after it was framed; or the messaging service's code. In the flushed
 *         case the binding continues, and the flush has already called the callback, so do not count the command twice.
 */
uint32_t fwx_nat64_client_async_cmd_send(void *msg, size_t size);

/**
 * Frames a synchronous command.
 *
 * @param size  bytes of the whole message, at least 16; not checked.
 * @param msgno message number, FWX_NAT64_MSG_*; not checked.
 * @param msg   receives the framed message; the caller fills the body, from offset 16 on.
 * @return 0; FWX_NAT64_ERR_NOT_READY; FWX_NAT64_ERR_BAD_ARG for a null `msg`; FWX_NAT64_ERR_NOMEM.
 */
uint32_t fwx_nat64_client_sync_cmd_init(size_t size, uint32_t msgno, void **msg);

/**
 * Sends a synchronous command and waits for its result. Meanwhile a platform may deliver other replies, and so call the
 * PAL's callbacks. The call takes ownership of the message, except after FWX_NAT64_ERR_BAD_ARG.
 * @param msg  from fwx_nat64_client_sync_cmd_init.
 * @param size the size it was framed with.
 * @return the server's result; FWX_NAT64_ERR_BAD_ARG for a null `msg`; FWX_NAT64_ERR_NOT_READY; FWX_NAT64_ERR_AGAIN; or
 *         the messaging service's code.
 */
uint32_t fwx_nat64_client_sync_cmd_send(void *msg, size_t size);

/**
 * As fwx_nat64_client_sync_cmd_send, but returns the whole reply to the caller.
 * @param msg      from fwx_nat64_client_sync_cmd_init.
 * @param size     the size it was framed with.
 * @param rsp      receives the reply: 16 bytes of header, the result at offset 16, then data of the command.
 * @param rsp_size bytes at `rsp`, at least 20.
 * @return as fwx_nat64_client_sync_cmd_send. FWX_NAT64_ERR_BAD_ARG also for a null or too small `rsp`; the caller then
 *         keeps the message.
 */
uint32_t fwx_nat64_client_sync_cmd_rsp_send(void *msg, size_t size, void *rsp, size_t rsp_size);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
