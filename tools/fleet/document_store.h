/*
 * Reading from the store what pusher.h puts there. A manifest that is read, and whose chunks are then not there, has
 * been overtaken: it is to be read again.
 */
#ifndef TOOLS_FLEET_DOCUMENT_STORE_H
#define TOOLS_FLEET_DOCUMENT_STORE_H

#include <functional>
#include <optional>
#include <string>

#include "tools/fleet/etcd.h"
#include "tools/fleet/fleet_keys.h"
#include "tools/fleet/manifest.h"

struct manifest_read_t {
    std::optional<manifest_t> manifest; /* nothing: none has been pushed, or the error says why */
    int64_t revision = 0;               /* of the store when it was read: a watch begins one later */
    int64_t mod_revision = 0;           /* of the manifest's key; 0: there is none */
    std::string text;                   /* as it is there */
};

/** The manifest in force. One that cannot be read is an error of the kind `malformed`, and has the revisions. */
etcd_t::reply_t<manifest_read_t> read_manifest(etcd_t &etcd, fleet_keys_t keys);
/** Of a version; nothing when that is not kept any more. */
etcd_t::reply_t<std::optional<manifest_t>> read_version(etcd_t &etcd, fleet_keys_t keys, uint64_t version);

/** A chunk that is at hand already; nothing: it is to be fetched. What it gives is checked like what is fetched. */
using known_chunk_fn_t = std::function<std::optional<std::string>(const chunk_t &chunk)>;

/** The text of a document, every chunk and the whole checked by their hashes. A chunk that is not there, or is not what
 * it is called, is an error of the kind `malformed`. */
etcd_t::reply_t<std::string> read_document(etcd_t &etcd, fleet_keys_t keys, fleet_document_t document,
                                           known_chunk_fn_t known = {});

#endif
