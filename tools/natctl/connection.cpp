#include "tools/natctl/connection.h"

#include <cstring>

#include "fwx_nat64/client.h"
#include "fwx_nat64/wire.h"

namespace {

void swallow(void *, fwx_host_peer_t *, const void *, size_t) {}

size_t answer_zero(void *, fwx_host_peer_t *, const void *msg, size_t size, void *reply, size_t reply_cap) {
    fwx_nat64_sync_reply_t answer{};
    if (size < sizeof answer.hdr || reply_cap < sizeof answer) return 0;
    std::memcpy(&answer.hdr, msg, sizeof answer.hdr);
    std::memcpy(reply, &answer, sizeof answer);
    return sizeof answer;
}

constexpr fwx_host_server_ops_t sink_ops = {nullptr, nullptr, swallow, answer_zero};

}  // namespace

connection_t::connection_t(fwx_host_loop_t *loop, server_kind_t kind, const std::string &remote_name) {
    if (kind == server_kind_t::remote) {
        result_ = fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, remote_name.c_str());
        return;
    }
    if (kind == server_kind_t::sink) {
        result_ = fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &sink_ops, nullptr, &sink_);
        return;
    }
    model_ = fwx_nat64_model_t::create(loop, FWX_NAT64_CHANNEL_NAME);
    if (model_ == nullptr) result_ = FWX_HOST_ERR_NAME_TAKEN;
}

connection_t::~connection_t() {
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
    fwx_host_server_unregister(sink_);
}
