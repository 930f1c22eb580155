/* The memory that two processes share for a channel and its peer. */
#ifndef HOST_MESSAGING_SHM_SEGMENT_H
#define HOST_MESSAGING_SHM_SEGMENT_H

#include <memory>

#include "host/loop/descriptor.h"
#include "host/messaging/shm/ring.h"

constexpr uint32_t shm_ring_bytes = uint32_t{1} << 20;   /* each way */
constexpr uint32_t shm_answer_bytes = uint32_t{1} << 18; /* of synchronous messages */
constexpr uint32_t shm_largest_message = shm_largest_record(shm_ring_bytes);

/** What a process tells the other of its bell; only that process writes it. */
struct shm_bell_t {
    alignas(64) std::atomic<uint32_t> armed; /* not 0: it looks at nothing until it is rung for this number */
    std::atomic<uint32_t> wants_room;        /* 1: what the other process has read is worth ringing too */
};

constexpr uint32_t shm_version = 2; /* of the segment's layout and of what the two processes do with it */

/* What one process writes stands on other cache lines than what the other writes. */
struct shm_segment_t {
    shm_bell_t client_bell;
    shm_bell_t server_bell;
    shm_ring_t to_server; /* tag 0: an asynchronous message; else a synchronous one, of that number */
    shm_ring_t to_client; /* tag 0 */
    shm_ring_t answers;   /* tag: the number of the synchronous message; no bytes: there is no answer */
    alignas(4096) uint8_t to_server_bytes[shm_ring_bytes];
    uint8_t to_client_bytes[shm_ring_bytes];
    uint8_t answer_bytes[shm_answer_bytes];
};

struct shm_unmap_t {
    void operator()(shm_segment_t *segment) const;
};
using shm_mapping_t = std::unique_ptr<shm_segment_t, shm_unmap_t>;

/** Makes a segment that nobody can shrink, all memory in place, so that reading it can never fail. None: the system
 * has no memory or descriptors left; errno says which. */
descriptor_t shm_segment_make();
/** Whether a descriptor of the other process is memory that has the size, which nobody can change. */
bool shm_segment_is_sound(const descriptor_t &segment);
/** Maps a sound segment; null: the system does not, errno says why. */
shm_mapping_t shm_segment_map(const descriptor_t &segment);

#endif
