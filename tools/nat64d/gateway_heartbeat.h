/* Writes this gateway's state to the store under a lease, and keeps the lease alive. When the lease expires, the
 * gateway counts as gone. */
#ifndef TOOLS_NAT64D_GATEWAY_HEARTBEAT_H
#define TOOLS_NAT64D_GATEWAY_HEARTBEAT_H

#include <functional>
#include <optional>
#include <string>

#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"
#include "fleet/gateway_state.h"
#include "tools/nat64d/bell.h"

class gateway_heartbeat_t {
public:
    using state_fn_t = std::function<gateway_state_t()>;
    using asked_fn_t = std::function<void(const etcd_error_t &error)>;

    /** `loop` and `etcd` must outlive it. `state` returns the state to write, without its time. `asked` is called with
     * the result of each report that made a request. */
    gateway_heartbeat_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string gateway, state_fn_t state, asked_fn_t asked);

    void start();
    /** Reports without waiting for the end of a pause. */
    void report_now() { bell_.ring(); }
    /** Call it when the state may have changed. */
    void changed() {
        const bool is_new = write_gateway_state(state_()) != tried_;
        if (is_new) report_now();
    }

private:
    nat64::task<> run();
    bool is_due() const;
    nat64::task<etcd_error_t> report();

    etcd_t &etcd_;
    const fleet_keys_t keys_;
    const std::string gateway_;
    const state_fn_t state_;
    const asked_fn_t asked_;
    bell_t bell_;
    int64_t lease_ = 0;       /* 0: none */
    uint64_t keep_at_ms_ = 0; /* by the platform's clock */
    std::string reported_;    /* the state written last, without its time; empty: none under this lease */
    std::string tried_;       /* the state that the last report was to write; does not end the wait after an error */
    std::optional<nat64::task<>> run_;
};

#endif
