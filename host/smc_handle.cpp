#include "host/smc_handle.h"

#include <vector>

#include "host/internal.h"

namespace {

constexpr unsigned generation_shift = 32;

struct slot_t {
    smc_channel_t *channel; /* null while the slot is free */
    uint32_t generation;
};

/* Never destroyed: the library's unload destructor runs after static destructors. */
std::vector<slot_t> &slots = *new std::vector<slot_t>;
std::vector<uint32_t> &free_slots = *new std::vector<uint32_t>;

uint32_t index_of(smc_chan_t handle) {
    return static_cast<uint32_t>(handle);
}

}  // namespace

smc_chan_t handle_make(smc_channel_t *channel) {
    if (free_slots.empty()) {
        free_slots.push_back(static_cast<uint32_t>(slots.size()));
        slots.push_back({nullptr, 0});
    }
    const uint32_t index = free_slots.back();
    free_slots.pop_back();
    slot_t &slot = slots[index];
    slot.channel = channel;
    if (++slot.generation == 0) slot.generation = 1;
    host_live.channels += 1;
    return smc_chan_t{slot.generation} << generation_shift | index;
}

smc_channel_t *handle_find(smc_chan_t handle) {
    const uint32_t index = index_of(handle);
    if (index >= slots.size() || slots[index].generation != handle >> generation_shift) return nullptr;
    return slots[index].channel;
}

void handle_release(smc_chan_t handle) {
    slots[index_of(handle)].channel = nullptr;
    free_slots.push_back(index_of(handle));
    host_live.channels -= 1;
}
