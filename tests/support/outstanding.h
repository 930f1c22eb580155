/* The library's outstanding commands, the leaves of its rule table, and its debug output. */
#ifndef TESTS_SUPPORT_OUTSTANDING_H
#define TESTS_SUPPORT_OUTSTANDING_H

#include <cstddef>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/client.h"
#include "platform/runtime.h"
#include "platform/tbm.h"

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

/** Deletes and frees the leaves in the tree of complex 0, which a clean-up that failed has left; returns their number.
 */
inline uint64_t take_leaves() {
    const uint8_t key = 0;
    uint32_t code = 0;
    uint64_t count = 0;
    tbm_t *tree = fwx_host_tbm_of_complex(0);
    for (; tree != nullptr; ++count) {
        tbm_leaf_t *leaf = tbm_first_leaf(tree, &key, 0, &code);
        if (leaf == nullptr) break;
        tbm_leaf_delete(tree, leaf, &code);
        fwx_free_named(leaf);
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
