/* Channel handles: a slot and its generation, so that the handle of a channel that is gone is told from all later ones.
 */
#ifndef HOST_MESSAGING_HANDLE_H
#define HOST_MESSAGING_HANDLE_H

#include "platform/smc.h"

class channel_t;

/** A handle that is never 0. Throws std::bad_alloc. */
smc_chan_t handle_make(channel_t *channel);
/** The channel of a handle, or null. */
channel_t *handle_find(smc_chan_t handle);
/** Why a handle has no channel for this process: FWX_HOST_ERR_BAD_CHANNEL or FWX_HOST_ERR_FORKED. */
uint32_t handle_refusal(smc_chan_t handle);
void handle_release(smc_chan_t handle);

#endif
