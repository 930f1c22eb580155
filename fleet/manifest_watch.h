/*
 * Follows the manifest in force. The events of a watch contain the new manifest, so it is not read again. With many
 * gateways and a long manifest, this halves the traffic of a push.
 */
#ifndef FLEET_MANIFEST_WATCH_H
#define FLEET_MANIFEST_WATCH_H

#include <optional>

#include "fleet/document_store.h"
#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"

class manifest_watch_t {
public:
    /** `etcd` must outlive this object. */
    manifest_watch_t(etcd_t &etcd, fleet_keys_t keys) : etcd_(etcd), keys_(std::move(keys)) {}

    /** The first call reads the present manifest, if there is one. Each later call awaits a change and gives the latest
     * manifest. An error of the kind `malformed` with a mod_revision, as read_manifest has it, does not end the watch.
     * After any other error a new manifest_watch_t is needed. */
    etcd_t::reply_t<manifest_read_t> next();
    /** The endpoint of the watch; empty: the watch has not been opened yet. */
    std::string endpoint() const { return watch_ ? watch_->endpoint() : ""; }

private:
    etcd_t &etcd_;
    const fleet_keys_t keys_;
    std::optional<etcd_watch_t> watch_; /* nothing until the manifest was read */
};

#endif
