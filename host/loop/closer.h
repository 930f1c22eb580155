/*
 * Descriptors that another process handed over, or that may hold such ones, close here: closing may take any time, as
 * it is the other process that chose what they are. One thread does it, which lives while there is something to close.
 */
#ifndef HOST_LOOP_CLOSER_H
#define HOST_LOOP_CLOSER_H

#include <cstddef>

#include "host/loop/descriptor.h"

/** Does not block. */
void closer_take(descriptor_t descriptor);
/** Whether so many wait to be closed that no more should be let in. */
bool closer_is_full();

#endif
