/* Where the clients of other processes come in. */
#ifndef HOST_MESSAGING_SHM_LISTENER_H
#define HOST_MESSAGING_SHM_LISTENER_H

#include <list>
#include <memory>
#include <string>

#include "host/loop/descriptor.h"
#include "host/messaging/server.h"
#include "host/messaging/shm/socket.h"

class shm_listener_t {
public:
    shm_listener_t(fwx_host_server_t &server, const char *name);
    shm_listener_t(const shm_listener_t &) = delete;
    shm_listener_t &operator=(const shm_listener_t &) = delete;
    ~shm_listener_t();

    /** Returns 0, a code of shm_listen, or an errno value. */
    uint32_t start();

private:
    /** A client that has not yet offered a connection. */
    struct guest_t {
        shm_listener_t &listener;
        descriptor_t socket;
        uint64_t timer = 0; /* ends its visit */
        bool is_watched = false;
    };

    static void on_connect(void *arg);
    static void on_offer(void *arg);
    static void on_rest_over(void *arg);
    static void on_too_late(void *arg);
    void let_in(descriptor_t socket);
    bool wait_for_offer(guest_t &guest);
    bool take_offer(descriptor_t &socket);
    bool turn_away_one();
    void turn_away(guest_t &guest);
    void rest();

    fwx_host_server_t &server_;
    const std::string name_;
    shm_entrance_t entrance_;
    descriptor_t spare_;        /* given up to accept, and turn away, when there are no other descriptors left */
    std::list<guest_t> guests_; /* the oldest first */
    uint64_t rest_timer_ = 0;
};

/** Throws std::bad_alloc. */
uint32_t shm_listener_open(fwx_host_server_t &server, const char *name, std::unique_ptr<shm_listener_t> *listener);

#endif
