#include <ctime>

#include "fwx_host/loop.h"

namespace {

bool is_stopped;
uint64_t stopped_at;

uint64_t running_ms() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

extern "C" {

uint64_t fwx_host_clock_ms(void) {
    return is_stopped ? stopped_at : running_ms();
}

void fwx_host_clock_turn(uint64_t ms) {
    stopped_at = fwx_host_clock_ms() + ms;
    is_stopped = true;
}

void fwx_host_clock_run(void) {
    is_stopped = false;
}

}  // extern "C"
