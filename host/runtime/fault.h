/* The check with which every operation that can be made to fail begins. */
#ifndef HOST_RUNTIME_FAULT_H
#define HOST_RUNTIME_FAULT_H

#include <cstdint>

#include "fwx_host/fault.h"

/** `strikes_at` is the count of calls at which the armed fault strikes; 0: none is armed. */
struct host_fault_t {
    uint64_t calls;
    uint64_t strikes_at;
    uint32_t code;
};

/* Never destroyed, and of trivial type: the library's unload destructor runs after static destructors. */
[[gnu::visibility("hidden")]] extern host_fault_t host_faults[FWX_HOST_OP_COUNT];

/** Counts a call of `op`; returns the code that it must fail with, or 0. */
inline uint32_t host_fault_check(fwx_host_op_t op) {
    host_fault_t &fault = host_faults[op];
    return ++fault.calls == fault.strikes_at ? fault.code : 0;
}

#endif
