/* Where the messaging service shows what passes through it: the tap that a program sets, and the capture file. */
#ifndef HOST_MESSAGING_TAP_H
#define HOST_MESSAGING_TAP_H

#include <cstddef>

#include "fwx_host/smc.h"
#include "host/messaging/capture.h"

/** Shows a message to the tap and to the capture file, those of them that there are. */
void tap_show(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size);
#endif
