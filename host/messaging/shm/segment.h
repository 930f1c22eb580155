/* The memory that two processes share for a channel and its peer. */
#ifndef HOST_MESSAGING_SHM_SEGMENT_H
#define HOST_MESSAGING_SHM_SEGMENT_H

#include <memory>

#include "host/loop/descriptor.h"
#include "host/messaging/shm/ring.h"

constexpr uint32_t shm_ring_bytes = uint32_t{1} << 20;   /* each way */
constexpr uint32_t shm_answer_bytes = uint32_t{1} << 18; /* of synchronous messages */
constexpr uint32_t shm_largest_message = shm_largest_record(shm_ring_bytes);

/** What a process tells the other of its bell. */
struct shm_bell_t {
    alignas(64) std::atomic<uint32_t> is_armed; /* 1: it looks at nothing until it is rung; who rings sets it to 0 */
    std::atomic<uint32_t> wants_room;           /* 1: what the other process has read is worth ringing too */
};

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
 * has no memory or descriptors left. */
descriptor_t shm_segment_make();
/** Maps a segment of the other process after checking that it has the size and that nobody can shrink it; null if not.
 */
shm_mapping_t shm_segment_map(const descriptor_t &segment);

#endif
