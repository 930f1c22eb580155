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
void handle_release(smc_chan_t handle);

#endif
