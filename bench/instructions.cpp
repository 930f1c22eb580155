/*
 * One kind of work, so many times, for counting instructions from outside.
 * usage: instructions call|install COUNT
 *        instructions in-order|reversed COUNT OUTSTANDING   commands that are answered, so many at a time
 */
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "rule_data.h"
#include "tools/natctl/seed.h"

namespace {

fwx_host_peer_t *client;
std::vector<fwx_nat64_msg_hdr_t> unanswered;

void received(void * /*ctx*/, fwx_host_peer_t *peer, const void *msg, size_t /*size*/) {
    client = peer;
    fwx_nat64_msg_hdr_t hdr;
    memcpy(&hdr, msg, sizeof(hdr));
    if (hdr.type == (FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_CONFIG)) unanswered.push_back(hdr);
}

size_t asked(void * /*ctx*/, fwx_host_peer_t * /*peer*/, const void *msg, size_t /*size*/, void *reply,
             size_t /*cap*/) {
    memset(reply, 0, sizeof(fwx_nat64_sync_reply_t));
    memcpy(reply, msg, sizeof(uint32_t));
    return sizeof(fwx_nat64_sync_reply_t);
}

void call(int count) {
    const fwx_nat64_timeout_t timeout = {1, 300};
    for (int i = 0; i < count; ++i) {
        fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, nullptr);
    }
}

void answer_all(bool is_reversed) {
    if (is_reversed) std::reverse(unanswered.begin(), unanswered.end());
    for (const fwx_nat64_msg_hdr_t &hdr : unanswered) {
        fwx_nat64_reply_t reply{};
        reply.hdr = hdr;
        reply.hdr.type = FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_RESULT;
        fwx_host_peer_send(client, &reply, sizeof(reply));
    }
    unanswered.clear();
}

void exchange(fwx_host_loop_t *loop, int count, int outstanding, bool is_reversed) {
    for (int sent = 0; sent < count; sent += outstanding) {
        call(outstanding);
        fwx_host_loop_run_until_idle(loop);
        answer_all(is_reversed);
        fwx_host_loop_run_until_idle(loop);
    }
}

void install_rules(int count) {
    fwx_nat64_mapt_reply_t reply{};
    reply.op = FWX_NAT64_OP_ADD;
    for (const fwx_nat64_mapt_bmr_t &rule : random_rules(static_cast<size_t>(count))) {
        fwx_mapt_plu_add_pending_rule(&rule);
        reply.rule_id = rule.rule_id;
        reply.domain_id = rule.domain_id;
        fwx_mapt_plu_add_rule(&reply);
    }
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 3) return 2;
    const std::string_view work = argv[1];
    const int count = atoi(argv[2]);
    static constexpr fwx_host_server_ops_t ops = {nullptr, nullptr, received, asked};
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_server_t *server = nullptr;
    fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &ops, nullptr, &server);
    fwx_nat64_reply_cbs_t callbacks{};
    callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *) {};
    seed_random();
    if (fwx_nat64_bind(nullptr, loop, nullptr, &callbacks) != 0) return 1;
    fwx_host_loop_run_until_idle(loop);
    if (work == "install") {
        install_rules(count);
    } else if (work == "call") {
        call(count);
    } else if (argc == 4 && (work == "in-order" || work == "reversed")) {
        exchange(loop, count, std::max(atoi(argv[3]), 1), work == "reversed");
    } else {
        return 2;
    }
    _exit(0); /* no orderly end: it would be counted */
}
