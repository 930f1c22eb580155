/* What the model tells its clients without being asked, and classifier notifications to the library. */
#include "fwx_host/cgm.h"
#include "fwx_host/errors.h"
#include "fwx_nat64/client.h"
#include "model/state.h"

namespace {

fwx_nat64_unsol_msg_t unsolicited(uint32_t event) {
    fwx_nat64_unsol_msg_t msg{};
    msg.hdr.type = FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_UNSOL_SETUP;
    msg.hdr.domain = FWX_NAT64_MSG_DOMAIN;
    msg.event = event;
    return msg;
}

}  // namespace

uint32_t fwx_nat64_model_t::notify(const void *msg, size_t size) {
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

uint32_t fwx_nat64_model_t::wakeup() {
    const fwx_nat64_unsol_msg_t msg = unsolicited(FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP);
    return notify(&msg, sizeof(msg));
}

uint32_t fwx_nat64_model_t::notify_record(bool add, uint32_t word1, uint32_t word2, uint32_t word3) {
    fwx_nat64_unsol_record_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_RECORD);
    msg.word1 = word1;
    msg.word2 = word2;
    msg.word3 = word3;
    msg.add = add ? 1 : 0;
    return notify(&msg, sizeof(msg));
}

uint32_t fwx_nat64_model_t::notify_event() {
    const fwx_nat64_unsol_msg_t msg = unsolicited(FWX_NAT64_UNSOL_EVENT);
    return notify(&msg, sizeof(msg));
}

uint32_t fwx_nat64_model_t::notify_mapping(uint32_t id, bool active, uint32_t value) {
    fwx_nat64_unsol_mapping_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_MAPPING);
    msg.id = id;
    msg.value = value;
    msg.inactive = active ? 0 : 1;
    return notify(&msg, sizeof(msg));
}

uint32_t fwx_nat64_model_t::notify_debug(uint32_t selector, uint32_t on) {
    fwx_nat64_unsol_debug_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_DEBUG);
    msg.selector = selector;
    msg.on = on;
    return notify(&msg, sizeof(msg));
}

uint32_t fwx_nat64_model_t::cgm_end_batch(uint32_t batch_id, bool async, void *ctx) {
    return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, FWX_NAT64_CGM_OP_END_BATCH, nullptr, batch_id, async ? 1 : 0,
                               ctx);
}

uint32_t fwx_nat64_model_t::cgm_update(uint32_t batch_id, const uint8_t data[24], bool async, void *ctx) {
    /* The client copies the data and never writes into it. */
    void *cell = const_cast<uint8_t *>(data);
    return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE, &cell, batch_id,
                               async ? 1 : 0, ctx);
}
