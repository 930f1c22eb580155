/* What is true of each message number, one row each: the attaching of handlers, the handlers and the flush read it
 * here. */
#ifndef TRANSPORT_HANDLER_TABLE_H
#define TRANSPORT_HANDLER_TABLE_H

#include "platform/smc.h"
#include "transport/delivery.h"

/** The client context's `cmd` and a message's number lead to the same row. */
typedef struct {
    uint32_t msgno;
    smc_msg_handler_fn_t sync_hndlr;      /* null for all: a synchronous send takes its answer itself */
    smc_msg_handler_fn_t async_hndlr;     /* of what the server sends under this number; null: nothing is taken */
    size_t least_bytes;                   /* of such a message */
    size_t least_refusal_bytes;           /* of one with a non-zero result, when it tells the PAL all it has to */
    deliver_fn_t deliver;                 /* how a reply with data reaches the PAL; null: there are none */
    deliver_failure_fn_t deliver_failure; /* how a command that fails reaches the PAL; null: it has no callback */
    bool is_query;                        /* its callback takes statistics or sessions, and no bare result */
    bool owns_walk;                       /* its context's `cb_func` is a session-walk record of its own */
} fwx_nat64_msg_hndlr_t;

/** In the order of the numbers; the row of FWX_NAT64_MSG_MAX ends it and stands for every number that is none. */
extern const fwx_nat64_msg_hndlr_t fwx_nat64_msg_hndlr_tbl[FWX_NAT64_MSG_MAX + 1];

static inline const fwx_nat64_msg_hndlr_t &msg_row(uint32_t msgno) {
    return fwx_nat64_msg_hndlr_tbl[msgno < FWX_NAT64_MSG_MAX ? msgno : FWX_NAT64_MSG_MAX];
}

/* The handlers, in the messaging service's shape; the first two arguments are not used. */

/** Results of commands: type 0. */
void fwx_nat64_async_rc_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Unsolicited notifications: type 1. */
void fwx_nat64_async_unsol_notify_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Answers of queries, walks and MAP-T rule commands: types 4 to 9 and 13. */
void fwx_nat64_async_rsp_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Answers to classifier commands: types 10 and 11. */
void fwx_nat64_async_cgm_reply_svr(void *arg1, void *arg2, void *msg, size_t size);

#endif
