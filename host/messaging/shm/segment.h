/* The memory that the process of a channel and the process of its peer share. */
#ifndef HOST_MESSAGING_SHM_SEGMENT_H
#define HOST_MESSAGING_SHM_SEGMENT_H

#include <memory>

#include "host/loop/descriptor.h"
#include "host/messaging/shm/ring.h"

constexpr uint32_t shm_ring_bytes = uint32_t{1} << 20;   /* in each direction */
constexpr uint32_t shm_answer_bytes = uint32_t{1} << 18; /* for answers to synchronous messages */
constexpr uint32_t shm_largest_message = shm_largest_record(shm_ring_bytes);

/** The state of a process's bell, which only that process writes. */
struct shm_bell_t {
    alignas(shm_cache_line) std::atomic<uint32_t> armed; /* not 0: the process waits to be rung once for this number */
    std::atomic<uint32_t> wants_room;                    /* 1: ring also when messages of this process were read */
};

constexpr uint32_t shm_version = 4; /* of the segment's layout and its protocol */

/* The two processes write to different cache lines. */
struct shm_segment_t {
    shm_bell_t client_bell;
    shm_bell_t server_bell;
    shm_ring_t to_server; /* tag: 0 for an asynchronous message, else the number of a synchronous message */
    shm_ring_t to_client; /* tag of the first record of a commit: how far the server had read to_server; else 0 */
    shm_ring_t answers;   /* tag: the number of the synchronous message; an empty record is no answer */
    alignas(4096) uint8_t to_server_bytes[shm_ring_bytes];
    uint8_t to_client_bytes[shm_ring_bytes];
    uint8_t answer_bytes[shm_answer_bytes];
};

struct shm_unmap_t {
    void operator()(shm_segment_t *segment) const;
};
using shm_mapping_t = std::unique_ptr<shm_segment_t, shm_unmap_t>;

/** Creates a segment whose size is sealed and whose memory is allocated, so that access to it cannot fail. Not open,
 * with errno set, when no memory or no descriptors are left. */
descriptor_t shm_segment_make();
/** Whether a descriptor from the other process is memory of the right size, which nobody can change. */
bool shm_segment_is_sound(const descriptor_t &segment);
/** Maps a segment that passed shm_segment_is_sound(). Null, with errno set, when mapping fails. */
shm_mapping_t shm_segment_map(const descriptor_t &segment);

#endif
