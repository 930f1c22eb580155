/* Memory allocation of the platform itself, and the conversion of std::bad_alloc into a code. */
#ifndef HOST_RUNTIME_MEMORY_H
#define HOST_RUNTIME_MEMORY_H

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>

constexpr uint32_t host_errno_nomem = 12; /* the platform's code when memory is exhausted: ENOMEM */

/** fwx_calloc_named for the platform's own use: does not count as a call of FWX_HOST_OP_CALLOC. */
[[gnu::visibility("hidden")]] void *host_block_alloc(uint32_t tag, size_t size);

/**
 * Calls `work` and returns its result (0 for void), or `when_out` when it throws std::bad_alloc. No exception may leave
 * a C function, so C functions use containers and strings only in here.
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
