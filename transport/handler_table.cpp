#include "transport/handler_table.h"

#include "fwx_nat64/wire.h"

namespace {

#define END_OF(type, field) (offsetof(type, field) + sizeof(type::field))

constexpr size_t result_end = END_OF(fwx_nat64_reply_t, result);
constexpr size_t event_end = END_OF(fwx_nat64_unsol_msg_t, event);
constexpr size_t sys_end = END_OF(fwx_nat64_stats_sys_reply_t, more);
constexpr size_t intf_end = END_OF(fwx_nat64_stats_intf_reply_t, value);
constexpr size_t all_end = END_OF(fwx_nat64_stats_all_reply_t, value2);
constexpr size_t walk_end = END_OF(fwx_nat64_sess_walk_reply_t, value2);
constexpr size_t rule_end = END_OF(fwx_nat64_mapt_reply_t, bmr_index);

constexpr smc_msg_handler_fn_t rc = fwx_nat64_async_rc_svr;
constexpr smc_msg_handler_fn_t notify = fwx_nat64_async_unsol_notify_svr;
constexpr smc_msg_handler_fn_t rsp = fwx_nat64_async_rsp_svr;
constexpr smc_msg_handler_fn_t cgm = fwx_nat64_async_cgm_reply_svr;

}  // namespace

/* clang-format off */
constexpr fwx_nat64_msg_hndlr_t fwx_nat64_msg_hndlr_tbl[FWX_NAT64_MSG_MAX + 1] = {
    {FWX_NAT64_MSG_RESULT,            nullptr, rc,      result_end, result_end, nullptr,         fail_result, false, false},
    {FWX_NAT64_MSG_UNSOL_SETUP,       nullptr, notify,  event_end,  event_end,  nullptr,         nullptr,     false, false},
    {FWX_NAT64_MSG_INIT,              nullptr, nullptr, result_end, result_end, nullptr,         fail_result, false, false},
    {FWX_NAT64_MSG_CONFIG,            nullptr, nullptr, result_end, result_end, nullptr,         fail_result, false, false},
    {FWX_NAT64_MSG_STATS_SYS,         nullptr, rsp,     sys_end,    result_end, deliver_sys,     fail_sys,    true,  false},
    {FWX_NAT64_MSG_STATS_INTF,        nullptr, rsp,     intf_end,   intf_end,   deliver_intf,    fail_intf,   true,  false},
    {FWX_NAT64_MSG_STATS_POOL_ALL,    nullptr, rsp,     all_end,    all_end,    deliver_pool,    fail_pool,   true,  false},
    {FWX_NAT64_MSG_STATS_MAPPING_ALL, nullptr, rsp,     all_end,    all_end,    deliver_pool,    fail_pool,   true,  false},
    {FWX_NAT64_MSG_STATS_LIMIT_ALL,   nullptr, rsp,     intf_end,   intf_end,   deliver_intf,    fail_intf,   true,  false},
    {FWX_NAT64_MSG_SESSION_WALK,      nullptr, rsp,     walk_end,   result_end, deliver_walk,    fail_walk,   true,  true},
    {FWX_NAT64_MSG_CGM_REPLY,         nullptr, cgm,     result_end, result_end, nullptr,         nullptr,     false, false},
    {FWX_NAT64_MSG_CGM_REPLY2,        nullptr, cgm,     result_end, result_end, nullptr,         nullptr,     false, false},
    {FWX_NAT64_MSG_PAL_CMD_Q_RESUME,  nullptr, nullptr, result_end, result_end, nullptr,         nullptr,     false, false},
    {FWX_NAT64_MSG_MAPT_RULE,         nullptr, rsp,     rule_end,   rule_end,   deliver_rule,    fail_result, false, false},
    {FWX_NAT64_MSG_MAX,               nullptr, nullptr, result_end, result_end, nullptr,         nullptr,     false, false},
};
/* clang-format on */

namespace {

constexpr bool every_row_stands_at_its_number() {
    uint32_t msgno = 0;
    for (const fwx_nat64_msg_hndlr_t &row : fwx_nat64_msg_hndlr_tbl) {
        if (row.msgno != msgno++) return false;
    }
    return true;
}
static_assert(result_end == FWX_NAT64_REPLY_MIN_SIZE, "every handler of replies has looked at that much first");
static_assert(every_row_stands_at_its_number(), "every message number has its row");

}  // namespace
