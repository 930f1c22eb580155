/* The library's outstanding commands and its debug output. */
#ifndef TESTS_SUPPORT_OUTSTANDING_H
#define TESTS_SUPPORT_OUTSTANDING_H

#include <cstddef>

#include "fwx_nat64/client.h"
#include "platform/runtime.h"

/** Commands on the library's list; 0 when it cannot be read. Makes one call of FWX_HOST_OP_LIST_HEAD. */
inline size_t outstanding_commands() {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    void *head = nullptr;
    if (info == nullptr || fwx_list_head(info->clnt_ctx_list, &head) != 0) return 0;
    size_t count = 0;
    for (auto *link = static_cast<fwx_list_link_t *>(head); link != nullptr; link = link->next) {
        ++count;
    }
    return count;
}

inline void debug_flags_set(uint32_t errors, uint32_t others) {
    fwx_nat64_dbg_error_set(errors);
    fwx_nat64_dbg_warning_set(others);
    fwx_nat64_dbg_info_set(others);
    fwx_nat64_dbg_trace_set(others);
}

#endif
