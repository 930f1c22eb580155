/* What the model tells its clients without being asked, and classifier notifications to the library. */
#include "fwx_host/cgm.h"
#include "fwx_host/errors.h"
#include "fwx_nat64/client.h"
#include "model/state.h"

namespace {

constexpr uint32_t cgm_op_end_batch = 2;
constexpr uint32_t cgm_op_update = 4;

fwx_nat64_unsol_msg_t unsolicited(uint32_t event) {
    fwx_nat64_unsol_msg_t msg{};
    msg.hdr.type = FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_UNSOL_SETUP;
    msg.hdr.domain = FWX_NAT64_MSG_DOMAIN;
    msg.event = event;
    return msg;
}

uint32_t notify_bare(fwx_nat64_model_t *model, uint32_t event) {
    const fwx_nat64_unsol_msg_t msg = unsolicited(event);
    return fwx_nat64_model_notify(model, &msg, sizeof(msg));
}

}  // namespace

uint32_t fwx_nat64_model_notify(fwx_nat64_model_t *model, const void *msg, size_t size) {
    std::vector<fwx_host_peer_t *> receivers;
    for (const client_t &client : model->clients.open) {
        if (client.wants_notifications) receivers.push_back(client.peer);
    }
    uint32_t result = receivers.empty() ? FWX_HOST_ERR_CHANNEL_DOWN : 0;
    for (fwx_host_peer_t *receiver : receivers) {
        const uint32_t code = fwx_host_peer_send(receiver, msg, size);
        if (result == 0) result = code;
    }
    return result;
}

uint32_t fwx_nat64_model_wakeup(fwx_nat64_model_t *model) {
    return notify_bare(model, FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP);
}

uint32_t fwx_nat64_model_notify_record(fwx_nat64_model_t *model, bool add, uint32_t word1, uint32_t word2,
                                       uint32_t word3) {
    fwx_nat64_unsol_record_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_RECORD);
    msg.word1 = word1;
    msg.word2 = word2;
    msg.word3 = word3;
    msg.add = add ? 1 : 0;
    return fwx_nat64_model_notify(model, &msg, sizeof(msg));
}

uint32_t fwx_nat64_model_notify_event(fwx_nat64_model_t *model) {
    return notify_bare(model, FWX_NAT64_UNSOL_EVENT);
}

uint32_t fwx_nat64_model_notify_mapping(fwx_nat64_model_t *model, uint32_t id, bool active, uint32_t value) {
    fwx_nat64_unsol_mapping_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_MAPPING);
    msg.id = id;
    msg.value = value;
    msg.inactive = active ? 0 : 1;
    return fwx_nat64_model_notify(model, &msg, sizeof(msg));
}

uint32_t fwx_nat64_model_notify_debug(fwx_nat64_model_t *model, uint32_t selector, uint32_t on) {
    fwx_nat64_unsol_debug_msg_t msg{};
    msg.msg = unsolicited(FWX_NAT64_UNSOL_DEBUG);
    msg.selector = selector;
    msg.on = on;
    return fwx_nat64_model_notify(model, &msg, sizeof(msg));
}

uint32_t fwx_nat64_model_cgm_end_batch(uint32_t batch_id, bool async, void *ctx) {
    return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, cgm_op_end_batch, nullptr, batch_id, async ? 1 : 0, ctx);
}

uint32_t fwx_nat64_model_cgm_update(uint32_t batch_id, const uint8_t data[24], bool async, void *ctx) {
    /* The client copies the data and never writes into it. */
    void *cell = const_cast<uint8_t *>(data);
    return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, cgm_op_update, &cell, batch_id, async ? 1 : 0, ctx);
}
