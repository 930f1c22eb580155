#include "commands/envelope.h"

#include "fwx_nat64/client.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"

uint32_t fwx_nat64_client_cfg_cmd_send_a(uint32_t op_code, const void *payload, size_t len, void *pal_ctx) {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return FWX_NAT64_ERR_NOT_READY;

    const size_t size = sizeof(fwx_nat64_cfg_msg_t) + len;
    void *msg = nullptr;
    const uint32_t rc = fwx_nat64_client_async_cmd_init(size, FWX_NAT64_MSG_CONFIG, pal_ctx,
                                                        reinterpret_cast<void *>(info->reply_cb.cfg_reply_cb), &msg);
    if (rc != 0) return rc;
    auto *command = static_cast<fwx_nat64_cfg_msg_t *>(msg);
    command->op_code = op_code;
    if (len != 0) fwx_memcpy(command->payload, payload, len);
    return fwx_nat64_client_async_cmd_send(msg, size);
}

uint32_t cfg_delete_send_a(uint32_t op_code, uint32_t id, void *pal_ctx) {
    const fwx_nat64_delete_payload_t payload = {id, 1};
    return fwx_nat64_client_cfg_cmd_send_a(op_code, &payload, sizeof(payload), pal_ctx);
}

uint32_t addr_ipv4_word(const fwx_nat64_addr_t *addr) {
    uint32_t word = 0;
    fwx_memcpy(&word, addr->addr, sizeof(word));
    return word;
}

void addr_to_wire(fwx_nat64_addr_t *addr) {
    if (addr->family != FWX_NAT64_FAMILY_IPV4) return;
    const uint32_t word = to_network_order(addr_ipv4_word(addr));
    fwx_memcpy(addr->addr, &word, sizeof(word));
}
