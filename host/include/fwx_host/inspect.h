/*
 * Counters of the host platform: live objects, and errors since the program started.
 */
#ifndef FWX_HOST_INSPECT_H
#define FWX_HOST_INSPECT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The objects that the platform's users hold now; all 0 when everything was released. */
typedef struct {
    uint64_t memory_blocks;
    uint64_t memory_bytes; /* as requested, without bookkeeping */
    uint64_t lists;
    uint64_t hash_tables;
    uint64_t pools;
    uint64_t pool_elements; /* allocated from a pool and not freed */
    uint64_t tx_buffers;    /* owned by a program or queued in a channel */
    uint64_t channels;
    uint64_t trees; /* not empty, or empty and not yet replaced by another tree of the complex mask */
} fwx_host_live_t;

/** Objects refused or dropped since the start. Each is a sign of a fault in a program or a server. */
typedef struct {
    uint64_t bad_frees;          /* elements or buffers freed twice, or to the wrong owner */
    uint64_t dropped_no_handler; /* received messages without a handler */
    uint64_t dropped_no_buffer;  /* received messages that no receive buffer could hold */
    uint64_t dropped_malformed;  /* received messages shorter than a key, bad answers, and damaged rings */
    uint64_t destroyed_in_use;   /* elements in use when their pool, or a list that does not own them, was destroyed */
} fwx_host_errors_t;

/** Counters of this process's servers for clients in other processes. */
typedef struct {
    uint64_t clients;      /* connected now */
    uint64_t queued_bytes; /* memory that messages queued for clients take now */
    uint64_t dropped;      /* messages dropped with clients that did not read */
    uint64_t malformed;    /* messages reported by fwx_host_peer_malformed */
    uint64_t ended;        /* clients disconnected because they did not read or sent too many malformed messages */
    uint64_t refused;      /* clients turned away when they connected */
} fwx_host_peers_t;

void fwx_host_peers_get(fwx_host_peers_t *peers);
void fwx_host_live_get(fwx_host_live_t *live);
void fwx_host_errors_get(fwx_host_errors_t *errors);
/** Live bytes from fwx_calloc_named, over all tags. */
uint64_t fwx_host_memory_live(void);
/** Live bytes of one tag. */
uint64_t fwx_host_memory_live_tag(uint32_t tag);
/** Live blocks of one tag. */
uint64_t fwx_host_memory_blocks_tag(uint32_t tag);
/** Limits how many elements each pool of this name, existing or created later, may have in use at a time. UINT64_MAX
 * lifts the cap. The first call for a name allocates, and changes nothing when memory is exhausted. */
void fwx_host_pool_cap_set(const char *name, uint64_t max_elements);

#ifdef __cplusplus
}
#endif

#endif
