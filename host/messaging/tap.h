/* Where the messaging service shows what passes through it: the tap that a program sets, and the capture file. */
#ifndef HOST_MESSAGING_TAP_H
#define HOST_MESSAGING_TAP_H

#include <cstddef>

#include "fwx_host/smc.h"
#include "host/messaging/capture.h"

struct tap_t {
    fwx_host_tap_fn_t fn; /* null: there is none */
    void *arg;
};
[[gnu::visibility("hidden")]] extern tap_t tap;

/** Shows a message to the tap and to the capture file, those of them that there are. */
inline void tap_show(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size) {
    if (capture_is_open) capture_write(direction, exchange, msg, size);
    if (tap.fn != nullptr) tap.fn(tap.arg, direction, msg, size);
}

#endif
