/** @file
 * Commands as messages: header, message numbers, and the functions that frame and send them.
 *
 * A command is framed in a transmit buffer, filled in place behind its header and sent. Byte order on the wire is the
 * host's. Calling context: the thread that runs the event loop of the binding, never two calls at the same time; from
 * inside callbacks too, save that a flush refuses to frame (fwx_nat64_clnt_cleanup).
 *
 * Not supported: taking back a framed asynchronous command (sending it is the only public way to release it); time
 * limits for answers, a command is outstanding until its reply, a failed completion, or the end of the binding.
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

/* The type word: the form in the upper bits, the message number in the lower twelve. */
#define FWX_NAT64_MSG_ASYNC 0xc000u       /**< asynchronous */
#define FWX_NAT64_MSG_SYNC 0x8000u        /**< synchronous */
#define FWX_NAT64_MSG_NUMBER_MASK 0x0fffu /**< the message number */
/** The domain of every message. */
#define FWX_NAT64_MSG_DOMAIN 96u

#define FWX_NAT64_MSG_RESULT 0u            /**< result of a command */
#define FWX_NAT64_MSG_UNSOL_SETUP 1u       /**< from the server: an unsolicited notification */
#define FWX_NAT64_MSG_INIT 2u              /**< announces the PAL */
#define FWX_NAT64_MSG_CONFIG 3u            /**< configuration command */
#define FWX_NAT64_MSG_STATS_SYS 4u         /**< system statistics */
#define FWX_NAT64_MSG_STATS_INTF 5u        /**< interface statistics */
#define FWX_NAT64_MSG_STATS_POOL_ALL 6u    /**< pool statistics */
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
    uint64_t clnt_ctx;     /**< the library's; the server echoes it in its reply */
    uint32_t epoch;        /**< the binding's; the server echoes it in its reply */
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

/** What a command's callback gets. */
typedef struct {
    uint32_t result; /**< 0, the server's code, with MAP-T rules the rule table's, or FWX_NAT64_ERR_AGAIN: flushed */
    void *pal_ctx;   /**< as given with the command, or the classifier manager's */
} fwx_nat64_cmd_result_t;

/**
 * Frames an asynchronous command and enters it in the list of outstanding commands.
 *
 * @param size    bytes of the whole message, at least 32; not checked.
 * @param msgno   message number, FWX_NAT64_MSG_; not checked.
 * @param pal_ctx handed back to the callback, never dereferenced.
 * @param cb_func callback of the shape that belongs to the message number, or null. Session walks go through
 *                fwx_nat64_session_walk_a alone: their contexts carry a record of the library in its place.
 * @param msg     receives the framed message; the body from offset 32 on is the caller's to fill.
 * @return 0; FWX_NAT64_ERR_NOT_READY, which comes first, while unbound or after going down, and from inside a flush;
 * FWX_NAT64_ERR_BAD_ARG for a null `msg`; FWX_NAT64_ERR_NOMEM. Nothing stays allocated after a failure.
 */
uint32_t fwx_nat64_client_async_cmd_init(size_t size, uint32_t msgno, void *pal_ctx, void *cb_func, void **msg);

/**
 * Sends a framed command; a channel that is down is opened again first, and gets the two initial commands before this
 * one. The message is no longer the caller's, whatever the result.
 *
 * @param msg  from fwx_nat64_client_async_cmd_init.
 * @param size the size it was framed with.
 * @return 0 when handed to the channel: the callback will be called, unless the binding ends before. After every other
 * result it will not be called any more: FWX_NAT64_ERR_BAD_ARG for a null `msg`; FWX_NAT64_ERR_AGAIN when the channel
 * cannot be opened, or goes down again while it gets its initial commands; FWX_NAT64_ERR_NOT_READY when the binding of
 * the message has ended, or when the command was flushed after it was framed: the binding stands then, and the flush
 * has already told the callback, so do not account for the command twice; else the messaging service's code.
 */
uint32_t fwx_nat64_client_async_cmd_send(void *msg, size_t size);

/**
 * Frames a synchronous command.
 *
 * @param size  bytes of the whole message, at least 16; not checked.
 * @param msgno message number, FWX_NAT64_MSG_; not checked.
 * @param msg   receives the framed message; the body from offset 16 on is the caller's to fill.
 * @return 0; FWX_NAT64_ERR_NOT_READY; FWX_NAT64_ERR_BAD_ARG for a null `msg`; FWX_NAT64_ERR_NOMEM.
 */
uint32_t fwx_nat64_client_sync_cmd_init(size_t size, uint32_t msgno, void **msg);

/**
 * Sends a synchronous command and waits for its result. A platform may deliver other replies meanwhile, and so call
 * the PAL's callbacks. The message is no longer the caller's, save after FWX_NAT64_ERR_BAD_ARG.
 * @return the server's result; FWX_NAT64_ERR_BAD_ARG for a null `msg`; FWX_NAT64_ERR_NOT_READY; FWX_NAT64_ERR_AGAIN; or
 *         the messaging service's code.
 */
uint32_t fwx_nat64_client_sync_cmd_send(void *msg, size_t size);

/**
 * As fwx_nat64_client_sync_cmd_send, with the whole reply for the caller.
 * @param msg      from fwx_nat64_client_sync_cmd_init.
 * @param size     the size it was framed with.
 * @param rsp      receives the reply: 16 bytes of header, the result at offset 16, then data of the command.
 * @param rsp_size bytes at `rsp`, at least 20.
 * @return as fwx_nat64_client_sync_cmd_send; FWX_NAT64_ERR_BAD_ARG also for a null or too small `rsp`, the message then
 *         stays the caller's.
 */
uint32_t fwx_nat64_client_sync_cmd_rsp_send(void *msg, size_t size, void *rsp, size_t rsp_size);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
