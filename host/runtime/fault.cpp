#include "host/runtime/fault.h"

#include <iterator>

#include "fwx_host/errors.h"

host_fault_t host_faults[FWX_HOST_OP_COUNT];

namespace {

const char *const op_names[] = {
    "calloc",           "list init",         "list head",        "list insert tail",   "list remove",
    "list destroy",     "hash create",       "hash add",         "hash delete",        "hash destroy",
    "chunk create",     "fwx chunk create",  "chunk malloc",     "event to smc",       "event create",
    "channel open",     "channel close",     "flow control set", "receive buffer set", "handler attach",
    "transmit buffer",  "asynchronous send", "send completion",  "synchronous send",   "classifier register",
    "tree init",        "tree leaf size",    "tree exact match", "tree leaf init",     "tree leaf insert",
    "tree leaf delete", "tree first leaf",
};
static_assert(std::size(op_names) == FWX_HOST_OP_COUNT);

bool is_op(fwx_host_op_t op) {
    return static_cast<uint32_t>(op) < FWX_HOST_OP_COUNT;
}

}  // namespace

extern "C" {

void fwx_host_fault_arm(fwx_host_op_t op, uint32_t nth, uint32_t code) {
    if (!is_op(op)) return;
    host_fault_t &fault = host_faults[op];
    fault.calls_then = fault.calls() + nth;
    fault.calls_left = nth;
    fault.code = code == 0 ? FWX_HOST_ERR_FAULT : code;
}

void fwx_host_fault_reset(void) {
    for (host_fault_t &fault : host_faults) {
        fault = {};
    }
}

uint64_t fwx_host_fault_calls(fwx_host_op_t op) {
    return is_op(op) ? host_faults[op].calls() : 0;
}

const char *fwx_host_op_name(fwx_host_op_t op) {
    return is_op(op) ? op_names[op] : "no operation";
}

}  // extern "C"
