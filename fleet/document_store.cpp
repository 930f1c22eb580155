/*
 * Reading of manifests, versions and chunks. The size of requests for chunks adapts to the load of the store, because
 * all gateways of a fleet fetch a new document at the same time.
 */
#include "fleet/document_store.h"

#include <algorithm>

#include "fwx_host/loop.h"

namespace {

using kind_t = etcd_error_t::kind_t;

constexpr size_t least_batch_bytes = 32U << 10; /* of chunks in one request, which has at least one chunk */
constexpr size_t first_batch_bytes = 64U << 10;
constexpr size_t most_batch_bytes = 1U << 20;
constexpr size_t most_batch_chunks = 64;
/* The batch is doubled after an answer that took up to soon_ms longer than the quickest one so far, and halved after
 * one that took late_ms longer or more. A store under load can then answer each client before its timeout. The time of
 * the quickest answer is taken as the round-trip time, which a smaller batch does not reduce. */
constexpr uint64_t soon_ms = 500;
constexpr uint64_t late_ms = 1500;
constexpr int most_late = 3; /* missing answers in a row before it gives up */

etcd_error_t malformed(const std::string &key, const std::string &reason) {
    return {kind_t::malformed, key + ": " + reason};
}

/** The keys of the next chunks that fit into one request. */
std::vector<std::string> batch_of(const fleet_keys_t &keys, const std::vector<chunk_t> &chunks, size_t from,
                                  size_t most_bytes) {
    std::vector<std::string> batch;
    size_t bytes = 0;
    for (size_t i = from; i < chunks.size() && batch.size() < most_batch_chunks; ++i) {
        bytes += chunks[i].bytes;
        if (bytes > most_bytes && !batch.empty()) break;
        batch.push_back(keys.chunk(chunks[i].hash));
    }
    return batch;
}

/** True if the lengths of the chunks add up to the length of the document. */
bool is_as_long(const fleet_document_t &document) {
    size_t bytes = 0;
    for (const chunk_t &chunk : document.chunks) {
        bytes += chunk.bytes;
    }
    return bytes == document.bytes && bytes <= most_document_bytes;
}

}  // namespace

void take_manifest(etcd_entry_t entry, etcd_result_t<manifest_read_t> &result) {
    result.value.mod_revision = entry.mod_revision;
    std::string fault;
    result.value.manifest = read_manifest(entry.value, manifest_place_t::current, fault);
    result.value.text = std::move(entry.value);
    if (!result.value.manifest) result.error = malformed(entry.key, fault);
}

etcd_t::reply_t<manifest_read_t> read_manifest(etcd_t &etcd, fleet_keys_t keys) {
    etcd_result_t<manifest_read_t> result;
    etcd_result_t<etcd_range_t> got = co_await etcd.get(keys.manifest());
    result.error = std::move(got.error);
    result.value.revision = got.value.revision;
    const bool is_there = !result.error && !got.value.entries.empty();
    if (is_there) take_manifest(std::move(got.value.entries.front()), result);
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

nat64::task<etcd_error_t> fetch_chunks(etcd_t &etcd, fleet_keys_t keys, std::vector<chunk_t> chunks,
                                       take_chunk_fn_t take) {
    size_t batch_bytes = first_batch_bytes;
    uint64_t quickest_ms = UINT64_MAX; /* time of the quickest answer so far */
    int late = 0;                      /* missing answers in a row */
    for (size_t next = 0; next < chunks.size();) {
        const std::vector<std::string> batch = batch_of(keys, chunks, next, batch_bytes);
        const uint64_t asked_at_ms = fwx_host_clock_ms();
        const etcd_result_t<etcd_range_t> got = co_await etcd.get_all(batch);
        const bool is_again_worth = got.error.kind == kind_t::no_answer && ++late < most_late;
        if (is_again_worth) {
            batch_bytes = least_batch_bytes;
            continue;
        }
        if (got.error) co_return got.error;
        late = 0;
        const uint64_t time_ms = fwx_host_clock_ms() - asked_at_ms;
        quickest_ms = std::min(quickest_ms, time_ms);
        const uint64_t more_ms = time_ms - quickest_ms;
        if (more_ms <= soon_ms) batch_bytes = std::min(2 * batch_bytes, most_batch_bytes);
        if (more_ms >= late_ms) batch_bytes = std::max(batch_bytes / 2, least_batch_bytes);
        size_t found = 0;
        for (const std::string &key : batch) {
            const bool is_there = found < got.value.entries.size() && got.value.entries[found].key == key;
            if (!is_there) co_return malformed(key, "is not there");
            const std::string &piece = got.value.entries[found++].value;
            const chunk_t &chunk = chunks[next++];
            if (!is_chunk(chunk, piece)) co_return malformed(key, "does not match its name");
            take(chunk, piece);
        }
    }
    co_return etcd_error_t{};
}

etcd_t::reply_t<std::string> read_document(etcd_t &etcd, fleet_keys_t keys, fleet_document_t document,
                                           known_chunk_fn_t known, take_chunk_fn_t fetched) {
    etcd_result_t<std::string> result;
    std::string &text = result.value;
    if (!is_as_long(document)) {
        result.error =
            malformed("version " + std::to_string(document.version), "the lengths of its chunks do not add up");
        co_return result;
    }
    text.resize(document.bytes);
    std::vector<chunk_t> wanted;
    std::vector<size_t> places; /* offsets of the wanted chunks in the text */
    size_t at = 0;
    for (const chunk_t &chunk : document.chunks) {
        const std::optional<std::string> piece = known ? known(chunk) : std::nullopt;
        const bool is_known = piece && is_chunk(chunk, *piece);
        if (is_known) {
            piece->copy(text.data() + at, chunk.bytes);
        } else {
            wanted.push_back(chunk);
            places.push_back(at);
        }
        at += chunk.bytes;
    }
    size_t taken = 0;
    result.error =
        co_await fetch_chunks(etcd, keys, std::move(wanted), [&](const chunk_t &chunk, const std::string &piece) {
            piece.copy(text.data() + places[taken++], chunk.bytes);
            if (fetched) fetched(chunk, piece);
        });
    const bool is_whole = result.error || sha256(text) == document.hash;
    if (!is_whole) result.error = malformed("version " + std::to_string(document.version), "does not match its hash");
    co_return result;
}
