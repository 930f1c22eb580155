/* Peers whose channels are in another process. */
#ifndef HOST_MESSAGING_SHM_PEER_H
#define HOST_MESSAGING_SHM_PEER_H

#include <memory>

#include "fwx_host/smc.h"
#include "host/messaging/shm/connection.h"

/** Makes the server's peer of a channel from the connection that its client offered. 0, FWX_HOST_ERR_BUSY when there
 * are as many as may be, or an errno value. Throws std::bad_alloc. */
uint32_t shm_peer_make(fwx_host_server_t &server, std::unique_ptr<shm_connection_t> connection);

#endif
