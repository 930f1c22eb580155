/* The properties of each message number, one row each. The code that attaches handlers, the handlers and the flush read
 * them here. */
#ifndef TRANSPORT_HANDLER_TABLE_H
#define TRANSPORT_HANDLER_TABLE_H

#include "platform/smc.h"
#include "transport/delivery.h"

/** One row. The `cmd` of a client context and the number of a message select the same row. */
typedef struct {
    uint32_t msgno;
    smc_msg_handler_fn_t sync_hndlr;      /* always null: a synchronous send receives its answer itself */
    smc_msg_handler_fn_t async_hndlr;     /* handler of messages from the server; null: none are accepted */
    size_t least_bytes;                   /* minimum length of such a message */
    size_t least_refusal_bytes;           /* minimum length of a refusal that `deliver` takes */
    deliver_fn_t deliver;                 /* delivers a reply with data; null: there are none */
    deliver_failure_fn_t deliver_failure; /* reports a failed command; null: it has no callback */
    bool is_query;                        /* its callback takes statistics or sessions instead of a bare result */
    bool owns_walk;                       /* `cb_func` of its context is an owned session-walk record */
} fwx_nat64_msg_hndlr_t;

/** In the order of the numbers. The row of FWX_NAT64_MSG_MAX is the last one and stands for every unknown number. */
extern const fwx_nat64_msg_hndlr_t fwx_nat64_msg_hndlr_tbl[FWX_NAT64_MSG_MAX + 1];

static inline const fwx_nat64_msg_hndlr_t &msg_row(uint32_t msgno) {
    return fwx_nat64_msg_hndlr_tbl[msgno < FWX_NAT64_MSG_MAX ? msgno : FWX_NAT64_MSG_MAX];
}

/* The handlers, with the signature of the messaging service. They ignore the first two arguments. */

/** Results of commands: type 0. */
void fwx_nat64_async_rc_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Unsolicited notifications: type 1. */
void fwx_nat64_async_unsol_notify_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Answers of queries, walks and MAP-T rule commands: types 4 to 9 and 13. */
void fwx_nat64_async_rsp_svr(void *arg1, void *arg2, void *msg, size_t size);
/** Answers to classifier commands: types 10 and 11. */
void fwx_nat64_async_cgm_reply_svr(void *arg1, void *arg2, void *msg, size_t size);

#endif
