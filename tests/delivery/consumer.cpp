/* A PAL in C++ with a server of its own: one configuration command, answered with the server's verdict. */
#include <fwx_host/fwx_host.h>
#include <fwx_nat64/fwx_nat64.h>

#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t verdict = 0x1234;
uint32_t op_code_received = 0;
uint32_t verdict_received = 0;

void answer(void *, fwx_host_peer_t *peer, const void *msg, size_t size) {
    fwx_nat64_msg_hdr_t hdr;
    std::memcpy(&hdr, msg, sizeof(hdr));
    if ((hdr.type & FWX_NAT64_MSG_NUMBER_MASK) == FWX_NAT64_MSG_CONFIG && size >= sizeof(fwx_nat64_cfg_msg_t)) {
        op_code_received = static_cast<const fwx_nat64_cfg_msg_t *>(msg)->op_code;
    }
    fwx_nat64_reply_t reply{};
    reply.hdr = hdr;
    reply.hdr.type = FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_RESULT;
    reply.result = verdict;
    fwx_host_peer_send(peer, &reply, sizeof(reply));
}

size_t accept_init(void *, fwx_host_peer_t *, const void *msg, size_t, void *reply, size_t) {
    fwx_nat64_sync_reply_t accepted{};
    std::memcpy(&accepted.hdr, msg, sizeof(accepted.hdr));
    std::memcpy(reply, &accepted, sizeof(accepted));
    return sizeof(accepted);
}

}  // namespace

int main() {
    const fwx_host_server_ops_t ops = {nullptr, nullptr, answer, accept_init};
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_server_t *server = nullptr;
    if (fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &ops, nullptr, &server) != 0) return 1;

    fwx_nat64_reply_cbs_t reply_cbs{};
    reply_cbs.cfg_reply_cb = [](fwx_nat64_cmd_result_t *result) {
        if (result->pal_ctx == &verdict_received) verdict_received = result->result;
    };
    if (fwx_nat64_bind("PALX", loop, nullptr, &reply_cbs) != 0) return 1;
    const fwx_nat64_timeout_t timeout = {2, 60};
    if (fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, &verdict_received) != 0) return 1;
    fwx_host_loop_run_until_idle(loop);
    fwx_nat64_unbind();
    fwx_host_server_unregister(server);
    fwx_host_loop_destroy(loop);

    std::printf("op code %u, verdict 0x%x\n", op_code_received, verdict_received);
    return op_code_received == FWX_NAT64_CFG_TIMEOUT_SET && verdict_received == verdict ? 0 : 1;
}
