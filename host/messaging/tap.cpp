#include "host/messaging/tap.h"

tap_t tap;

void tap_show_now(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size) {
    if (capture_is_open) capture_write(direction, exchange, msg, size);
    if (tap.fn != nullptr) tap.fn(tap.arg, direction, msg, size);
}

extern "C" void fwx_host_tap_set(fwx_host_tap_fn_t fn, void *arg) {
    tap = {fn, arg};
}
