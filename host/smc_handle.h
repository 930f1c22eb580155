/* Channel handles: a slot and its generation, so that the handle of a channel that is gone is told from all later ones.
 */
#ifndef HOST_SMC_HANDLE_H
#define HOST_SMC_HANDLE_H

#include "platform/smc.h"

class smc_channel_t;

/** A handle that is never 0. */
smc_chan_t handle_make(smc_channel_t *channel);
/** The channel of a handle, or null. */
smc_channel_t *handle_find(smc_chan_t handle);
void handle_release(smc_chan_t handle);

#endif
