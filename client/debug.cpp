#include "fwx_nat64/debug.h"

#include "client/log.h"

namespace {

uint32_t error_flag = 1;
uint32_t warning_flag = 0;
uint32_t trace_flag = 0;
uint32_t info_flag = 0;

struct environment_switch_t {
    const char *variable;
    const char *level;
    uint32_t *flag;
};

constexpr environment_switch_t environment_switches[] = {
    {"FWX_NAT64_DBG_ERRORS", "error", &error_flag},
    {"FWX_NAT64_DBG_WARNING", "warning", &warning_flag},
    {"FWX_NAT64_DBG_TRACE", "trace", &trace_flag},
    {"FWX_NAT64_DBG_INFO", "info", &info_flag},
};

}  // namespace

const fwx_nat64_dbg_flags_t fwx_nat64_dbg_flags = {nullptr,     &error_flag,   &info_flag,
                                                   &trace_flag, &warning_flag, nullptr};

void fwx_nat64_dbg_init(void) {
    for (const environment_switch_t &entry : environment_switches) {
        if (fwx_getenv(entry.variable) == nullptr) continue;
        fwx_printf("\nFWX NAT64 EA: enable %s debug messages", entry.level);
        *entry.flag = 1;
    }
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
