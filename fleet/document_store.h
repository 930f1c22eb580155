/*
 * Reads manifests and documents from the store, as pusher.h writes them. If the chunks of a manifest are missing, a
 * newer manifest has replaced it meanwhile, and the caller must read the manifest again.
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
    std::optional<manifest_t> manifest; /* nothing: none has been pushed yet, or there is an error */
    int64_t revision = 0;               /* of the store at the time of reading; a watch starts at the next one */
    int64_t mod_revision = 0;           /* of the manifest's key; 0: there is no such key */
    std::string text;                   /* the value of the key */
};

/** Parses the value of a manifest's key into `result`. Sets the error to the kind `malformed` if that fails. */
void take_manifest(etcd_entry_t entry, etcd_result_t<manifest_read_t> &result);
/** Reads the manifest in force. If its value cannot be parsed, the error has the kind `malformed` and the revisions are
 * set. */
etcd_t::reply_t<manifest_read_t> read_manifest(etcd_t &etcd, fleet_keys_t keys);
/** Reads the manifest of a version in the history, or nothing if it is not stored any more. */
etcd_t::reply_t<std::optional<manifest_t>> read_version(etcd_t &etcd, fleet_keys_t keys, uint64_t version);

/** Returns the text of a chunk if the caller has it and it need not be fetched. The text is checked all the same. */
using known_chunk_fn_t = std::function<std::optional<std::string>(const chunk_t &chunk)>;

/** Takes a chunk that was fetched and whose hash is correct. */
using take_chunk_fn_t = std::function<void(const chunk_t &chunk, const std::string &piece)>;

/** Fetches chunks, several in one request, and calls `take` for each in their order. An error ends it; the chunks that
 * were taken by then are good. A missing chunk, and one with a wrong hash, give an error of the kind `malformed`. */
nat64::task<etcd_error_t> fetch_chunks(etcd_t &etcd, fleet_keys_t keys, std::vector<chunk_t> chunks,
                                       take_chunk_fn_t take);
/** Reads the text of a document, and checks the hashes of every chunk and of the whole text. Calls `fetched` for each
 * chunk that `known` did not have. */
etcd_t::reply_t<std::string> read_document(etcd_t &etcd, fleet_keys_t keys, fleet_document_t document,
                                           known_chunk_fn_t known = {}, take_chunk_fn_t fetched = {});

#endif
