/* Connections within this process. */
#ifndef HOST_SMC_LOCAL_H
#define HOST_SMC_LOCAL_H

#include <memory>

#include "host/smc_channel.h"
#include "host/smc_link.h"

/** Connects a channel to the server that is registered under `name`; null when there is none. */
std::unique_ptr<smc_link_t> local_link_open(const char *name, smc_channel_t &channel);

#endif
