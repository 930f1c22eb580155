/* The state of the binding. */
#include "fwx_nat64/fwx_nat64.h"
#include "tools/natctl/grammar.h"

namespace {

uint32_t show_status(call_t &call) {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return FWX_NAT64_ERR_NOT_READY;
    call.outcome.data = {{"connected", info->connected != 0},
                         {"epoch", info->epoch},
                         {"outstanding", call.pal.outstanding()},
                         {"throttle_on_cnt", info->throttle_on_cnt},
                         {"throttle_off_cnt", info->throttle_off_cnt}};
    return 0;
}

}  // namespace

void add_status_command(grammar_t &grammar) {
    grammar.immediate("status", "Shows the state of the binding", show_status);
}
