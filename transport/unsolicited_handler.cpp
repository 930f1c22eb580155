#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "transport/handler_table.h"

namespace {

/* Answers a wakeup: the server can take commands again, and goes on when it gets this message. */
uint32_t fwx_nat64_client_pal_cmd_q_resume_send_a() {
    NAT64_LOG_INFO("\nNAT_CLIENT: %s entered", __func__);
    void *msg = nullptr;
    uint32_t rc = fwx_nat64_client_async_cmd_init(sizeof(fwx_nat64_msg_hdr_t), FWX_NAT64_MSG_PAL_CMD_Q_RESUME, nullptr,
                                                  nullptr, &msg);
    if (rc != 0) return rc;
    rc = fwx_nat64_client_async_cmd_send(msg, sizeof(fwx_nat64_msg_hdr_t));
    if (rc != 0) return rc;
    NAT64_LOG_INFO("\n%s FWX_NAT64_EVENT_PAL_CMD_Q_RESUME is sent", __func__);
    return 0;
}

}  // namespace

void fwx_nat64_async_unsol_notify_svr(void * /*arg1*/, void * /*arg2*/, void *msg, size_t size) {
    if (size < msg_row(FWX_NAT64_MSG_UNSOL_SETUP).least_bytes) {
        NAT64_LOG_ERROR("\n%s notification of %zu bytes is too short", __func__, size);
        return;
    }
    if (static_cast<const fwx_nat64_unsol_msg_t *>(msg)->event == FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP) {
        NAT64_LOG_INFO("\n%s FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP  is received", __func__);
        const uint32_t rc = fwx_nat64_client_pal_cmd_q_resume_send_a();
        if (rc != 0) {
            NAT64_LOG_INFO("\n%s pal_cmd_q_resume_send_a  is failed - %s", __func__, xerr_strerror(rc));
        }
        return;
    }
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info != nullptr && info->unsol_hndlr != nullptr) info->unsol_hndlr(msg, size);
}
