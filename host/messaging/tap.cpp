#include "host/messaging/tap.h"

namespace {

struct {
    fwx_host_tap_fn_t fn; /* null: no tap is set */
    void *arg;
} tap;

}  // namespace

void tap_show_now(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size) {
    if (capture_is_open()) capture_write(direction, exchange, msg, size);
    if (tap.fn != nullptr) tap.fn(tap.arg, direction, msg, size);
}

extern "C" void fwx_host_tap_set(fwx_host_tap_fn_t fn, void *arg) {
    tap = {fn, arg};
    message_observers &= ~OBSERVED_BY_TAP;
    if (fn != nullptr) message_observers |= OBSERVED_BY_TAP;
}
