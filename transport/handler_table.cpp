#include "fwx_nat64/transport.h"
#include "transport/handlers.h"

constexpr fwx_nat64_msg_hndlr_t fwx_nat64_msg_hndlr_tbl[15] = {
    {FWX_NAT64_MSG_RESULT, nullptr, fwx_nat64_async_rc_svr},
    {FWX_NAT64_MSG_UNSOL_SETUP, nullptr, fwx_nat64_async_unsol_notify_svr},
    {FWX_NAT64_MSG_INIT, nullptr, nullptr},
    {FWX_NAT64_MSG_CONFIG, nullptr, nullptr},
    {FWX_NAT64_MSG_STATS_SYS, nullptr, fwx_nat64_async_rsp_svr},
    {FWX_NAT64_MSG_STATS_INTF, nullptr, fwx_nat64_async_rsp_svr},
    {FWX_NAT64_MSG_STATS_POOL_ALL, nullptr, fwx_nat64_async_rsp_svr},
    {FWX_NAT64_MSG_STATS_MAPPING_ALL, nullptr, fwx_nat64_async_rsp_svr},
    {FWX_NAT64_MSG_STATS_LIMIT_ALL, nullptr, fwx_nat64_async_rsp_svr},
    {FWX_NAT64_MSG_SESSION_WALK, nullptr, fwx_nat64_async_rsp_svr},
    {FWX_NAT64_MSG_CGM_REPLY, nullptr, fwx_nat64_async_cgm_reply_svr},
    {FWX_NAT64_MSG_CGM_REPLY2, nullptr, fwx_nat64_async_cgm_reply_svr},
    {FWX_NAT64_MSG_PAL_CMD_Q_RESUME, nullptr, nullptr},
    {FWX_NAT64_MSG_MAPT_RULE, nullptr, fwx_nat64_async_rsp_svr},
    {FWX_NAT64_MSG_MAX, nullptr, nullptr},
};

namespace {

constexpr bool every_entry_stands_at_its_number() {
    uint32_t msgno = 0;
    for (const fwx_nat64_msg_hndlr_t &entry : fwx_nat64_msg_hndlr_tbl) {
        if (entry.msgno != msgno++) return false;
    }
    return msgno == FWX_NAT64_MSG_MAX + 1;
}
static_assert(every_entry_stands_at_its_number(), "the handler table must be complete and in order");

}  // namespace
