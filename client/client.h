/* What the client core offers to the rest of the library. */
#ifndef CLIENT_CLIENT_H
#define CLIENT_CLIENT_H

#include "fwx_nat64/client.h"
#include "fwx_nat64/result.h"
#include "platform/smc.h"

/* Memory tag of the client core's blocks, and of the session-walk records that travel with its contexts. */
constexpr uint32_t nat64_client_memory_tag = 1;

/**
 * Makes sure that the channel is open; a channel that is down is opened once.
 * @param info      receives the client info; not written while unbound.
 * @param send_init non-zero: a channel that had to be opened gets the init and unsolicited-setup commands first.
 * @return 0; FWX_NAT64_ERR_NOT_READY while unbound; FWX_NAT64_ERR_AGAIN when the channel cannot be opened; or the code
 * of the step that failed, the channel then closed.
 */
uint32_t fwx_nat64_client_connect_to_server(fwx_nat64_client_info_t **info, uint32_t send_init);

/** Attaches the handlers of the handler table to a channel. Returns 0 or the messaging service's code. */
uint32_t fwx_nat64_client_attach_msg_handlers(smc_chan_t chan);

#endif
