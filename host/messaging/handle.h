/* Channel handles. A handle is a slot number and the slot's generation, so that a stale handle is not taken for that of
 * a later channel in the same slot. */
#ifndef HOST_MESSAGING_HANDLE_H
#define HOST_MESSAGING_HANDLE_H

#include "host/runtime/process.h"
#include "platform/smc.h"

class channel_t;

/** A handle and its channel. */
struct handle_t {
    smc_chan_t number;
    channel_t *channel;
    uint32_t process; /* the process that opened the channel */
};
/** Cache of the handle looked up last, because most processes have one channel. Its channel is null once the handle is
 * released. */
[[gnu::visibility("hidden")]] extern handle_t latest_handle;
[[gnu::visibility("hidden")]] channel_t *handle_look_up(smc_chan_t handle);

/** Creates a handle, which is never 0. Throws std::bad_alloc. */
smc_chan_t handle_make(channel_t *channel);
/** The channel of the handle looked up last; null for another handle. */
inline channel_t *handle_find_latest(smc_chan_t handle) {
    const bool is_latest = handle == latest_handle.number && host_process_is(latest_handle.process);
    return is_latest ? latest_handle.channel : nullptr;
}
/** The channel of a handle, or null. */
inline channel_t *handle_find(smc_chan_t handle) {
    channel_t *channel = handle_find_latest(handle);
    return channel != nullptr ? channel : handle_look_up(handle);
}
/** Why a handle has no channel for this process: FWX_HOST_ERR_BAD_CHANNEL or FWX_HOST_ERR_FORKED. */
uint32_t handle_refusal(smc_chan_t handle);
void handle_release(smc_chan_t handle);

#endif
