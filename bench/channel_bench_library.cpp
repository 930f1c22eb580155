/* The variants that use the library: its commands, to a server that answers each at once. */
#include <cstring>
#include <string>

#include "channel_bench.h"
#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "tools/seed.h"

namespace {

uint32_t answers;

void answer(void *, fwx_host_peer_t *peer, const void *msg, size_t) {
    fwx_nat64_reply_t reply{};
    memcpy(&reply.hdr, msg, sizeof(reply.hdr));
    reply.hdr.type = FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_RESULT;
    fwx_host_peer_send(peer, &reply, sizeof(reply));
}

size_t answer_at_once(void *, fwx_host_peer_t *, const void *msg, size_t, void *reply, size_t) {
    memset(reply, 0, sizeof(fwx_nat64_sync_reply_t));
    memcpy(reply, msg, sizeof(uint32_t));
    return sizeof(fwx_nat64_sync_reply_t);
}

constexpr fwx_host_server_ops_t ops = {nullptr, nullptr, answer, answer_at_once};

/** The client of the exchange: a binding of the library. */
class client_t {
public:
    explicit client_t(fwx_host_loop_t *loop) : loop_(loop) {
        fwx_nat64_reply_cbs_t callbacks{};
        callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *) { ++answers; };
        seed_random();
        while (fwx_nat64_bind(nullptr, loop_, nullptr, &callbacks) != 0) {
            usleep(1000); /* the server does not listen yet */
        }
        fwx_host_loop_run_once(loop_, 10);
    }
    ~client_t() {
        fwx_nat64_unbind();
        fwx_host_loop_run_until_idle(loop_);
    }
    client_t(const client_t &) = delete;
    client_t &operator=(const client_t &) = delete;

    void send() {
        const fwx_nat64_timeout_t timeout = {1, 300};
        fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &timeout, this);
    }
    uint32_t receive() {
        const uint32_t before = answers;
        while (answers == before) {
            fwx_host_loop_run_once(loop_, -1);
        }
        return answers - before;
    }

private:
    fwx_host_loop_t *loop_;
};

double run_client(fwx_host_loop_t *loop, const setting_t &setting) {
    fwx_nat64_dbg_error_set(0);
    client_t client(loop);
    return measure(client, setting);
}

}  // namespace

double run_in_process(const setting_t &setting) {
    pin(setting.client_cpu);
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_server_t *server = nullptr;
    fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &ops, nullptr, &server);
    const double seconds = run_client(loop, setting);
    fwx_host_server_unregister(server);
    fwx_host_loop_destroy(loop);
    return seconds;
}

double run_between_processes(const setting_t &setting) {
    pin(setting.client_cpu);
    const std::string name = "bench-" + std::to_string(getpid());
    fwx_host_spin_set_us(setting.spin_us);
    const server_process_t process(setting.server_cpu, [&] {
        fwx_host_loop_t *loop = fwx_host_loop_create();
        fwx_host_server_t *server = nullptr;
        fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &ops, nullptr, &server);
        if (fwx_host_server_listen(server, name.c_str()) != 0) return;
        for (;;) {
            fwx_host_loop_run_once(loop, -1);
        }
    });
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, name.c_str());
    const double seconds = run_client(loop, setting);
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
    fwx_host_spin_set_us(0);
    fwx_host_loop_destroy(loop);
    return seconds;
}
