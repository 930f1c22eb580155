/* What the host platform's sources share: the fault check, the counters of live things and of errors, and tagged
 * memory. */
#ifndef HOST_INTERNAL_H
#define HOST_INTERNAL_H

#include <cstddef>
#include <cstdint>

#include "fwx_host/errors.h"
#include "fwx_host/fault.h"
#include "fwx_host/inspect.h"

#define HOST_HIDDEN __attribute__((visibility("hidden")))

constexpr uint32_t host_errno_nomem = 12; /* what the platform reports when memory is out */

/** `strikes_at` is the count of calls at which the armed fault strikes; 0: none is armed. */
struct host_fault_t {
    uint64_t calls;
    uint64_t strikes_at;
    uint32_t code;
};

/* Never destroyed, and of trivial types: the library's unload destructor runs after static destructors. */
HOST_HIDDEN extern host_fault_t host_faults[FWX_HOST_OP_COUNT];
HOST_HIDDEN extern fwx_host_live_t host_live;
HOST_HIDDEN extern fwx_host_errors_t host_errors;

/** Counts a call of `op`; returns the code that it must fail with, or 0. */
inline uint32_t host_fault_check(fwx_host_op_t op) {
    host_fault_t &fault = host_faults[op];
    return ++fault.calls == fault.strikes_at ? fault.code : 0;
}

/** fwx_calloc_named for the platform's own use: no call of FWX_HOST_OP_CALLOC is counted. */
HOST_HIDDEN void *host_block_alloc(uint32_t tag, size_t size);

#endif
