#include "host/messaging/shm/listener.h"

#include <fcntl.h>

#include <cerrno>

#include "fwx_host/errors.h"
#include "host/loop/closer.h"
#include "host/messaging/shm/connection.h"
#include "host/messaging/shm/peer.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"

namespace {

constexpr size_t most_guests = 64;
constexpr uint64_t longest_visit_ms = 2000;
constexpr uint64_t rest_ms = 100;

descriptor_t spare_make() {
    return descriptor_t(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

shm_listener_t::shm_listener_t(fwx_host_server_t &server, const char *name) : server_(server), name_(name) {}

uint32_t shm_listener_t::start() {
    if (const uint32_t code = shm_listen(name_.c_str(), &entrance_)) return code;
    spare_ = spare_make();
    if (!spare_.is_open()) return static_cast<uint32_t>(errno);
    return fwx_host_loop_watch(&server_.home, entrance_.socket.get(), on_connect, this);
}

shm_listener_t::~shm_listener_t() {
    while (!guests_.empty()) {
        turn_away(guests_.front());
    }
    fwx_host_timer_cancel(&server_.home, rest_timer_);
    if (entrance_.socket.is_open()) fwx_host_loop_unwatch(&server_.home, entrance_.socket.get());
    shm_unlisten(entrance_);
}

void shm_listener_t::on_connect(void *arg) {
    auto &listener = *static_cast<shm_listener_t *>(arg);
    for (;;) {
        if (closer_is_full()) return listener.rest();
        descriptor_t socket;
        switch (shm_accept(listener.entrance_.socket, &socket)) {
            case 0:
                listener.let_in(std::move(socket));
                break;
            case EAGAIN:
                return;
            case ECONNABORTED:
            case EINTR:
                break;
            default:
                if (!listener.spare_.is_open()) listener.spare_ = spare_make();
                if (!listener.spare_.is_open()) return listener.rest();
                if (!listener.turn_away_one()) return;
                break;
        }
    }
}

/** Turns the client at the head of the queue away, for which there is no descriptor. False when no client was there:
 * without a descriptor the system does not look whether one waits, so only this ends the turn. */
bool shm_listener_t::turn_away_one() {
    spare_ = descriptor_t();
    descriptor_t socket;
    const uint32_t code = shm_accept(entrance_.socket, &socket);
    if (code == 0) {
        host_peers.refused += 1;
        shm_turn_away(std::move(socket), FWX_HOST_ERR_BUSY);
    }
    spare_ = spare_make();
    if (code != 0 && code != EAGAIN) rest();
    return code == 0;
}

/* A client that may not be let in now would make the loop run for nothing as long as it waits. */
void shm_listener_t::rest() {
    if (rest_timer_ != 0) return;
    rest_timer_ = fwx_host_timer_add(&server_.home, rest_ms, on_rest_over, this);
    if (rest_timer_ != 0) fwx_host_loop_unwatch(&server_.home, entrance_.socket.get());
}

void shm_listener_t::on_rest_over(void *arg) {
    auto &listener = *static_cast<shm_listener_t *>(arg);
    listener.rest_timer_ = 0;
    if (fwx_host_loop_watch(&listener.server_.home, listener.entrance_.socket.get(), on_connect, arg) != 0) {
        listener.rest();
    }
}

/** Most clients have made their offer by now; the others wait as guests, the oldest of which makes room for a new one.
 * Without the means to watch it, the client is turned away. */
void shm_listener_t::let_in(descriptor_t socket) {
    if (take_offer(socket)) return;
    if (guests_.size() >= most_guests) turn_away(guests_.front());
    const bool has_room = host_guarded(false, [&] {
        guests_.push_back({*this, descriptor_t()});
        return true;
    });
    if (!has_room) {
        host_peers.refused += 1;
        return shm_close(std::move(socket));
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

/** Ends a visit, with the client if that is still there. */
void shm_listener_t::turn_away(guest_t &guest) {
    if (guest.is_watched) fwx_host_loop_unwatch(&server_.home, guest.socket.get());
    fwx_host_timer_cancel(&server_.home, guest.timer);
    if (guest.socket.is_open()) host_peers.refused += 1;
    shm_close(std::move(guest.socket));
    guests_.remove_if([&guest](const guest_t &other) { return &other == &guest; });
}

/** False while there is none. A client whose offer is not sound, or for which there is no memory or no room, is turned
 * away; the socket is gone then as it is when the offer was taken. */
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
    auto made = std::make_unique<shm_listener_t>(server, name);
    const uint32_t code = made->start();
    if (code == 0) *listener = std::move(made);
    return code;
}
