#include "host/messaging/tap.h"

namespace {

struct {
    fwx_host_tap_fn_t fn;
    void *arg;
} tap;

}  // namespace

void tap_show(fwx_host_direction_t direction, exchange_t exchange, const void *msg, size_t size) {
    capture_write(direction, exchange, msg, size);
    if (tap.fn != nullptr) tap.fn(tap.arg, direction, msg, size);
}

extern "C" void fwx_host_tap_set(fwx_host_tap_fn_t fn, void *arg) {
    tap = {fn, arg};
}
