#include "host/messaging/tap.h"

tap_t tap;

extern "C" void fwx_host_tap_set(fwx_host_tap_fn_t fn, void *arg) {
    tap = {fn, arg};
}
