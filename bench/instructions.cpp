/*
 * Repeats one kind of work COUNT times, so that a tool outside can count its instructions.
 * usage: instructions call|install COUNT
 *        instructions in-order|reversed COUNT OUTSTANDING   answered commands, OUTSTANDING at a time
 *        instructions awaited|framed COUNT   answered commands one at a time: from one coroutine, or from one for each
 */
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "fwx_host/adapter.hpp"
#include "rule_data.h"
#include "tools/seed.h"

namespace {

/* The server does as little as possible, because its instructions are counted too. */
fwx_host_peer_t *client;
std::vector<fwx_nat64_reply_t> replies; /* to the unanswered commands; sized for all outstanding ones */
size_t reply_count;

void received(void * /*ctx*/, fwx_host_peer_t *peer, const void *msg, size_t /*size*/) {
    client = peer;
    const auto *hdr = static_cast<const fwx_nat64_msg_hdr_t *>(msg);
    if (hdr->type != (FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_CONFIG)) return;
    fwx_nat64_msg_hdr_t &reply = replies[reply_count++].hdr;
    reply = *hdr;
    reply.type = FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_RESULT;
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
    const auto count = static_cast<ptrdiff_t>(reply_count);
    if (is_reversed) std::reverse(replies.begin(), replies.begin() + count);
    std::for_each_n(replies.begin(), count,
                    [](const fwx_nat64_reply_t &reply) { fwx_host_peer_send(client, &reply, sizeof(reply)); });
    reply_count = 0;
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

namespace nat64 = fwx::nat64;
constexpr nat64::timeout a_timeout = {nat64::timeout_kind::udp, nat64::seconds(300)};

nat64::task<> await_commands(nat64::client &pal, int count) {
    for (int i = 0; i < count; ++i) {
        co_await pal.timeout_set(a_timeout);
    }
}
nat64::task<> await_one(nat64::client &pal) {
    co_await pal.timeout_set(a_timeout);
}
nat64::task<> await_frames(nat64::client &pal, int count) {
    for (int i = 0; i < count; ++i) {
        co_await await_one(pal);
    }
}

void await_all(fwx_host_loop_t *loop, int count, bool is_framed) {
    nat64::client pal("", loop, {}, fwx::host::adapter);
    nat64::task<> task = is_framed ? await_frames(pal, count) : await_commands(pal, count);
    fwx_host_loop_run_until_idle(loop);
    task.start();
    while (!task.done()) {
        fwx_host_loop_run_until_idle(loop);
        answer_all(false);
        fwx_host_loop_run_until_idle(loop);
    }
    _exit(0);
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
    const int outstanding = argc == 4 ? std::max(atoi(argv[3]), 1) : 1;
    replies.resize(static_cast<size_t>(outstanding));
    if (work == "awaited" || work == "framed") await_all(loop, count, work == "framed");
    if (fwx_nat64_bind(nullptr, loop, nullptr, &callbacks) != 0) return 1;
    fwx_host_loop_run_until_idle(loop);
    if (work == "install") {
        install_rules(count);
    } else if (work == "call") {
        call(count);
    } else if (argc == 4 && (work == "in-order" || work == "reversed")) {
        exchange(loop, count, outstanding, work == "reversed");
    } else {
        return 2;
    }
    _exit(0); /* without cleaning up, which would be counted */
}
