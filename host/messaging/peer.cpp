/* What peers in this process and in other processes have in common: running, ending, and the functions for servers. */
#include "host/messaging/peer.h"

#include "fwx_host/errors.h"
#include "host/runtime/inspect.h"

namespace {

constexpr uint32_t messages_per_run = 64;

bool is_foreign(const fwx_host_peer_t &peer) {
    return peer.server != nullptr && peer.server->is_foreign();
}

}  // namespace

fwx_host_peer::fwx_host_peer(fwx_host_server_t &its_server) : loop_task_t(its_server.home), server(&its_server) {
    server->peers.insert(this);
    make_ready();
}

uint32_t fwx_host_peer::run() {
    if (uses_ != 0) return 0;
    uint32_t calls = 0;
    {
        const use_t use(*this);
        calls = announce();
        calls += take(messages_per_run);
    }
    if (is_connected()) {
        after_run();
        if (can_take_from(*this)) make_ready();
    }
    return is_connected() ? calls : calls + release();
}

void fwx_host_peer::cut_off() {
    if (is_linked()) unlink();
    make_ready();
}

uint32_t fwx_host_peer::release() {
    uint32_t calls = 0;
    if (server != nullptr) {
        fwx_host_server_t *from = server;
        server = nullptr;
        from->peers.erase(this);
        if (is_announced_ && from->ops.disconnected != nullptr) {
            const use_t use(*this);
            from->ops.disconnected(from->ctx, this);
            calls = 1;
        }
    }
    if (uses_ == 0) delete this;
    return calls;
}

uint32_t fwx_host_peer::announce() {
    if (is_announced_ || !is_connected()) return 0;
    is_announced_ = true;
    if (server->ops.connected == nullptr) return 0;
    server->ops.connected(server->ctx, this);
    return 1;
}

extern "C" {

uint32_t fwx_host_peer_send(fwx_host_peer_t *peer, const void *msg, size_t size) {
    return is_foreign(*peer) ? FWX_HOST_ERR_FORKED : peer->send(msg, size);
}

uint64_t fwx_host_peer_waiting_bytes(const fwx_host_peer_t *peer) {
    return peer->waiting_bytes();
}

void fwx_host_peer_drop(fwx_host_peer_t *peer) {
    if (!is_foreign(*peer)) peer->cut_off();
}

void fwx_host_peer_malformed(fwx_host_peer_t *peer) {
    if (is_foreign(*peer)) return;
    host_peers.malformed += 1;
    peer->malformed();
}

}  // extern "C"
