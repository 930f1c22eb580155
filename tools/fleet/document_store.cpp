#include "tools/fleet/document_store.h"

#include <algorithm>

namespace {

using kind_t = etcd_error_t::kind_t;

constexpr size_t most_batch_bytes = 1U << 20; /* of chunks that are fetched at once */
constexpr size_t most_batch_chunks = 64;

etcd_error_t malformed(const std::string &key, const std::string &reason) {
    return {kind_t::malformed, key + ": " + reason};
}

/** A chunk, and where it is in the text. */
struct place_t {
    const chunk_t *chunk;
    size_t at;
};

/** Where the chunks of a document are; nothing when they are not what it says. */
std::optional<std::vector<place_t>> places_of(const fleet_document_t &document) {
    std::vector<place_t> places;
    size_t at = 0;
    for (const chunk_t &chunk : document.chunks) {
        places.push_back({&chunk, at});
        at += chunk.bytes;
    }
    const bool is_good = at == document.bytes && at <= most_document_bytes;
    return is_good ? std::optional(std::move(places)) : std::nullopt;
}

/** The keys of the next chunks, as many as are fetched at once. */
std::vector<std::string> batch_of(const fleet_keys_t &keys, const std::vector<place_t> &wanted, size_t from) {
    std::vector<std::string> batch;
    size_t bytes = 0;
    for (size_t i = from; i < wanted.size() && batch.size() < most_batch_chunks; ++i) {
        bytes += wanted[i].chunk->bytes;
        if (bytes > most_batch_bytes && !batch.empty()) break;
        batch.push_back(keys.chunk(wanted[i].chunk->hash));
    }
    return batch;
}

}  // namespace

etcd_t::reply_t<manifest_read_t> read_manifest(etcd_t &etcd, fleet_keys_t keys) {
    etcd_result_t<manifest_read_t> result;
    etcd_result_t<etcd_range_t> got = co_await etcd.get(keys.manifest());
    result.error = std::move(got.error);
    result.value.revision = got.value.revision;
    const bool is_there = !result.error && !got.value.entries.empty();
    if (!is_there) co_return result;
    etcd_entry_t &entry = got.value.entries.front();
    result.value.mod_revision = entry.mod_revision;
    result.value.text = std::move(entry.value);
    std::string fault;
    result.value.manifest = read_manifest(result.value.text, manifest_place_t::current, fault);
    if (!result.value.manifest) result.error = malformed(keys.manifest(), fault);
    co_return result;
}

etcd_t::reply_t<std::optional<manifest_t>> read_version(etcd_t &etcd, fleet_keys_t keys, uint64_t version) {
    etcd_result_t<std::optional<manifest_t>> result;
    const etcd_result_t<etcd_range_t> got = co_await etcd.get(keys.history(version));
    result.error = got.error;
    const bool is_there = !result.error && !got.value.entries.empty();
    if (!is_there) co_return result;
    std::string fault;
    result.value = read_manifest(got.value.entries.front().value, manifest_place_t::history, fault);
    const bool is_other = result.value && result.value->document.version != version;
    if (is_other) fault = "version: must be " + std::to_string(version);
    if (!fault.empty()) result.error = malformed(keys.history(version), fault);
    co_return result;
}

etcd_t::reply_t<std::string> read_document(etcd_t &etcd, fleet_keys_t keys, fleet_document_t document,
                                           known_chunk_fn_t known) {
    etcd_result_t<std::string> result;
    std::string &text = result.value;
    const std::optional<std::vector<place_t>> places = places_of(document);
    if (!places) {
        result.error = malformed("version " + std::to_string(document.version), "its chunks are not what it says");
        co_return result;
    }
    text.resize(document.bytes);
    std::vector<place_t> wanted;
    for (const place_t &place : *places) {
        const std::optional<std::string> piece = known ? known(*place.chunk) : std::nullopt;
        const bool is_known = piece && is_chunk(*place.chunk, *piece);
        if (is_known) {
            std::copy(piece->begin(), piece->end(), text.begin() + static_cast<ptrdiff_t>(place.at));
        } else {
            wanted.push_back(place);
        }
    }
    for (size_t next = 0; next < wanted.size();) {
        const std::vector<std::string> batch = batch_of(keys, wanted, next);
        const etcd_result_t<etcd_range_t> got = co_await etcd.get_all(batch);
        result.error = got.error;
        if (result.error) co_return result;
        size_t found = 0;
        for (const std::string &key : batch) {
            const bool is_there = found < got.value.entries.size() && got.value.entries[found].key == key;
            const std::string piece = is_there ? got.value.entries[found++].value : "";
            const place_t &place = wanted[next++];
            if (!is_chunk(*place.chunk, piece)) {
                result.error = malformed(key, is_there ? "is not what its name says" : "is not there");
                co_return result;
            }
            std::copy(piece.begin(), piece.end(), text.begin() + static_cast<ptrdiff_t>(place.at));
        }
    }
    const bool is_whole = sha256(text) == document.hash;
    if (!is_whole) result.error = malformed("version " + std::to_string(document.version), "is not what its hash says");
    co_return result;
}
