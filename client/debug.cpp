#include "fwx_nat64/debug.h"

#include "client/log.h"

namespace {

uint32_t error_flag = 1;
uint32_t warning_flag = 0;
uint32_t trace_flag = 0;
uint32_t info_flag = 0;

}  // namespace

const fwx_nat64_dbg_flags_t fwx_nat64_dbg_flags = {nullptr,     &error_flag,   &info_flag,
                                                   &trace_flag, &warning_flag, nullptr};

/* The value does not matter; an empty one counts too. */
#define SWITCH_ON_IF_SET(variable, level, flag)                            \
    do {                                                                   \
        if (fwx_getenv(variable) != nullptr) {                             \
            fwx_printf("\nFWX NAT64 EA: enable " level " debug messages"); \
            (flag) = 1;                                                    \
        }                                                                  \
    } while (0)

void fwx_nat64_dbg_init(void) {
    SWITCH_ON_IF_SET("FWX_NAT64_DBG_ERRORS", "error", error_flag);
    SWITCH_ON_IF_SET("FWX_NAT64_DBG_WARNING", "warning", warning_flag);
    SWITCH_ON_IF_SET("FWX_NAT64_DBG_TRACE", "trace", trace_flag);
    SWITCH_ON_IF_SET("FWX_NAT64_DBG_INFO", "info", info_flag);
}

void fwx_nat64_dbg_error_set(uint32_t on) {
    error_flag = on;
}
void fwx_nat64_dbg_warning_set(uint32_t on) {
    warning_flag = on;
}
void fwx_nat64_dbg_trace_set(uint32_t on) {
    trace_flag = on;
}
void fwx_nat64_dbg_info_set(uint32_t on) {
    info_flag = on;
}
