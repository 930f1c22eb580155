/* A server of this process. It owns its peers, and its listener if it serves other processes. */
#ifndef HOST_MESSAGING_SERVER_H
#define HOST_MESSAGING_SERVER_H

#include <memory>
#include <string>
#include <unordered_set>

#include "fwx_host/smc.h"
#include "host/loop/loop.h"
#include "host/runtime/process.h"

class shm_listener_t;

struct fwx_host_server final : loop_task_t {
    fwx_host_server(fwx_host_loop_t &loop, const char *server_name, const fwx_host_server_ops_t &server_ops,
                    void *server_ctx);
    ~fwx_host_server() override;

    uint32_t run() override { return 0; } /* its peers do the work */
    void loop_gone() override;
    bool can_connect() const { return has_loop(); }
    bool is_foreign() const { return !host_process_is(process); }

    fwx_host_server_t *next = nullptr; /* in the list of this process's servers */
    const uint32_t process = host_process();
    fwx_host_loop_t &home;
    const std::string name;
    const fwx_host_server_ops_t &ops;
    void *ctx;
    bool is_paused = false;
    std::unordered_set<fwx_host_peer_t *> peers;
    std::unique_ptr<shm_listener_t> listener; /* null: the server serves this process only */
};

#endif
