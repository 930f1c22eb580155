/* The client's end of a link to a server in another process. */
#ifndef HOST_MESSAGING_SHM_LINK_H
#define HOST_MESSAGING_SHM_LINK_H

#include <memory>

#include "host/messaging/channel.h"
#include "host/messaging/link.h"

/** Connects a channel to the server that listens as `server_name`. Returns 0, FWX_HOST_ERR_NO_SERVER,
 * FWX_HOST_ERR_FOREIGN, FWX_HOST_ERR_BAD_ARG, FWX_HOST_ERR_BUSY, FWX_HOST_ERR_CHANNEL_DOWN, or an errno value. Throws
 * std::bad_alloc. */
uint32_t shm_link_open(const char *server_name, fwx_host_loop_t &loop, channel_t &channel,
                       std::unique_ptr<link_t> *link);

#endif
