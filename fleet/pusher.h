/*
 * Puts documents into the store, one pusher at a time. Chunks that are not there yet come first, then the manifest with
 * its entry of the history in one transaction, which is the moment at which the gateways see it, then the chunks that
 * no kept version names go. A pusher that dies leaves at most chunks that nobody names, which the next one collects.
 */
#ifndef FLEET_PUSHER_H
#define FLEET_PUSHER_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fleet/document_store.h"
#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"
#include "fleet/fleet_lock.h"
#include "fleet/manifest.h"

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
    uint64_t back_to = 0;    /* of a rollback, the version whose document is in force again */
    std::vector<std::string> skipped; /* of one without a number, the versions that it passed over, and why */
};

class pusher_t {
public:
    /** `etcd` and `loop` must outlive it. `who` is `user@host`. */
    pusher_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string who);

    /* One at a time. */

    nat64::task<push_result_t> push(push_wish_t wish);
    /** Makes a new version, for all, of an older one; without a number of the newest one before that in force which was
     * for all and has another document. */
    nat64::task<push_result_t> roll_back(std::optional<uint64_t> version);
    /** What push would do, as things are now: writes nothing, and takes no lock. */
    nat64::task<push_result_t> check(push_wish_t wish);

    /* What push does, in this order, under the lock. `result` must outlive the task. */

    fleet_lock_t &lock() { return lock_; }
    /** Puts the chunks of a text that are not there or damaged, and says in the result what they are. */
    nat64::task<etcd_error_t> put_chunks(std::string text, push_result_t &result);
    /** Puts the result's manifest in force in place of the one that was read. */
    nat64::task<etcd_error_t> publish(manifest_read_t before, push_result_t &result);
    /** Deletes what neither the result's manifest nor a kept version names. */
    nat64::task<etcd_error_t> collect(push_result_t &result);

private:
    nat64::task<push_result_t> under_lock(nat64::task<push_result_t> work);
    nat64::task<push_result_t> push_locked(push_wish_t wish);
    nat64::task<push_result_t> roll_back_locked(std::optional<uint64_t> version);
    nat64::task<etcd_error_t> choose_older(manifest_t in_force, push_result_t &result);
    nat64::task<> publish_and_collect(manifest_read_t before, push_result_t &result);
    etcd_t::reply_t<std::vector<size_t>> find_missing(std::vector<chunk_t> chunks);
    nat64::task<etcd_error_t> delete_all(std::vector<std::string> keys, push_result_t &result);

    etcd_t &etcd_;
    fleet_keys_t keys_;
    std::string who_;
    fleet_lock_t lock_;
};

#endif
