#include "tools/nat64d/store_link.h"

store_link_t::store_link_t(fwx_host_loop_t *loop, store_t store, const std::string &gateway,
                           const std::string &directory, const daemon_status_t &status, store_follower_t::handlers_t on)
    : gateway_(gateway),
      daemon_(status),
      etcd_(loop, std::move(store)),
      follower_(loop, etcd_, gateway, directory, std::move(on)),
      heartbeat_(
          loop, etcd_, gateway, [this] { return state(); },
          [this](const etcd_error_t &error) { follower_.asked(error); }) {}

void store_link_t::start() {
    follower_.start(daemon_.document);
    heartbeat_.start();
}

void store_link_t::reload() {
    etcd_.renew_password();
    follower_.reload();
    heartbeat_.report_now();
}

void store_link_t::changed() {
    follower_.in_force(daemon_.document);
    if (!daemon_.refused_reason.empty()) follower_.refused(daemon_.refused_document, daemon_.refused_reason);
    heartbeat_.changed();
}

gateway_state_t store_link_t::state() const {
    gateway_state_t state;
    state.gateway = gateway_;
    state.server = daemon_.server;
    state.version = follower_.held().version;
    state.document = follower_.held().hash;
    state.items = daemon_.items;
    state.is_in_step = daemon_.is_in_step;
    state.reason = daemon_.is_in_step ? "" : daemon_.reason;
    state.since = daemon_.since;
    const store_status_t store = follower_.status();
    state.refused_version = store.refused_version;
    state.refused_document = store.refused_document;
    state.refused_reason = store.refused_reason;
    return state;
}
