/*
 * The manifest in force, now and whenever there is another one. What a watch tells of is the manifest itself, so it is
 * not read again: with many gateways and a long manifest, that is half of what a push moves.
 */
#ifndef FLEET_MANIFEST_WATCH_H
#define FLEET_MANIFEST_WATCH_H

#include <optional>

#include "fleet/document_store.h"
#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"

class manifest_watch_t {
public:
    /** `etcd` must outlive it. */
    manifest_watch_t(etcd_t &etcd, fleet_keys_t keys) : etcd_(etcd), keys_(std::move(keys)) {}

    /** Awaits the one that is there at first, if there is one, then each time the latest. One that cannot be read is
     * told as read_manifest tells it, and the next one can be awaited; after any other error a new watch is needed. */
    etcd_t::reply_t<manifest_read_t> next();
    /** Of the store, that tells of the next manifest; empty: none does yet. */
    std::string endpoint() const { return watch_ ? watch_->endpoint() : ""; }

private:
    etcd_t &etcd_;
    const fleet_keys_t keys_;
    std::optional<etcd_watch_t> watch_; /* nothing: the manifest has not been read */
};

#endif
