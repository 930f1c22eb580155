#include "fwx_host/errors.h"
#include "fwx_host/loop.h"
#include "host/runtime/fault.h"
#include "host/runtime/memory.h"
#include "platform/runtime.h"
#include "platform/smc.h"

namespace {

constexpr uint32_t memory_tag = 2;

struct event_context_t {
    smc_event_t event;
};

void *current_context;

}  // namespace

extern "C" {

uint32_t fwx_event_context_to_smc(void *ev_arg, void *smc_ev) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_EVENT_TO_SMC)) return code;
    if (ev_arg == nullptr || smc_ev == nullptr) return FWX_HOST_ERR_BAD_ARG;
    *static_cast<smc_event_t *>(smc_ev) = reinterpret_cast<smc_event_t>(ev_arg);
    return 0;
}

uint32_t fwx_event_context_create(void *smc_ev, void **ev_ctx) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_EVENT_CREATE)) return code;
    if (smc_ev == nullptr || ev_ctx == nullptr) return FWX_HOST_ERR_BAD_ARG;
    auto *context = static_cast<event_context_t *>(host_block_alloc(memory_tag, sizeof(event_context_t)));
    if (context == nullptr) return host_errno_nomem;
    context->event = *static_cast<smc_event_t *>(smc_ev);
    *ev_ctx = context;
    return 0;
}

void fwx_oslib_set_event_context(void *ev_ctx) {
    current_context = ev_ctx;
}

void *fwx_host_event_context_get(void) {
    return current_context;
}

}  // extern "C"
