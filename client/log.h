/*
 * The library's diagnostics. Each goes to the flag channel if the flag of its level is on, and to the level channel if
 * the platform's debug level for the library is high enough. Arguments are evaluated once for each channel that is
 * open, and not at all when both are closed. The format is a string literal.
 *
 * The texts are part of the library's interface, because programs that read the log match them. Each stays byte for
 * byte as it is, including trailing, doubled or missing blanks ("forfwx(%d)") and odd spellings ("Initialzing",
 * "tabe").
 */
#ifndef CLIENT_LOG_H
#define CLIENT_LOG_H

#include "fwx_nat64/debug.h"
#include "platform/runtime.h"

/* Lowest debug level at which the level channel shows each kind of diagnostic. */
enum { nat64_level_error = 1, nat64_level_warn = 2, nat64_level_info = 3, nat64_level_trace = 4 };

static inline bool nat64_flag_open(const uint32_t *flag) {
    return flag == nullptr || *flag != 0;
}

#define NAT64_LOG(level, slot, format, ...)                                               \
    do {                                                                                  \
        if (nat64_flag_open(fwx_nat64_dbg_flags.slot)) {                                  \
            fwx_buginf_flags_internal_##level(&fwx_nat64_dbg_flags, format, __VA_ARGS__); \
        }                                                                                 \
        if (fwx_get_debug_level(FWX_NAT64_DEBUG_MODULE) >= nat64_level_##level) {         \
            fwx_buginf_##level("\nNAT64: " format, __VA_ARGS__);                          \
        }                                                                                 \
    } while (0)

/* Logs one of two formats that take the same arguments. */
#define NAT64_LOG_EITHER(level, slot, first, format1, format2, ...)                                            \
    do {                                                                                                       \
        if (nat64_flag_open(fwx_nat64_dbg_flags.slot)) {                                                       \
            fwx_buginf_flags_internal_##level(&fwx_nat64_dbg_flags, (first) ? format1 : format2, __VA_ARGS__); \
        }                                                                                                      \
        if (fwx_get_debug_level(FWX_NAT64_DEBUG_MODULE) >= nat64_level_##level) {                              \
            fwx_buginf_##level((first) ? "\nNAT64: " format1 : "\nNAT64: " format2, __VA_ARGS__);              \
        }                                                                                                      \
    } while (0)
#define NAT64_LOG_ERROR_EITHER(first, format1, format2, ...) \
    NAT64_LOG_EITHER(error, error, first, format1, format2, __VA_ARGS__)
#define NAT64_LOG_INFO_EITHER(first, format1, format2, ...) \
    NAT64_LOG_EITHER(info, info, first, format1, format2, __VA_ARGS__)

#define NAT64_LOG_ERROR(format, ...) NAT64_LOG(error, error, format, __VA_ARGS__)
#define NAT64_LOG_WARNING(format, ...) NAT64_LOG(warn, warning, format, __VA_ARGS__)
#define NAT64_LOG_INFO(format, ...) NAT64_LOG(info, info, format, __VA_ARGS__)
#define NAT64_LOG_TRACE(format, ...) NAT64_LOG(trace, trace, format, __VA_ARGS__)

#endif
