/*
 * Puts documents into the store, one pusher at a time. Chunks that are not there yet come first, then the manifest with
 * its entry of the history in one transaction, which is the moment at which the gateways see it, then the chunks that
 * no kept version names go. A pusher that dies leaves at most chunks that nobody names, which the next one collects.
 */
#ifndef TOOLS_FLEET_PUSHER_H
#define TOOLS_FLEET_PUSHER_H

#include <cstdint>
#include <optional>
#include <string>

#include "tools/fleet/document_store.h"
#include "tools/fleet/etcd.h"
#include "tools/fleet/fleet_keys.h"
#include "tools/fleet/fleet_lock.h"
#include "tools/fleet/manifest.h"

struct push_wish_t {
    std::string text; /* of a document, as write_lines writes it */
    uint64_t items = 0;
    std::optional<stage_t> stage; /* nothing: for all */
    std::string note;
};

struct push_result_t {
    bool is_changed = false; /* there is a new manifest; false without an error: it says that already */
    manifest_t manifest;     /* in force behind it */
    size_t chunks_put = 0;
    uint64_t bytes_put = 0;  /* of those */
    size_t collected = 0;    /* chunks and entries of the history that went */
    etcd_error_t error;      /* nothing is in force that was not before, unless is_changed */
    std::string refused;     /* why it was not even tried: somebody else pushes, no such version; empty: it was */
    std::string uncollected; /* what is in force is, but the collector could not do its work; empty: it could */
};

class pusher_t {
public:
    /** `etcd` and `loop` must outlive it. `who` is `user@host`. */
    pusher_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string who);

    /** One at a time. */
    nat64::task<push_result_t> push(push_wish_t wish);
    /** Makes a new version, for all, of an older one; without a number of the one before that in force. */
    nat64::task<push_result_t> roll_back(std::optional<uint64_t> version);

    /* What push does, in this order and under the lock. */

    nat64::task<etcd_error_t> put_chunks(std::string text, push_result_t &result);
    nat64::task<etcd_error_t> publish(manifest_read_t before, push_result_t &result);
    nat64::task<etcd_error_t> collect(push_result_t &result);
    fleet_lock_t &lock() { return lock_; }

private:
    fwx_host_loop_t *loop_;
    etcd_t &etcd_;
    fleet_keys_t keys_;
    std::string who_;
    fleet_lock_t lock_;
};

#endif
