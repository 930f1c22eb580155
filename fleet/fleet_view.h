/* How the gateways of a fleet do, from what they say of themselves in the store. */
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
    bool is_alive = false; /* it says so itself, now; else it was seen before */
    gateway_state_t state; /* the last that it said */
    std::string fault;     /* why that cannot be read; empty: it can */
    int64_t lease = 0;     /* under which it is alive; 0: none */

    /** Whether it holds a document, and its server is in step with it. */
    bool holds(const fleet_document_t &document) const {
        return is_alive && state.is_in_step && state.document == document.hash;
    }
    bool has_refused(const fleet_document_t &document) const {
        return is_alive && state.refused_version != 0 && state.refused_document == document.hash;
    }
};

/** All that are there or were, in the order of their names. */
etcd_t::reply_t<std::vector<gateway_view_t>> read_gateways(etcd_t &etcd, fleet_keys_t keys);

/** Why a gateway is not in step with a document; empty: it is. */
std::string lag_text(const gateway_view_t &gateway, const fleet_document_t &document);

#endif
