/* Shows messages to the observers of the messaging service: the tap that a program sets, and the capture file. */
#ifndef HOST_MESSAGING_TAP_H
#define HOST_MESSAGING_TAP_H

#include <cstddef>

#include "fwx_host/smc.h"
#include "host/messaging/capture.h"

struct tap_t {
    fwx_host_tap_fn_t fn; /* null: no tap is set */
    void *arg;
};
[[gnu::visibility("hidden")]] extern tap_t tap;

inline bool tap_is_on() {
    return capture_is_open || tap.fn != nullptr;
}
[[gnu::cold]] void tap_show_now(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size);
/** Shows a message to the tap and writes it to the capture file, if these are in use. */
inline void tap_show(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size) {
    if (tap_is_on()) tap_show_now(direction, exchange, msg, size);
}

#endif
