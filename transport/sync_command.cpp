#include "client/client.h"
#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "platform/smc.h"

namespace {

/* Sends and waits, for both send functions; `caller` is the name under which a failure is logged. */
uint32_t exchange(void *msg, size_t size, void *reply, size_t reply_size, const char *caller) {
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    uint32_t rc = client_is_up(info) && !nat64_binding.is_unloading ? fwx_nat64_client_connect_to_server(&info, 1)
                                                                    : FWX_NAT64_ERR_NOT_READY;
    if (rc == 0) rc = smc_sync_msg_send(info->chan, msg, size, reply, reply_size);
    smc_msg_tx_buffer_free(msg);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s msg_send failed %s", caller, xerr_strerror(rc));
        return rc;
    }
    uint32_t result = 0; /* copied, because the PAL's buffer may have any alignment */
    fwx_memcpy(&result, static_cast<const uint8_t *>(reply) + offsetof(fwx_nat64_sync_reply_t, result), sizeof(result));
    return result;
}

}  // namespace

uint32_t fwx_nat64_client_sync_cmd_init(size_t size, uint32_t msgno, void **msg) {
    if (!client_may_frame(fwx_nat64_client_info_get())) return FWX_NAT64_ERR_NOT_READY;
    if (msg == nullptr) return FWX_NAT64_ERR_BAD_ARG;
    void *buffer = nullptr;
    if (smc_msg_tx_buffer_alloc(size, &buffer) != 0) return FWX_NAT64_ERR_NOMEM;
    auto *hdr = static_cast<fwx_nat64_sync_hdr_t *>(buffer);
    hdr->type = static_cast<uint16_t>(FWX_NAT64_MSG_SYNC | (msgno & FWX_NAT64_MSG_NUMBER_MASK));
    hdr->domain = FWX_NAT64_MSG_DOMAIN;
    *msg = buffer;
    return 0;
}

uint32_t fwx_nat64_client_sync_cmd_send(void *msg, size_t size) {
    if (msg == nullptr) return FWX_NAT64_ERR_BAD_ARG;
    fwx_nat64_sync_reply_t reply = {};
    return exchange(msg, size, &reply, sizeof(reply), __func__);
}

uint32_t fwx_nat64_client_sync_cmd_rsp_send(void *msg, size_t size, void *rsp, size_t rsp_size) {
    if (msg == nullptr || rsp == nullptr || rsp_size < sizeof(fwx_nat64_sync_reply_t)) return FWX_NAT64_ERR_BAD_ARG;
    return exchange(msg, size, rsp, rsp_size, __func__);
}
