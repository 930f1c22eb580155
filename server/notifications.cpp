/* Unsolicited messages to the clients that have asked for them. */
#include "fwx_host/errors.h"
#include "server/state.h"

namespace {

fwx_nat64_unsol_msg_t unsolicited(uint32_t event) {
    fwx_nat64_unsol_msg_t msg{};
    msg.hdr.type = FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_UNSOL_SETUP;
    msg.hdr.domain = FWX_NAT64_MSG_DOMAIN;
    msg.event = event;
    return msg;
}

}  // namespace

uint32_t nat64_server_t::notify(const void *msg, size_t size) {
    std::vector<fwx_host_peer_t *> receivers;
    for (const client_t &client : state_->clients.open) {
        if (client.wants_notifications) receivers.push_back(client.peer);
    }
    uint32_t result = receivers.empty() ? FWX_HOST_ERR_CHANNEL_DOWN : 0;
    for (fwx_host_peer_t *receiver : receivers) {
        const uint32_t code = fwx_host_peer_send(receiver, msg, size);
        if (result == 0) result = code;
    }
    return result;
}

uint32_t nat64_server_t::wakeup() {
    const fwx_nat64_unsol_msg_t msg = unsolicited(FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP);
    return notify(&msg, sizeof(msg));
}

uint32_t nat64_server_t::notify_record(bool add, uint32_t word1, uint32_t word2, uint32_t word3) {
    fwx_nat64_unsol_record_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_RECORD);
    msg.word1 = word1;
    msg.word2 = word2;
    msg.word3 = word3;
    msg.add = add ? 1 : 0;
    return notify(&msg, sizeof(msg));
}

uint32_t nat64_server_t::notify_event() {
    const fwx_nat64_unsol_msg_t msg = unsolicited(FWX_NAT64_UNSOL_EVENT);
    return notify(&msg, sizeof(msg));
}

uint32_t nat64_server_t::notify_mapping(uint32_t id, bool active, uint32_t value) {
    fwx_nat64_unsol_mapping_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_MAPPING);
    msg.id = id;
    msg.value = value;
    msg.inactive = active ? 0 : 1;
    return notify(&msg, sizeof(msg));
}

uint32_t nat64_server_t::notify_debug(uint32_t selector, uint32_t on) {
    fwx_nat64_unsol_debug_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_DEBUG);
    msg.selector = selector;
    msg.on = on;
    return notify(&msg, sizeof(msg));
}
