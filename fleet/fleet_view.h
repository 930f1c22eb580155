/* Reads the status of all gateways of a fleet from the store. */
#ifndef FLEET_FLEET_VIEW_H
#define FLEET_FLEET_VIEW_H

#include <string>
#include <vector>

#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"
#include "fleet/gateway_state.h"
#include "fleet/manifest.h"

struct gateway_view_t {
    std::string name;
    bool is_alive = false; /* its key with the lease exists; else only `seen` does */
    gateway_state_t state; /* its last status */
    std::string fault;     /* why the status cannot be parsed; empty: it can */
    int64_t lease = 0;     /* of its status; 0: none */

    /** True if the gateway holds a document and its server is in sync with it. */
    bool holds(const fleet_document_t &document) const {
        return is_alive && state.is_in_step && state.document == document.hash;
    }
    bool has_refused(const fleet_document_t &document) const {
        return is_alive && state.refused_version != 0 && state.refused_document == document.hash;
    }
};

/** Reads all gateways, also those that are gone, sorted by name. */
etcd_t::reply_t<std::vector<gateway_view_t>> read_gateways(etcd_t &etcd, fleet_keys_t keys);

/** Why a gateway is not in sync with a document; empty: it is. */
std::string lag_text(const gateway_view_t &gateway, const fleet_document_t &document);

#endif
