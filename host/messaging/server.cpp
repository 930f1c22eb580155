/* The functions with which programs register, find, pause and end servers, and the list of this process's servers. */
#include "host/messaging/server.h"

#include "fwx_host/errors.h"
#include "host/messaging/peer.h"
#include "host/messaging/shm/listener.h"
#include "host/messaging/shm/socket.h"
#include "host/runtime/memory.h"

namespace {

fwx_host_server_t *servers;

void take_off(const fwx_host_server_t *server) {
    fwx_host_server_t **link = &servers;
    while (*link != server) {
        link = &(*link)->next;
    }
    *link = server->next;
}

}  // namespace

fwx_host_server::fwx_host_server(fwx_host_loop_t &loop, const char *server_name,
                                 const fwx_host_server_ops_t &server_ops, void *server_ctx)
    : loop_task_t(loop), home(loop), name(server_name), ops(server_ops), ctx(server_ctx) {}

fwx_host_server::~fwx_host_server() = default;

void fwx_host_server::loop_gone() {
    listener.reset();
}

extern "C" {

uint32_t fwx_host_server_register(const char *name, fwx_host_loop_t *loop, const fwx_host_server_ops_t *ops, void *ctx,
                                  fwx_host_server_t **server) {
    if (name == nullptr || loop == nullptr || ops == nullptr || server == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (ops->received == nullptr || ops->asked == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (loop_is_foreign(*loop)) return FWX_HOST_ERR_FORKED;
    if (fwx_host_server_find(name) != nullptr) return FWX_HOST_ERR_NAME_TAKEN;
    return host_guarded(host_errno_nomem, [&] {
        auto *made = new fwx_host_server_t(*loop, name, *ops, ctx);
        made->next = servers;
        *server = servers = made;
    });
}

fwx_host_server_t *fwx_host_server_find(const char *name) {
    fwx_host_server_t *server = servers;
    while (server != nullptr && (server->is_foreign() || server->name != name)) {
        server = server->next;
    }
    return server;
}

uint32_t fwx_host_server_listen(fwx_host_server_t *server, const char *server_name) {
    if (server == nullptr || server_name == nullptr || !server->can_connect()) return FWX_HOST_ERR_BAD_ARG;
    if (server->is_foreign()) return FWX_HOST_ERR_FORKED;
    if (server->listener != nullptr) return FWX_HOST_ERR_NAME_TAKEN;
    return host_guarded(host_errno_nomem, [&] { return shm_listener_open(*server, server_name, &server->listener); });
}

void fwx_host_server_names(void (*fn)(void *arg, const char *server_name), void *arg) {
    user_socket_names(fn, arg);
}

void fwx_host_server_unregister(fwx_host_server_t *server) {
    if (server == nullptr || server->is_foreign()) return;
    take_off(server);
    server->listener.reset();
    while (!server->peers.empty()) {
        fwx_host_peer_t *peer = *server->peers.begin();
        peer->cut_off();
        peer->release();
    }
    delete server;
}

void fwx_host_server_pause(fwx_host_server_t *server, uint32_t paused) {
    if (server->is_foreign()) return;
    server->is_paused = paused != 0;
    if (server->is_paused) return;
    for (fwx_host_peer_t *peer : server->peers) {
        peer->make_ready();
    }
}

}  // extern "C"
