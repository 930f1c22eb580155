/*
 * The descriptors with which two processes wake each other: eventfds whose count is always 1. A process rings a bell by
 * writing 0, which never blocks, because the count does not change. A bell is never read: the waiting process polls it
 * for the edge that a write causes. So a bell from another process cannot block this process, whatever flags the other
 * process sets on it.
 */
#ifndef HOST_MESSAGING_SHM_BELL_H
#define HOST_MESSAGING_SHM_BELL_H

#include "host/loop/descriptor.h"

/** Creates a bell. Not open, with errno set, when no descriptors are left. */
descriptor_t shm_bell_make();
/** Whether a descriptor received from another process is a bell. */
bool shm_bell_is_sound(const descriptor_t &bell);
void shm_bell_ring(const descriptor_t &bell);

#endif
