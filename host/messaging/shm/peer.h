/* Creates peers whose channels are in another process. */
#ifndef HOST_MESSAGING_SHM_PEER_H
#define HOST_MESSAGING_SHM_PEER_H

#include <memory>

#include "fwx_host/smc.h"
#include "host/messaging/shm/connection.h"

/** Creates a server's peer from the connection that a client offered. Returns 0, FWX_HOST_ERR_BUSY when the limit of
 * clients is reached, or an errno value. Throws std::bad_alloc. */
uint32_t shm_peer_make(fwx_host_server_t &server, std::unique_ptr<shm_connection_t> connection);

#endif
