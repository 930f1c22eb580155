/* The handlers of everything that the server sends, and the table that binds them to message numbers. */
#ifndef TRANSPORT_HANDLERS_H
#define TRANSPORT_HANDLERS_H

#include "platform/smc.h"
#include "transport/context.h"

typedef struct {
    uint32_t msgno;
    smc_msg_handler_fn_t sync_hndlr;
    smc_msg_handler_fn_t async_hndlr;
} fwx_nat64_msg_hndlr_t;

/** One entry a message number, in order; the entry of FWX_NAT64_MSG_MAX ends it. */
extern const fwx_nat64_msg_hndlr_t fwx_nat64_msg_hndlr_tbl[15];

/* Handlers in the messaging service's shape; the first two arguments are not used. */

/** Results of commands: type 0. */
void fwx_nat64_async_rc_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Unsolicited notifications: type 1. */
void fwx_nat64_async_unsol_notify_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Answers of queries, walks and MAP-T rule commands: types 4 to 9 and 13. */
void fwx_nat64_async_rsp_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Answers to classifier commands: types 10 and 11. */
void fwx_nat64_async_cgm_reply_svr(void *arg1, void *arg2, void *msg, size_t size);

#endif
