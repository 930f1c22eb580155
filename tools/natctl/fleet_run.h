/* The work of the `natctl fleet` commands on the store of a fleet. */
#ifndef TOOLS_NATCTL_FLEET_RUN_H
#define TOOLS_NATCTL_FLEET_RUN_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "config/document.h"
#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"
#include "fleet/pusher.h"
#include "tools/natctl/pal.h"

/** The user's options. Empty store options are taken from the environment. */
struct fleet_request_t {
    store_options_t store;
    std::string file;
    std::vector<std::string> gateways;
    uint32_t percent = 0; /* 0: not given */
    uint64_t wait_s = 0;  /* 0: do not wait for the gateways */
    bool is_check = false;
    uint64_t version = 0; /* 0: not given */
};

/** The store of one command, with the client and the pusher that use it. */
class fleet_store_t {
public:
    fleet_store_t(pal_t &pal, store_t store);

    etcd_t &etcd() { return etcd_; }
    const fleet_keys_t &keys() const { return keys_; }
    pusher_t &pusher() { return pusher_; }
    fwx_host_loop_t *loop() const { return loop_; }

    /** Runs the loop until a task is done. */
    template <class value_type>
    value_type run(nat64::task<value_type> task) const {
        task.start();
        while (!task.done()) {
            fwx_host_loop_run_once(loop_, -1);
        }
        return task.get();
    }

private:
    fwx_host_loop_t *loop_;
    etcd_t etcd_;
    fleet_keys_t keys_;
    pusher_t pusher_;
};

/** Reads the store's options. Empty: failed, the outcome of the call has the reason. */
std::optional<store_t> fleet_store_of(call_t &call, const fleet_request_t &request);
/** Makes an outcome fail because of an error of the store. */
void refuse(outcome_t &outcome, const etcd_error_t &error);

void fleet_push(call_t &call, const fleet_request_t &request, const document_t &document, const store_t &store);
void fleet_roll_back(call_t &call, const fleet_request_t &request, const store_t &store);

/* Tables (fleet_tables.cpp). */

void fleet_status(call_t &call, const store_t &store);
void fleet_history(call_t &call, const store_t &store);

#endif
