/* The way to a server in another process. */
#ifndef HOST_SHM_LINK_H
#define HOST_SHM_LINK_H

#include <memory>

#include "host/smc_channel.h"
#include "host/smc_link.h"

/** Connects a channel to the server that listens as `server_name`. FWX_HOST_ERR_NO_SERVER, FWX_HOST_ERR_FOREIGN,
 * FWX_HOST_ERR_BAD_ARG, or an errno value. */
uint32_t shm_link_open(const char *server_name, fwx_host_loop_t &loop, smc_channel_t &channel,
                       std::unique_ptr<smc_link_t> *link);

#endif
