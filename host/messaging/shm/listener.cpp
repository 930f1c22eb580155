#include "host/messaging/shm/listener.h"

#include "host/messaging/shm/connection.h"
#include "host/messaging/shm/peer.h"
#include "host/messaging/shm/socket.h"
#include "host/runtime/memory.h"

shm_listener_t::shm_listener_t(fwx_host_server_t &server, const char *name) : server_(server), name_(name) {}

uint32_t shm_listener_t::start() {
    if (const uint32_t code = shm_listen(name_.c_str(), &listening_)) return code;
    return fwx_host_loop_watch(&server_.home, listening_.get(), on_connect, this);
}

shm_listener_t::~shm_listener_t() {
    for (const auto &[fd, offer] : offers_) {
        fwx_host_loop_unwatch(&server_.home, fd);
    }
    if (!listening_.is_open()) return;
    fwx_host_loop_unwatch(&server_.home, listening_.get());
    shm_unlisten(name_.c_str());
}

void shm_listener_t::on_connect(void *arg) {
    auto &listener = *static_cast<shm_listener_t *>(arg);
    for (descriptor_t socket = shm_accept(listener.listening_); socket.is_open();
         socket = shm_accept(listener.listening_)) {
        listener.await_offer(std::move(socket));
    }
}

/** Without the means to watch it, the client is turned away. */
void shm_listener_t::await_offer(descriptor_t socket) {
    const int fd = socket.get();
    const bool is_watched = host_guarded(false, [&] {
        offer_t &offer = offers_.emplace(fd, offer_t{*this, std::move(socket)}).first->second;
        return fwx_host_loop_watch(&server_.home, fd, on_offer, &offer) == 0;
    });
    if (!is_watched) offers_.erase(fd);
}

void shm_listener_t::on_offer(void *arg) {
    auto &offer = *static_cast<offer_t *>(arg);
    offer.listener.take_offer(offer);
}

/** An offer that is not sound, or for which there is no memory, ends with its socket. */
void shm_listener_t::take_offer(offer_t &offer) {
    const int fd = offer.socket.get();
    fwx_host_loop_unwatch(&server_.home, fd);
    host_guarded(host_errno_nomem, [&] {
        auto connection = shm_connection_t::accept(server_.home, std::move(offer.socket));
        if (connection != nullptr) shm_peer_make(server_, std::move(connection));
    });
    offers_.erase(fd);
}

uint32_t shm_listener_open(fwx_host_server_t &server, const char *name, std::unique_ptr<shm_listener_t> *listener) {
    auto made = std::make_unique<shm_listener_t>(server, name);
    const uint32_t code = made->start();
    if (code == 0) *listener = std::move(made);
    return code;
}
