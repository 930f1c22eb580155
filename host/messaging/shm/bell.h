/*
 * The descriptors with which two processes wake each other: eventfds that count 1 for good. They are rung by writing 0,
 * which never waits for room, and never read: who waits polls for the edge that a write makes. So a bell that another
 * process has handed over can neither block nor end this one, whatever flags that process gives it.
 */
#ifndef HOST_MESSAGING_SHM_BELL_H
#define HOST_MESSAGING_SHM_BELL_H

#include "host/loop/descriptor.h"

/** None when the system has no descriptors left; errno says which. */
descriptor_t shm_bell_make();
/** Whether a descriptor of another process is a bell. */
bool shm_bell_is_sound(const descriptor_t &bell);
void shm_bell_ring(const descriptor_t &bell);

#endif
