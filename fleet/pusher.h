/*
 * Pushes documents into the store, under a lock, so that there is one pusher at a time. It first puts the missing
 * chunks. Then it puts the manifest and its entry in the history in one transaction; from then on gateways see the new
 * document. Last it deletes the chunks that no version in the history names. A pusher that is killed leaves at most
 * unused chunks, which the next one deletes.
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

struct push_request_t {
    std::string text;             /* the document, as write_lines writes it */
    uint64_t items = 0;           /* number of its items */
    std::optional<stage_t> stage; /* nothing: for all gateways */
    std::string note;
};

struct push_result_t {
    bool is_changed = false; /* there is a new manifest; false without an error: the present one was equal */
    manifest_t manifest;     /* in force afterwards */
    size_t chunks_put = 0;   /* chunks that were written */
    uint64_t bytes_put = 0;  /* length of these chunks */
    size_t collected = 0;    /* chunks and entries of the history that were deleted */
    etcd_error_t error;      /* unless is_changed, the manifest in force is still the old one */
    std::string refused; /* why nothing was tried, such as another pusher or an unknown version; empty: no refusal */
    std::string
        uncollected;      /* why the garbage collection failed; the push itself has succeeded. Empty: it did not fail */
    uint64_t back_to = 0; /* of a rollback: the version whose document is in force again */
    std::vector<std::string> skipped; /* of a rollback without a number: versions that were skipped, with the reasons */
};

class pusher_t {
public:
    /** `etcd` and `loop` must outlive this object. `who` is `user@host`. */
    pusher_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string who);

    /* Only one of these may run at a time. */

    /** Makes a new version of a document. Does nothing if the manifest in force has the same document and stage. */
    nat64::task<push_result_t> push(push_request_t request);
    /** Makes a new version, for all gateways, with the document of an older version. Without a number, that is the
     * newest version before the one in force that was for all gateways and has another document. */
    nat64::task<push_result_t> roll_back(std::optional<uint64_t> version);
    /** Computes what push would do now, without writing anything or taking the lock. */
    nat64::task<push_result_t> check(push_request_t request);

    /* The steps of push, in this order, under the lock. `result` must outlive the task. */

    fleet_lock_t &lock() { return lock_; }
    /** Puts the chunks of a text that are missing or damaged, and names all chunks in the result's manifest. */
    nat64::task<etcd_error_t> put_chunks(std::string text, push_result_t &result);
    /** Replaces the manifest that was read by that of the result. Sets version, user and time. */
    nat64::task<etcd_error_t> publish(manifest_read_t before, uint64_t version, push_result_t &result);
    /** Deletes old versions of the history, and chunks that neither the manifest nor a version names. */
    nat64::task<etcd_error_t> collect(push_result_t &result);

private:
    nat64::task<push_result_t> under_lock(nat64::task<push_result_t> work);
    nat64::task<push_result_t> push_locked(push_request_t request);
    nat64::task<push_result_t> roll_back_locked(std::optional<uint64_t> version);
    nat64::task<etcd_error_t> choose_older(manifest_t in_force, push_result_t &result);
    etcd_t::reply_t<uint64_t> next_version(const manifest_read_t &before);
    nat64::task<> publish_and_collect(manifest_read_t before, uint64_t version, push_result_t &result);
    etcd_t::reply_t<std::vector<size_t>> find_missing(std::vector<chunk_t> chunks);
    nat64::task<etcd_error_t> delete_all(std::vector<std::string> keys, push_result_t &result);

    etcd_t &etcd_;
    fleet_keys_t keys_;
    std::string who_;
    fleet_lock_t lock_;
};

#endif
