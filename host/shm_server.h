/* Where the clients of other processes come in. */
#ifndef HOST_SHM_SERVER_H
#define HOST_SHM_SERVER_H

#include <memory>
#include <string>
#include <unordered_map>

#include "host/descriptor.h"
#include "host/smc_server.h"

class shm_listener_t {
public:
    shm_listener_t(fwx_host_server_t &server, const char *name, descriptor_t listening);
    shm_listener_t(const shm_listener_t &) = delete;
    shm_listener_t &operator=(const shm_listener_t &) = delete;
    ~shm_listener_t();

private:
    /** A client that has not said yet what it shares. */
    struct guest_t {
        shm_listener_t &listener;
        descriptor_t socket;
    };

    static void on_connect(void *arg);
    static void on_offer(void *arg);
    void admit(guest_t &guest);

    fwx_host_server_t &server_;
    const std::string name_;
    descriptor_t listening_;
    std::unordered_map<int, guest_t> guests_; /* by descriptor */
};

uint32_t shm_listener_open(fwx_host_server_t &server, const char *name, std::unique_ptr<shm_listener_t> *listener);

#endif
