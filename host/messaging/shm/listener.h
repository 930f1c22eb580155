/* Where the clients of other processes come in. */
#ifndef HOST_MESSAGING_SHM_LISTENER_H
#define HOST_MESSAGING_SHM_LISTENER_H

#include <memory>
#include <string>
#include <unordered_map>

#include "host/loop/descriptor.h"
#include "host/messaging/server.h"

class shm_listener_t {
public:
    shm_listener_t(fwx_host_server_t &server, const char *name);
    shm_listener_t(const shm_listener_t &) = delete;
    shm_listener_t &operator=(const shm_listener_t &) = delete;
    ~shm_listener_t();

    /** Returns 0, a code of shm_listen, or an errno value. */
    uint32_t start();

private:
    /** What a client that has connected is to send. */
    struct offer_t {
        shm_listener_t &listener;
        descriptor_t socket;
    };

    static void on_connect(void *arg);
    static void on_offer(void *arg);
    void await_offer(descriptor_t socket);
    void take_offer(offer_t &offer);

    fwx_host_server_t &server_;
    const std::string name_;
    descriptor_t listening_;
    std::unordered_map<int, offer_t> offers_; /* by descriptor */
};

/** Throws std::bad_alloc. */
uint32_t shm_listener_open(fwx_host_server_t &server, const char *name, std::unique_ptr<shm_listener_t> *listener);

#endif
