/* nat64d's connection to a store: the follower of its document, and the heartbeat that reports this gateway's state. */
#ifndef TOOLS_NAT64D_STORE_LINK_H
#define TOOLS_NAT64D_STORE_LINK_H

#include "tools/nat64d/gateway_heartbeat.h"
#include "tools/nat64d/status.h"
#include "tools/nat64d/store_follower.h"

class store_link_t {
public:
    /** `loop` and `status` must outlive it. */
    store_link_t(fwx_host_loop_t *loop, store_t store, const std::string &gateway, const std::string &directory,
                 const daemon_status_t &status, store_follower_t::handlers_t on);

    void start();
    /** Reads the password and the document again. */
    void reload();
    /** Call it when the daemon's status may have changed. */
    void changed();
    store_status_t status() const { return follower_.status(); }

private:
    gateway_state_t state() const;

    const std::string gateway_;
    const daemon_status_t &daemon_;
    etcd_t etcd_;
    store_follower_t follower_;
    gateway_heartbeat_t heartbeat_;
};

#endif
