#include <cerrno>

#include "client/client.h"
#include "platform/runtime.h"

namespace {

void free_cell(fwx_nat64_client_info_t *info) {
    fwx_free_named(info->smc_ev);
    info->smc_ev = nullptr;
}

}  // namespace

uint32_t fwx_nat64_client_ev_setup(void *ev_arg, fwx_nat64_client_info_t *info) {
    info->smc_ev = fwx_calloc_named(nat64_client_memory_tag, 1, sizeof(smc_event_t));
    if (info->smc_ev == nullptr) return ENOMEM;

    uint32_t rc = fwx_event_context_to_smc(ev_arg, info->smc_ev);
    if (rc == 0) rc = fwx_event_context_create(info->smc_ev, &info->ev_ctx);
    if (rc != 0) {
        free_cell(info);
        return rc;
    }
    fwx_oslib_set_event_context(info->ev_ctx);
    return 0;
}

void fwx_nat64_client_ev_teardown(fwx_nat64_client_info_t *info) {
    if (info->smc_ev != nullptr) free_cell(info);
    if (info->ev_ctx != nullptr) {
        fwx_free_named(info->ev_ctx);
        info->ev_ctx = nullptr;
    }
}
