/*
 * Closes descriptors that another process handed over, and sockets that may hold such descriptors, on a thread of its
 * own. Closing them may block for any time, because the other process chose their kind. The thread lives only while
 * there is something to close.
 */
#ifndef HOST_LOOP_CLOSER_H
#define HOST_LOOP_CLOSER_H

#include <cstddef>

#include "host/loop/descriptor.h"

/** Queues a descriptor for closing. Does not block. */
void closer_take(descriptor_t descriptor);
/** Whether so many descriptors wait to be closed that no more clients should be accepted. */
bool closer_is_full();

#endif
