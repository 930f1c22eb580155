/** @file
 * Result codes of the NAT64 client library.
 *
 * Every operation that can fail returns a uint32_t: 0 for success, one of the codes below, a plain errno value (12, 17,
 * 22) where the function's comment says so, or a code of the platform or the server, passed on unchanged.
 */
#ifndef FWX_NAT64_RESULT_H
#define FWX_NAT64_RESULT_H

#include <stdint.h>

/** The channel could not be opened, or went down while the initial commands were sent. Also the verdict on a command
 * that was flushed (fwx_nat64_clnt_cleanup), whose send failed after the call had returned, or that was outstanding at
 * an unload. The server may have carried out such a command. */
#define FWX_NAT64_ERR_AGAIN 0x4030020bu
/** No client context, transmit buffer or list entry could be allocated for a command. */
#define FWX_NAT64_ERR_NOMEM 0x4030020cu
/** The library is not bound, the message belongs to an earlier binding, or a flush is in progress. */
#define FWX_NAT64_ERR_NOT_READY 0x4030020du
/** An argument of a command was rejected. */
#define FWX_NAT64_ERR_INVALID 0x40300216u
/** A null message or out-pointer, or a reply buffer that is too small, given to the transport. */
#define FWX_NAT64_ERR_BAD_ARG 0x40300616u
/** fwx_nat64_client_comingup could not create the receive buffer or the client-context pool. */
#define FWX_NAT64_ERR_COMINGUP_NOMEM 0xa030060cu
/** fwx_nat64_client_comingup got no client info. */
#define FWX_NAT64_ERR_COMINGUP_NO_INFO 0xa030060du
/** The library does not handle this classifier notification, or the notification lacks its data. */
#define FWX_NAT64_ERR_CGM_INVALID 0xa0300216u
/** The table (of pending or of installed rules) already has a rule with this Rule ID and Domain ID. */
#define FWX_NAT64_ERR_EXISTS 0xa0300611u
/** The table (of pending or of installed rules) has no such rule. */
#define FWX_NAT64_ERR_NOT_FOUND 0xa0300602u
/** A leaf could not be inserted, or a rule could not be deleted from every complex. */
#define FWX_NAT64_ERR_PLU_FAILED 0xa0300616u

/** X-macro of every code above with its text: X(code, text). */
#define FWX_NAT64_RESULTS(X)                                                               \
    X(FWX_NAT64_ERR_AGAIN, "server not reachable, try again")                              \
    X(FWX_NAT64_ERR_NOMEM, "out of memory for a command")                                  \
    X(FWX_NAT64_ERR_NOT_READY, "client not bound")                                         \
    X(FWX_NAT64_ERR_INVALID, "invalid argument of a command")                              \
    X(FWX_NAT64_ERR_BAD_ARG, "null message or result pointer")                             \
    X(FWX_NAT64_ERR_COMINGUP_NOMEM, "out of memory while coming up")                       \
    X(FWX_NAT64_ERR_COMINGUP_NO_INFO, "coming up without client info")                     \
    X(FWX_NAT64_ERR_CGM_INVALID, "classifier notification not served or without its data") \
    X(FWX_NAT64_ERR_EXISTS, "rule already in the rule table")                              \
    X(FWX_NAT64_ERR_NOT_FOUND, "rule not in the rule table")                               \
    X(FWX_NAT64_ERR_PLU_FAILED, "rule not programmed in every lookup subtable")

/**
 * Returns 1 if the code says that the same call may succeed later, because the server cannot be reached now or memory
 * is out, else 0. As the verdict on a command, FWX_NAT64_ERR_AGAIN does not say whether the server has carried the
 * command out. The function knows no platform codes: on the host platform FWX_HOST_ERR_FULL may be retried too
 * (fwx_nat64/client.h, flow control).
 */
static inline int fwx_nat64_may_retry(uint32_t code) {
    return code == FWX_NAT64_ERR_AGAIN || code == FWX_NAT64_ERR_NOMEM || code == FWX_NAT64_ERR_COMINGUP_NOMEM ||
           code == 12; /* ENOMEM */
}

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Returns the platform's text for any code: those above, its own and errno values; never null. On the host platform
 * fwx_host_error_text_add (fwx_host/errors.h) adds texts of a server's codes, such as those of
 * fwx_nat64/server_result.h. */
const char *xerr_strerror(uint32_t code);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
