/* The client context of an outstanding command: its record, its ownership, and the ways in which it ends. A context is
 * in one of three places: on the list while its command is outstanding, in a delivery_t while a callback runs, or in
 * the pool. */
#ifndef TRANSPORT_CONTEXT_H
#define TRANSPORT_CONTEXT_H

#include "fwx_nat64/client.h"
#include "platform/runtime.h"

/**
 * One outstanding command. It is on `clnt_ctx_list` exactly while it is outstanding. The code that takes it off the
 * list must release it, or put it back when more replies follow.
 */
typedef struct {
    fwx_list_link_t link;
    uint32_t cmd;     /* message number; FWX_NAT64_MSG_MAX once a reply with data has released the context */
    uint32_t message; /* clnt_ctx_mark() of the command's message; inverted while off the list, 0 in the pool */
    void *pal_ctx;    /* context of the PAL, passed to the callback */
    void *cb_func;    /* callback of the PAL; for a session walk the owned fwx_nat64_sess_walk_cb_t */
} fwx_nat64_clnt_ctx_t;
static_assert(sizeof(fwx_nat64_clnt_ctx_t) == 40 && offsetof(fwx_nat64_clnt_ctx_t, pal_ctx) == 24,
              "who reads a binding's outstanding commands knows them by this layout");

/** Returns the context that a message names, or null. Until it is found on the list it may be back in its pool, where
 * it stays readable. */
static inline fwx_nat64_clnt_ctx_t *clnt_ctx_named_by(const fwx_nat64_msg_hdr_t *hdr) {
    return reinterpret_cast<fwx_nat64_clnt_ctx_t *>(static_cast<uintptr_t>(hdr->clnt_ctx));
}

/** Returns the mark that ties a context to its message: the low half of the message's address, plus 1. The lowest bit
 * is clear in the address of every buffer, so a mark is odd: it is never 0 and never equal to an inverted mark. */
static inline uint32_t clnt_ctx_mark(const void *msg) {
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(msg)) + 1U;
}

/** True if the address that a reply names may be read as a context. If the platform has fwx_chunk_owns, it decides;
 * otherwise the address is trusted. */
static inline bool clnt_ctx_is_ours(const fwx_nat64_client_info_t *info, const fwx_nat64_clnt_ctx_t *ctx) {
    return fwx_chunk_owns == nullptr || fwx_chunk_owns(info->clnt_ctx_chunk, ctx) != 0;
}

/**
 * Takes a context off the list. From then on the caller owns it, and the completion of its message ignores it.
 * @return 0, or the list's code.
 */
static inline uint32_t clnt_ctx_take(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx) {
    const uint32_t rc = fwx_list_remove_element(info->clnt_ctx_list, ctx);
    if (rc == 0) ctx->message = ~ctx->message;
    return rc;
}

/** Frees the walk record, if the context owns one; afterwards the context owns nothing. */
void clnt_ctx_free_owned(fwx_nat64_clnt_ctx_t *ctx);

/** Returns a context that owns nothing to the pool. */
static inline void clnt_ctx_to_pool(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx) {
    ctx->message = 0;
    chunk_free(info->clnt_ctx_chunk, ctx);
}

/** Frees what a context owns and returns it to the pool. Requires: the context is off the list. */
void clnt_ctx_release(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx);

/**
 * Owns a context that was taken off the list. It lives on the stack around the callbacks that get the reply. A callback
 * may end the binding; going down then finds the context here and returns it before the pool is destroyed.
 */
class delivery_t {
public:
    explicit delivery_t(fwx_nat64_clnt_ctx_t *ctx) : ctx_(ctx), outer_(innermost) { innermost = this; }
    ~delivery_t() { innermost = outer_; }
    delivery_t(const delivery_t &) = delete;
    delivery_t &operator=(const delivery_t &) = delete;

    /** Returns the context; null once it is outstanding again, or its binding has ended. */
    fwx_nat64_clnt_ctx_t *ctx() const { return ctx_; }
    /** Makes the context outstanding again. @return 0, or the list's code; the context then stays in delivery. */
    uint32_t put_back(fwx_nat64_client_info_t *info);

    /** Releases every context in delivery, without a callback or a log line. */
    static void release_all(fwx_nat64_client_info_t *info);

private:
    static delivery_t *innermost; /* of the deliveries on the stack */

    fwx_nat64_clnt_ctx_t *ctx_;
    delivery_t *const outer_;
};

/**
 * Takes every outstanding context off the list, oldest first, and calls `end`, which must release it.
 * @return 0 when nothing is outstanding any more or the binding ended meanwhile, or the code of the list operation that
 *         failed; the other contexts then stay on the list.
 */
uint32_t clnt_ctx_drain(fwx_nat64_client_info_t *info,
                        void (*end)(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx));

/** Reports to the PAL that a command failed, and releases its context. Requires: the context is off the list. */
void fwx_nat64_clnt_cmd_cb(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx);

/** Releases a framed command that will not be sent: the context returns to the pool, the buffer is freed, no callback
 * is called. */
void fwx_nat64_client_async_cmd_abandon(fwx_nat64_client_info_t *info, void *msg);

#endif
