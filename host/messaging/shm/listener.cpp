/*
 * Accepts the clients of other processes. A client that connects has normally sent its offer already. One that has not
 * is kept in pending_, for at most two seconds. Both time and number of these clients are limited, so that clients that
 * never send an offer cannot keep others out.
 */
#include "host/messaging/shm/listener.h"

#include <cerrno>

#include "fwx_host/errors.h"
#include "host/messaging/shm/connection.h"
#include "host/messaging/shm/peer.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"

namespace {

constexpr size_t most_pending = 64;
constexpr uint64_t offer_timeout_ms = 2000;

}  // namespace

shm_listener_t::shm_listener_t(fwx_host_server_t &server)
    : server_(server), listener_(server.home, on_client, on_no_room, this) {}

shm_listener_t::~shm_listener_t() {
    while (!pending_.empty()) {
        turn_away(pending_.front());
    }
}

void shm_listener_t::on_client(void *arg, descriptor_t socket) {
    static_cast<shm_listener_t *>(arg)->let_in(std::move(socket));
}

void shm_listener_t::on_no_room(void *, descriptor_t socket) {
    host_peers.refused += 1;
    shm_turn_away(std::move(socket), FWX_HOST_ERR_BUSY);
}

/** Accepts the client's offer, or keeps the client in pending_, in place of the oldest one if there are too many. A
 * client that cannot be watched is turned away. */
void shm_listener_t::let_in(descriptor_t socket) {
    if (take_offer(socket)) return;
    if (pending_.size() >= most_pending) turn_away(pending_.front());
    const bool has_room = host_guarded(false, [&] {
        pending_.push_back({*this, descriptor_t()});
        return true;
    });
    if (!has_room) {
        host_peers.refused += 1;
        return user_socket_close(std::move(socket));
    }
    pending_client_t &client = pending_.back();
    client.socket = std::move(socket);
    if (!wait_for_offer(client)) turn_away(client);
}

bool shm_listener_t::wait_for_offer(pending_client_t &client) {
    client.timer = fwx_host_timer_add(&server_.home, offer_timeout_ms, on_too_late, &client);
    client.is_watched =
        client.timer != 0 && fwx_host_loop_watch(&server_.home, client.socket.get(), on_offer, &client) == 0;
    return client.is_watched;
}

void shm_listener_t::on_offer(void *arg) {
    auto &client = *static_cast<pending_client_t *>(arg);
    fwx_host_loop_unwatch(&client.listener.server_.home, client.socket.get());
    client.is_watched = false;
    const bool is_over = client.listener.take_offer(client.socket);
    if (is_over) client.listener.turn_away(client);
}

void shm_listener_t::on_too_late(void *arg) {
    auto &client = *static_cast<pending_client_t *>(arg);
    client.timer = 0;
    client.listener.turn_away(client);
}

/** Removes a pending client and closes its socket, unless its offer was accepted. */
void shm_listener_t::turn_away(pending_client_t &client) {
    if (client.is_watched) fwx_host_loop_unwatch(&server_.home, client.socket.get());
    fwx_host_timer_cancel(&server_.home, client.timer);
    if (client.socket.is_open()) host_peers.refused += 1;
    user_socket_close(std::move(client.socket));
    pending_.remove_if([&client](const pending_client_t &other) { return &other == &client; });
}

/** Returns false while the client has sent no offer. Otherwise accepts the offer, or turns the client away when the
 * offer is invalid or there is no memory or no room; either way `socket` is not open afterwards. */
bool shm_listener_t::take_offer(descriptor_t &socket) {
    const uint32_t code = host_guarded(host_errno_nomem, [&] {
        shm_connection_t::made_t connection;
        const uint32_t refusal = shm_connection_t::accept(server_.home, socket, &connection);
        if (refusal != 0) return refusal;
        return shm_peer_make(server_, std::move(connection));
    });
    if (code == EAGAIN) return false;
    if (code != 0) host_peers.refused += 1;
    if (code != 0 && socket.is_open()) shm_turn_away(std::move(socket), code);
    return true;
}

uint32_t shm_listener_open(fwx_host_server_t &server, const char *name, std::unique_ptr<shm_listener_t> *listener) {
    auto made = std::make_unique<shm_listener_t>(server);
    const uint32_t code = made->start(name);
    if (code == 0) *listener = std::move(made);
    return code;
}
