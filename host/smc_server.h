/* Servers of this process, and their ends of the connections to their clients. */
#ifndef HOST_SMC_SERVER_H
#define HOST_SMC_SERVER_H

#include <memory>
#include <string>
#include <unordered_set>

#include "fwx_host/smc.h"
#include "host/loop_member.h"

constexpr size_t smc_largest_reply = size_t{64} << 10; /* of a synchronous message */

class shm_listener_t;

struct fwx_host_server final : loop_member_t {
    fwx_host_server(fwx_host_loop_t &loop, const char *server_name, const fwx_host_server_ops_t &server_ops,
                    void *server_ctx);
    ~fwx_host_server() override;

    uint32_t run() override { return 0; } /* its peers do the work */
    void loop_gone() override;
    bool can_connect() const { return has_loop(); }

    fwx_host_loop_t &home;
    const std::string name;
    const fwx_host_server_ops_t &ops;
    void *ctx;
    bool is_paused = false;
    std::unordered_set<fwx_host_peer_t *> peers;
    std::unique_ptr<shm_listener_t> listener; /* null: it serves this process only */
};

/** Deletes itself when the client and the server are done with it. */
struct fwx_host_peer : loop_member_t {
    explicit fwx_host_peer(fwx_host_server_t &its_server);

    uint32_t run() override;
    /** Tells the server of the peer, if it was not told. */
    uint32_t announce();
    /** Leaves the server, which is told. */
    uint32_t part();

    virtual bool is_linked() const = 0;
    virtual bool has_message() = 0;
    /** Gives the oldest message to the server. Requires has_message(). */
    virtual void take_one() = 0;
    virtual void after_run() {}
    /** Cuts the client off. */
    virtual void detach() = 0;
    virtual uint32_t send(const void *msg, size_t size) = 0;

    uint32_t take(uint32_t limit);
    bool is_connected() const { return server != nullptr && is_linked(); }
    bool can_take() { return is_connected() && !server->is_paused && has_message(); }

    fwx_host_server_t *server; /* null once it was unregistered */
    bool is_announced = false;
    uint32_t busy = 0; /* depth of calls into the server that this object must outlive */
};

#endif
