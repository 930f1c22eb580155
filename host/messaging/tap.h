/* Shows messages to the observers of the messaging service: the tap that a program sets, and the capture file. */
#ifndef HOST_MESSAGING_TAP_H
#define HOST_MESSAGING_TAP_H

#include <cstddef>

#include "fwx_host/smc.h"
#include "host/messaging/capture.h"

/** Whether messages have an observer. */
inline bool tap_is_on() {
    return message_observers != 0;
}
[[gnu::cold]] void tap_show_now(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size);
/** Shows a message to the tap and writes it to the capture file, if these are in use. */
inline void tap_show(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size) {
    if (tap_is_on()) tap_show_now(direction, exchange, msg, size);
}

#endif
