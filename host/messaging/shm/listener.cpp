/*
 * Accepts the clients of other processes. A client that connects has normally sent its offer already. One that has not
 * is kept as a guest, for at most two seconds. Both time and number of guests are limited, so that clients that never
 * send an offer cannot keep others out.
 */
#include "host/messaging/shm/listener.h"

#include <cerrno>

#include "fwx_host/errors.h"
#include "host/messaging/shm/connection.h"
#include "host/messaging/shm/peer.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"

namespace {

constexpr size_t most_guests = 64;
constexpr uint64_t longest_visit_ms = 2000;

}  // namespace

shm_listener_t::shm_listener_t(fwx_host_server_t &server)
    : server_(server), listener_(server.home, on_client, on_no_room, this) {}

shm_listener_t::~shm_listener_t() {
    while (!guests_.empty()) {
        turn_away(guests_.front());
    }
}

void shm_listener_t::on_client(void *arg, descriptor_t socket) {
    static_cast<shm_listener_t *>(arg)->let_in(std::move(socket));
}

void shm_listener_t::on_no_room(void *, descriptor_t socket) {
    host_peers.refused += 1;
    shm_turn_away(std::move(socket), FWX_HOST_ERR_BUSY);
}

/** Accepts the client's offer, or keeps the client as a guest, in place of the oldest guest if there are too many. A
 * client that cannot be watched is turned away. */
void shm_listener_t::let_in(descriptor_t socket) {
    if (take_offer(socket)) return;
    if (guests_.size() >= most_guests) turn_away(guests_.front());
    const bool has_room = host_guarded(false, [&] {
        guests_.push_back({*this, descriptor_t()});
        return true;
    });
    if (!has_room) {
        host_peers.refused += 1;
        return user_socket_close(std::move(socket));
    }
    guest_t &guest = guests_.back();
    guest.socket = std::move(socket);
    if (!wait_for_offer(guest)) turn_away(guest);
}

bool shm_listener_t::wait_for_offer(guest_t &guest) {
    guest.timer = fwx_host_timer_add(&server_.home, longest_visit_ms, on_too_late, &guest);
    guest.is_watched =
        guest.timer != 0 && fwx_host_loop_watch(&server_.home, guest.socket.get(), on_offer, &guest) == 0;
    return guest.is_watched;
}

void shm_listener_t::on_offer(void *arg) {
    auto &guest = *static_cast<guest_t *>(arg);
    fwx_host_loop_unwatch(&guest.listener.server_.home, guest.socket.get());
    guest.is_watched = false;
    const bool is_over = guest.listener.take_offer(guest.socket);
    if (is_over) guest.listener.turn_away(guest);
}

void shm_listener_t::on_too_late(void *arg) {
    auto &guest = *static_cast<guest_t *>(arg);
    guest.timer = 0;
    guest.listener.turn_away(guest);
}

/** Removes a guest and closes its socket, unless its offer was accepted. */
void shm_listener_t::turn_away(guest_t &guest) {
    if (guest.is_watched) fwx_host_loop_unwatch(&server_.home, guest.socket.get());
    fwx_host_timer_cancel(&server_.home, guest.timer);
    if (guest.socket.is_open()) host_peers.refused += 1;
    user_socket_close(std::move(guest.socket));
    guests_.remove_if([&guest](const guest_t &other) { return &other == &guest; });
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
