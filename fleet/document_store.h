/*
 * Reading from the store what pusher.h puts there. A manifest that is read, and whose chunks are then not there, has
 * been overtaken: it is to be read again.
 */
#ifndef FLEET_DOCUMENT_STORE_H
#define FLEET_DOCUMENT_STORE_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "fleet/etcd.h"
#include "fleet/fleet_keys.h"
#include "fleet/manifest.h"

struct manifest_read_t {
    std::optional<manifest_t> manifest; /* nothing: none has been pushed, or the error says why */
    int64_t revision = 0;               /* of the store when it was read: a watch begins one later */
    int64_t mod_revision = 0;           /* of the manifest's key; 0: there is none */
    std::string text;                   /* as it is there */
};

/** Reads a manifest's key; what it says, or why it cannot be read, is in `result`. */
void take_manifest(etcd_entry_t entry, etcd_result_t<manifest_read_t> &result);
/** The manifest in force. One that cannot be read is an error of the kind `malformed`, and has the revisions. */
etcd_t::reply_t<manifest_read_t> read_manifest(etcd_t &etcd, fleet_keys_t keys);
/** Of a version; nothing when that is not kept any more. */
etcd_t::reply_t<std::optional<manifest_t>> read_version(etcd_t &etcd, fleet_keys_t keys, uint64_t version);

/** A chunk that is at hand already; nothing: it is to be fetched. What it gives is checked like what is fetched. */
using known_chunk_fn_t = std::function<std::optional<std::string>(const chunk_t &chunk)>;

/** Takes a chunk that was fetched and is what its name says. */
using take_chunk_fn_t = std::function<void(const chunk_t &chunk, const std::string &piece)>;

/** Fetches chunks, some at once, and hands each over in their order. What was handed over when an error ends it need
 * not be fetched again. A chunk that is not there, or is not what it is called, is an error of the kind `malformed`. */
nat64::task<etcd_error_t> fetch_chunks(etcd_t &etcd, fleet_keys_t keys, std::vector<chunk_t> chunks,
                                       take_chunk_fn_t take);
/** The text of a document, every chunk and the whole checked by their hashes. `fetched` sees what was not known. */
etcd_t::reply_t<std::string> read_document(etcd_t &etcd, fleet_keys_t keys, fleet_document_t document,
                                           known_chunk_fn_t known = {}, take_chunk_fn_t fetched = {});

#endif
