/* What the client core offers to the rest of the library. */
#ifndef CLIENT_CLIENT_H
#define CLIENT_CLIENT_H

#include "fwx_nat64/client.h"
#include "fwx_nat64/result.h"
#include "platform/smc.h"

/* Memory tag of the client core's blocks, and of the session-walk records that travel with its contexts. */
constexpr uint32_t nat64_client_memory_tag = 1;

/** What is true of the binding beside its client info. */
typedef struct {
    uint32_t generation;          /* raised by every bind and every going down */
    uint32_t flushed_generation;  /* while it is the present one, nothing is framed */
    uint32_t greeting_generation; /* while it is the present one, a new connection sends its initial commands */
    bool is_unloading;            /* nothing is bound or sent any more */
} nat64_binding_t;
extern nat64_binding_t nat64_binding;

/**
 * Made before a callback of the PAL or of the classifier manager, which may unbind, and bind again: tells afterwards
 * whether anything of the binding may still be touched.
 */
class binding_watch_t {
public:
    bool is_same() const { return generation_ == nat64_binding.generation; }

private:
    const uint32_t generation_ = nat64_binding.generation;
};

/** Bound, and not down: list and pool are there. */
static inline bool client_is_up(const fwx_nat64_client_info_t *info) {
    return info != nullptr && info->clnt_ctx_chunk != nullptr;
}

/** Whether commands may be framed: no flush of this binding goes on, and it was not the last one before the unload. */
static inline bool client_may_frame(const fwx_nat64_client_info_t *info) {
    return client_is_up(info) && nat64_binding.flushed_generation != nat64_binding.generation;
}

/**
 * Makes sure that the channel is open; a channel that is down is opened once.
 * @param info      receives the client info; not written while unbound.
 * @param send_init non-zero: a channel that had to be opened gets the init and unsolicited-setup commands first.
 * @return 0; FWX_NAT64_ERR_NOT_READY while unbound; FWX_NAT64_ERR_AGAIN when the channel cannot be opened, or went down
 * while its initial commands were sent; or the code of the step that failed, the channel then closed.
 */
uint32_t fwx_nat64_client_connect_to_server(fwx_nat64_client_info_t **info, uint32_t send_init);

/** Attaches the handlers of the handler table to a channel. Returns 0 or the messaging service's code. */
uint32_t fwx_nat64_client_attach_msg_handlers(smc_chan_t chan);

#endif
