/* What the client core offers to the rest of the library: the state of the binding and the connection. */
#ifndef CLIENT_CLIENT_H
#define CLIENT_CLIENT_H

#include "fwx_nat64/client.h"
#include "fwx_nat64/result.h"
#include "platform/smc.h"

/* Memory tag of the blocks of the client core, and of the session-walk records that its contexts own. */
constexpr uint32_t nat64_client_memory_tag = 1;

/** State of the binding that is not part of the client info. */
typedef struct {
    uint32_t generation;          /* incremented by every bind and every fwx_nat64_client_goingdown */
    uint32_t flushed_generation;  /* while equal to `generation`, nothing may be framed: a flush is in progress */
    uint32_t greeting_generation; /* while equal to `generation`, a new connection is sending its initial commands */
    bool is_unloading;            /* the library is being unloaded; bind and send are refused */
} nat64_binding_t;
extern nat64_binding_t nat64_binding;

/**
 * Created before a callback of the PAL or of the classifier manager, which may unbind and bind again. Afterwards it
 * tells whether the binding is still the same, and so whether anything of it may still be touched.
 */
class binding_watch_t {
public:
    bool is_same() const { return generation_ == nat64_binding.generation; }

private:
    const uint32_t generation_ = nat64_binding.generation;
};

/** True if bound and not gone down: the context list and pool exist. */
static inline bool client_is_up(const fwx_nat64_client_info_t *info) {
    return info != nullptr && info->clnt_ctx_chunk != nullptr;
}

/** True if commands may be framed: no flush of this binding is in progress, and the library is not being unloaded. */
static inline bool client_may_frame(const fwx_nat64_client_info_t *info) {
    return client_is_up(info) && nat64_binding.flushed_generation != nat64_binding.generation;
}

/**
 * Ensures that the channel is open. If the channel is down, makes one attempt to open it.
 * @param info      receives the client info; not written while unbound.
 * @param send_init non-zero: a channel that had to be opened first gets the init and unsolicited-setup commands.
 * @return 0; FWX_NAT64_ERR_NOT_READY while unbound, or when the binding ended while the initial commands were sent;
 *         FWX_NAT64_ERR_AGAIN when the channel cannot be opened, or went down while its initial commands were sent; or
 *         the code of the step that failed, and the channel is closed.
 */
uint32_t fwx_nat64_client_connect_to_server(fwx_nat64_client_info_t **info, uint32_t send_init);

/** Attaches the handlers of the handler table to a channel. Returns 0 or the code of the messaging service. */
uint32_t fwx_nat64_client_attach_msg_handlers(smc_chan_t chan);

#endif
