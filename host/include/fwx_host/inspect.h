/*
 * Looking inside the host platform: what is live now, and what went wrong since the program started.
 */
#ifndef FWX_HOST_INSPECT_H
#define FWX_HOST_INSPECT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Everything that a user of the platform holds at this moment; all 0 when everything went back. */
typedef struct {
    uint64_t memory_blocks;
    uint64_t memory_bytes; /* as asked for, without bookkeeping */
    uint64_t lists;
    uint64_t hash_tables;
    uint64_t pools;
    uint64_t pool_elements; /* taken from a pool and not given back */
    uint64_t tx_buffers;    /* with a program or in a channel */
    uint64_t channels;
    uint64_t trees; /* that hold a leaf, or whose complex was not initialised again */
} fwx_host_live_t;

/** Things that were refused or dropped since the start, each a sign of a fault in a program or a server. */
typedef struct {
    uint64_t bad_frees;          /* an element or buffer given back twice, or to the wrong owner */
    uint64_t dropped_no_handler; /* received messages that no handler takes */
    uint64_t dropped_no_buffer;  /* received messages that no receive buffer could hold */
    uint64_t dropped_malformed;  /* received messages shorter than a key, or broken on their way */
    uint64_t destroyed_in_use;   /* elements still out of a pool, or on a list that does not own them, when it went */
} fwx_host_errors_t;

/** What servers of this process have to do with clients in other processes. */
typedef struct {
    uint64_t clients;      /* that are connected now */
    uint64_t queued_bytes; /* memory of messages that wait now for a client to read */
    uint64_t dropped;      /* messages that ended clients because they did not read */
    uint64_t malformed;    /* messages that broke a rule */
    uint64_t ended;        /* clients ended for what they did or did not do */
    uint64_t refused;      /* clients turned away when they came */
} fwx_host_peers_t;

void fwx_host_peers_get(fwx_host_peers_t *peers);
void fwx_host_live_get(fwx_host_live_t *live);
void fwx_host_errors_get(fwx_host_errors_t *errors);
/** Live bytes of fwx_calloc_named over all tags. */
uint64_t fwx_host_memory_live(void);
/** Live bytes of one tag. */
uint64_t fwx_host_memory_live_tag(uint32_t tag);
/** Live blocks of one tag. */
uint64_t fwx_host_memory_blocks_tag(uint32_t tag);
/** Largest number of elements that pools of this name, existing or to come, may have out at a time; UINT64_MAX lifts
 * the cap. The first time that a name is given may find no memory and change nothing. */
void fwx_host_pool_cap_set(const char *name, uint64_t max_elements);

#ifdef __cplusplus
}
#endif

#endif
