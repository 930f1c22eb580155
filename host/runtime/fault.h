/* Fault injection inside the platform: the check with which every operation that can fail begins. */
#ifndef HOST_RUNTIME_FAULT_H
#define HOST_RUNTIME_FAULT_H

#include <cstdint>

#include "fwx_host/fault.h"

/** Counts calls down, because one decrement both counts and finds the call that must fail. The counter wraps below 0.
 */
struct host_fault_t {
    uint64_t calls_left; /* calls until the armed fault strikes */
    uint64_t calls_then; /* the number of calls counted when calls_left becomes 0 */
    uint32_t code;

    uint64_t calls() const { return calls_then - calls_left; }
};

/* Trivial and never destroyed, because the library's unload destructor runs after static destructors. */
[[gnu::visibility("hidden")]] extern host_fault_t host_faults[FWX_HOST_OP_COUNT];

/** Counts a call of `op`; returns the code that it must fail with, or 0. */
inline uint32_t host_fault_check(fwx_host_op_t op) {
    host_fault_t &fault = host_faults[op];
    return --fault.calls_left == 0 ? fault.code : 0;
}

#endif
