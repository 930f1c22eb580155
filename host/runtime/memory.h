/* Memory of the platform's own, and what becomes of an operation when there is none. */
#ifndef HOST_RUNTIME_MEMORY_H
#define HOST_RUNTIME_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

constexpr uint32_t host_errno_nomem = 12; /* what the platform reports when memory is out */

/** fwx_calloc_named for the platform's own use: no call of FWX_HOST_OP_CALLOC is counted. */
[[gnu::visibility("hidden")]] void *host_block_alloc(uint32_t tag, size_t size);

/**
 * Returns what `work` returns (0 if that is nothing), or `when_out` when memory ends meanwhile. Containers and strings
 * tell of that by an exception, and none may leave a C function: whatever can come to use them is done in here.
 */
template <typename result_t, typename work_t>
result_t host_guarded(result_t when_out, work_t work) noexcept {
    try {
        if constexpr (std::is_void_v<decltype(work())>) {
            work();
            return {};
        } else {
            return work();
        }
    } catch (const std::bad_alloc &) {
        return when_out;
    }
}

#endif
