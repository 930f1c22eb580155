/* The table of channel handles. A free slot keeps its generation, which the slot's next channel increments. */
#include "host/messaging/handle.h"

#include <vector>

#include "fwx_host/errors.h"
#include "host/runtime/inspect.h"
#include "host/runtime/process.h"

namespace {

constexpr unsigned generation_shift = 32;
constexpr uint32_t no_slot = UINT32_MAX;

struct slot_t {
    channel_t *channel; /* null while the slot is free */
    uint32_t generation;
    uint32_t process; /* the process that opened the channel */
    uint32_t next_free;
};

/* Never destroyed: the library's unload destructor runs after static destructors. */
std::vector<slot_t> &slots = *new std::vector<slot_t>;
uint32_t first_free = no_slot;

uint32_t index_of(smc_chan_t handle) {
    return static_cast<uint32_t>(handle);
}

/** The slot of the handle's channel, or null. */
const slot_t *slot_of(smc_chan_t handle) {
    const uint32_t index = index_of(handle);
    if (index >= slots.size() || slots[index].generation != handle >> generation_shift) return nullptr;
    return slots[index].channel == nullptr ? nullptr : &slots[index];
}

void free_slot(uint32_t index) {
    slots[index].channel = nullptr;
    slots[index].next_free = first_free;
    first_free = index;
}

}  // namespace

smc_chan_t handle_make(channel_t *channel) {
    if (first_free == no_slot) {
        slots.push_back({});
        free_slot(static_cast<uint32_t>(slots.size() - 1));
    }
    const uint32_t index = first_free;
    slot_t &slot = slots[index];
    first_free = slot.next_free;
    slot.channel = channel;
    slot.process = host_process();
    if (++slot.generation == 0) slot.generation = 1;
    host_live.channels += 1;
    return smc_chan_t{slot.generation} << generation_shift | index;
}

handle_t latest_handle;

channel_t *handle_look_up(smc_chan_t handle) {
    const slot_t *slot = slot_of(handle);
    if (slot == nullptr || slot->process != host_process()) return nullptr;
    latest_handle = {handle, slot->channel, slot->process};
    return slot->channel;
}

uint32_t handle_refusal(smc_chan_t handle) {
    return slot_of(handle) == nullptr ? FWX_HOST_ERR_BAD_CHANNEL : FWX_HOST_ERR_FORKED;
}

void handle_release(smc_chan_t handle) {
    free_slot(index_of(handle));
    if (handle == latest_handle.number) latest_handle = {};
    host_live.channels -= 1;
}
