/* Accepts clients of a server from other processes. */
#ifndef HOST_MESSAGING_SHM_LISTENER_H
#define HOST_MESSAGING_SHM_LISTENER_H

#include <list>
#include <memory>

#include "host/loop/descriptor.h"
#include "host/messaging/server.h"
#include "host/messaging/shm/socket.h"
#include "host/messaging/user_listener.h"

class shm_listener_t {
public:
    explicit shm_listener_t(fwx_host_server_t &server);
    shm_listener_t(const shm_listener_t &) = delete;
    shm_listener_t &operator=(const shm_listener_t &) = delete;
    ~shm_listener_t();

    /** Returns 0 or a code of user_listener_t::start. */
    uint32_t start(const char *name) { return listener_.start(user_socket_t::SERVER, name); }

private:
    /** A client that has not yet offered a connection. */
    struct pending_client_t {
        shm_listener_t &listener;
        descriptor_t socket;
        uint64_t timer = 0; /* its time limit */
        bool is_watched = false;
    };

    static void on_client(void *arg, descriptor_t socket);
    static void on_no_room(void *arg, descriptor_t socket);
    static void on_offer(void *arg);
    static void on_too_late(void *arg);
    void let_in(descriptor_t socket);
    bool wait_for_offer(pending_client_t &client);
    bool take_offer(descriptor_t &socket);
    void turn_away(pending_client_t &client);

    fwx_host_server_t &server_;
    std::list<pending_client_t> pending_; /* the oldest first */
    user_listener_t listener_;
};

/** Starts to listen for a server. Returns 0 or a code of user_listener_t::start. Throws std::bad_alloc. */
uint32_t shm_listener_open(fwx_host_server_t &server, const char *name, std::unique_ptr<shm_listener_t> *listener);

#endif
