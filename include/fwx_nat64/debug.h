/** @file
 * Debug flags of the library.
 *
 * Each diagnostic goes to two channels. The flag of its level gates one, the platform's debug level for
 * FWX_NAT64_DEBUG_MODULE the other. Flags keep their values until the library is unloaded. At the first bind each of
 * the environment variables FWX_NAT64_DBG_ERRORS, _WARNING, _TRACE and _INFO that is set, even to an empty value,
 * switches its flag on.
 */
#ifndef FWX_NAT64_DEBUG_H
#define FWX_NAT64_DEBUG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** The module number under which the platform keeps the library's debug level. */
#define FWX_NAT64_DEBUG_MODULE 0x1c000000u

/** Reads the environment variables and prints to the console which flags they switch on. */
void fwx_nat64_dbg_init(void);
/** Sets the error flag (on after load): 0 off, anything else on. May be called at any time. */
void fwx_nat64_dbg_error_set(uint32_t on);
/** Sets the warning flag (off after load). */
void fwx_nat64_dbg_warning_set(uint32_t on);
/** Sets the trace flag (off after load). */
void fwx_nat64_dbg_trace_set(uint32_t on);
/** Sets the info flag (off after load). */
void fwx_nat64_dbg_info_set(uint32_t on);

/** The flags in the form that the platform's flag-gated debug functions take; they define the order of the slots. */
typedef struct {
    const void *reserved0;   /**< reserved */
    const uint32_t *error;   /**< error flag */
    const uint32_t *info;    /**< info flag */
    const uint32_t *trace;   /**< trace flag */
    const uint32_t *warning; /**< warning flag */
    const void *reserved5;   /**< reserved */
} fwx_nat64_dbg_flags_t;

/** The pointers are set at load and never change. */
extern const fwx_nat64_dbg_flags_t fwx_nat64_dbg_flags;

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
