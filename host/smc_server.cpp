#include "host/smc_server.h"

#include <unordered_map>

#include "host/internal.h"
#include "host/shm_server.h"
#include "host/smc_buffer.h"

namespace {

constexpr uint32_t messages_per_run = 64;

using servers_t = std::unordered_map<std::string, fwx_host_server_t *>;

servers_t &servers() {
    static servers_t &all = *new servers_t;
    return all;
}

}  // namespace

fwx_host_server::fwx_host_server(fwx_host_loop_t &loop, const char *server_name,
                                 const fwx_host_server_ops_t &server_ops, void *server_ctx)
    : loop_member_t(loop), home(loop), name(server_name), ops(server_ops), ctx(server_ctx) {}

fwx_host_server::~fwx_host_server() = default;

void fwx_host_server::loop_gone() {
    listener.reset();
}

fwx_host_peer::fwx_host_peer(fwx_host_server_t &its_server) : loop_member_t(its_server.home), server(&its_server) {
    server->peers.insert(this);
    make_ready();
}

uint32_t fwx_host_peer::run() {
    if (busy != 0) return 0;
    busy += 1;
    uint32_t calls = announce();
    calls += take(messages_per_run);
    busy -= 1;
    if (is_connected()) {
        after_run();
        if (can_take()) make_ready();
    }
    if (is_connected()) return calls;
    const uint32_t parting_calls = part();
    delete this;
    return calls + parting_calls;
}

uint32_t fwx_host_peer::announce() {
    if (is_announced || !is_connected()) return 0;
    is_announced = true;
    if (server->ops.connected == nullptr) return 0;
    server->ops.connected(server->ctx, this);
    return 1;
}

uint32_t fwx_host_peer::take(uint32_t limit) {
    uint32_t taken = 0;
    for (; taken < limit && can_take(); ++taken) {
        take_one();
    }
    return taken;
}

uint32_t fwx_host_peer::part() {
    if (server == nullptr) return 0;
    fwx_host_server_t *from = server;
    server = nullptr;
    from->peers.erase(this);
    if (!is_announced || from->ops.disconnected == nullptr) return 0;
    busy += 1;
    from->ops.disconnected(from->ctx, this);
    busy -= 1;
    return 1;
}

extern "C" {

uint32_t fwx_host_server_register(const char *name, fwx_host_loop_t *loop, const fwx_host_server_ops_t *ops, void *ctx,
                                  fwx_host_server_t **server) {
    if (name == nullptr || loop == nullptr || ops == nullptr || server == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (ops->received == nullptr || ops->asked == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (servers().count(name) != 0) return FWX_HOST_ERR_NAME_TAKEN;
    *server = servers()[name] = new fwx_host_server_t(*loop, name, *ops, ctx);
    return 0;
}

fwx_host_server_t *fwx_host_server_find(const char *name) {
    const auto found = servers().find(name);
    return found == servers().end() ? nullptr : found->second;
}

uint32_t fwx_host_server_listen(fwx_host_server_t *server, const char *server_name) {
    if (server == nullptr || server_name == nullptr || !server->can_connect()) return FWX_HOST_ERR_BAD_ARG;
    if (server->listener != nullptr) return FWX_HOST_ERR_NAME_TAKEN;
    return shm_listener_open(*server, server_name, &server->listener);
}

void fwx_host_server_unregister(fwx_host_server_t *server) {
    if (server == nullptr) return;
    servers().erase(server->name);
    server->listener.reset();
    while (!server->peers.empty()) {
        fwx_host_peer_t *peer = *server->peers.begin();
        peer->detach();
        peer->part();
        if (peer->busy == 0) delete peer; /* otherwise the call that is using it does */
    }
    delete server;
}

void fwx_host_server_pause(fwx_host_server_t *server, uint32_t paused) {
    server->is_paused = paused != 0;
    if (server->is_paused) return;
    for (fwx_host_peer_t *peer : server->peers) {
        peer->make_ready();
    }
}

uint32_t fwx_host_peer_send(fwx_host_peer_t *peer, const void *msg, size_t size) {
    return peer->is_linked() ? peer->send(msg, size) : FWX_HOST_ERR_CHANNEL_DOWN;
}

void fwx_host_peer_drop(fwx_host_peer_t *peer) {
    peer->detach();
    peer->make_ready();
}

}  // extern "C"
