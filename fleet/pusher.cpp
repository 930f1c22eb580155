/*
 * Pushes, rollbacks and the garbage collection. Each transaction compares the revision of the lock's key, so a pusher
 * that has lost its lock writes nothing more.
 */
#include "fleet/pusher.h"

#include <algorithm>
#include <set>

#include "net/json.h"
#include "state/time_text.h"

namespace {

using kind_t = etcd_error_t::kind_t;

/* By default, etcd limits a transaction to 1.5 MB and 128 operations. */
constexpr size_t most_put_bytes = 768U << 10;
constexpr size_t most_put_chunks = 64;
constexpr size_t most_deletes = 100;

etcd_error_t lock_lost() {
    return {kind_t::other, "the lock was lost during the push: its lease has ended"};
}

/** The version numbers in keys of the history. Ignores other keys. */
std::vector<uint64_t> versions_of(const std::vector<etcd_entry_t> &entries, const fleet_keys_t &keys) {
    std::vector<uint64_t> versions;
    for (const etcd_entry_t &entry : entries) {
        const std::string digits = entry.key.substr(keys.history().size());
        const bool is_number = digits.size() == 10 && digits.find_first_not_of("0123456789") == std::string::npos;
        if (is_number) versions.push_back(std::stoull(digits));
    }
    return versions;
}

void add_names(const fleet_document_t &document, std::set<std::string> &names) {
    for (const chunk_t &chunk : document.chunks) {
        names.insert(chunk.hash);
    }
}

/** True if the manifest in force has the same document and stage already. */
bool says_the_same(const std::optional<manifest_t> &before, const manifest_t &now) {
    return before && before->document.hash == now.document.hash && before->stage == now.stage;
}

/** The texts as ` (a, b)`; empty if there are none. */
std::string in_brackets(const std::vector<std::string> &texts) {
    std::string all;
    for (const std::string &text : texts) {
        all += (all.empty() ? " (" : ", ") + text;
    }
    return all.empty() ? "" : all + ')';
}

void sort_names(std::optional<stage_t> &stage) {
    if (!stage) return;
    std::vector<std::string> &names = stage->gateways;
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
}

/** The error if the manifest that was read must not be replaced. A damaged one may be. One of a newer format must not
 * be, because a newer natctl may have written it correctly. */
etcd_error_t obstacle(const etcd_result_t<manifest_read_t> &before) {
    const bool is_faulty = before.error.kind == kind_t::malformed && before.value.mod_revision != 0;
    return is_faulty && !is_newer_manifest(before.value.text) ? etcd_error_t{} : before.error;
}

/** Sets the members of a manifest that the caller of push chooses. Returns the reason if the push is impossible. */
std::string prepare(const manifest_read_t &before, const push_request_t &request, manifest_t &manifest) {
    const bool fits = !request.text.empty() && request.text.size() <= most_document_bytes;
    if (!fits)
        return "a document of " + std::to_string(request.text.size()) + " bytes: the most is " +
               std::to_string(most_document_bytes);
    const bool has_no_base = request.stage && !before.manifest;
    if (has_no_base) {
        return before.mod_revision == 0 ? "nothing has been pushed yet: the first document is for all gateways"
                                        : "the manifest in force cannot be read: the next document is for all gateways";
    }
    manifest.stage = request.stage;
    if (manifest.stage) manifest.base = before.manifest->document_for_all();
    sort_names(manifest.stage);
    manifest.document.items = request.items;
    manifest.document.note = clean_line(request.note, most_note_bytes);
    return "";
}

/** The error if gateways could not read the manifest. Its version is not known yet. */
etcd_error_t unreadable(manifest_t manifest, const std::string &who) {
    manifest.document.version = most_version;
    manifest.document.pushed_by = who;
    manifest.document.pushed_at = time_text();
    std::string fault;
    const bool is_good =
        read_manifest(write_manifest(manifest, manifest_place_t::current), manifest_place_t::current, fault)
            .has_value();
    if (is_good) return {};
    const size_t chunks = manifest.document.chunks.size() + (manifest.base ? manifest.base->chunks.size() : 0);
    return {kind_t::other, "the manifest (chunks: " + std::to_string(chunks) +
                               (manifest.base ? ", with those of the gateways outside of the stage): " : "): ") +
                               fault};
}

etcd_error_t name_pieces(const std::string &text, const std::vector<std::string_view> &pieces, const std::string &who,
                         manifest_t &manifest) {
    fleet_document_t &document = manifest.document;
    document.bytes = text.size();
    document.hash = sha256(text);
    document.chunks.clear();
    for (const std::string_view piece : pieces) {
        document.chunks.push_back(name_chunk(piece));
    }
    const bool is_named = !document.hash.empty() && pieces.size() <= most_chunks;
    if (is_named) return unreadable(manifest, who);
    return {kind_t::other, document.hash.empty() ? "SHA-256 is not available"
                                                 : "a document of " + std::to_string(pieces.size()) +
                                                       " chunks: the most is " + std::to_string(most_chunks)};
}

}  // namespace

pusher_t::pusher_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string who)
    : etcd_(etcd), keys_(etcd.store().prefix), who_(std::move(who)), lock_(loop, etcd, keys_) {}

nat64::task<push_result_t> pusher_t::push(push_request_t request) {
    return under_lock(push_locked(std::move(request)));
}

nat64::task<push_result_t> pusher_t::roll_back(std::optional<uint64_t> version) {
    return under_lock(roll_back_locked(version));
}

nat64::task<push_result_t> pusher_t::under_lock(nat64::task<push_result_t> work) {
    push_result_t result;
    result.error = co_await lock_.take(who_);
    if (result.error) co_return result;
    if (!lock_.is_held()) {
        result.refused = lock_.holder() + " is pushing";
        co_return result;
    }
    result = co_await work;
    static_cast<void>(co_await lock_.release()); /* if that fails, the lock ends with its lease */
    co_return result;
}

nat64::task<push_result_t> pusher_t::push_locked(push_request_t request) {
    push_result_t result;
    etcd_result_t<manifest_read_t> before = co_await read_manifest(etcd_, keys_);
    result.error = obstacle(before);
    if (result.error) co_return result;
    result.refused = prepare(before.value, request, result.manifest);
    if (!result.refused.empty()) co_return result;
    const etcd_result_t<uint64_t> version = co_await next_version(before.value); /* before chunks are put in vain */
    result.error = version.error;
    if (!result.error) result.error = co_await put_chunks(std::move(request.text), result);
    if (!result.error) co_await publish_and_collect(std::move(before.value), version.value, result);
    co_return result;
}

nat64::task<push_result_t> pusher_t::check(push_request_t request) {
    push_result_t result;
    const etcd_result_t<manifest_read_t> before = co_await read_manifest(etcd_, keys_);
    result.error = obstacle(before);
    if (result.error) co_return result;
    result.refused = prepare(before.value, request, result.manifest);
    if (!result.refused.empty()) co_return result;
    result.error = name_pieces(request.text, cut_chunks(request.text), who_, result.manifest);
    if (!result.error) result.error = (co_await next_version(before.value)).error;
    if (result.error) co_return result;
    etcd_result_t<std::vector<size_t>> missing = co_await find_missing(result.manifest.document.chunks);
    result.error = missing.error;
    if (result.error) co_return result;
    for (const size_t index : missing.value) {
        result.bytes_put += result.manifest.document.chunks[index].bytes;
    }
    result.chunks_put = missing.value.size();
    result.is_changed = !says_the_same(before.value.manifest, result.manifest);
    co_return result;
}

nat64::task<push_result_t> pusher_t::roll_back_locked(std::optional<uint64_t> version) {
    push_result_t result;
    etcd_result_t<manifest_read_t> before = co_await read_manifest(etcd_, keys_);
    result.error = obstacle(before);
    if (result.error) co_return result;
    if (version) {
        etcd_result_t<std::optional<manifest_t>> older = co_await read_version(etcd_, keys_, *version);
        result.error = older.error;
        if (older.value) result.manifest.document = std::move(older.value->document);
    } else {
        manifest_t in_force = before.value.manifest.value_or(manifest_t{});
        result.error = co_await choose_older(std::move(in_force), result);
    }
    if (result.error) co_return result;
    fleet_document_t &document = result.manifest.document;
    result.back_to = document.version;
    if (result.back_to == 0) {
        result.refused = version ? "version " + std::to_string(*version) + " is not in the history, see fleet history"
                                 : "there is no version before the one in force" + in_brackets(result.skipped);
        co_return result;
    }
    const uint64_t wanted = result.back_to;
    document.note = "rollback to " + std::to_string(wanted);
    const etcd_result_t<std::vector<size_t>> missing = co_await find_missing(document.chunks);
    result.error = missing.error;
    if (!result.error && !missing.value.empty()) {
        const std::string &hash = document.chunks[missing.value.front()].hash;
        result.error = {kind_t::malformed, keys_.chunk(hash) +
                                               ": is not there or damaged; a push of the document of version " +
                                               std::to_string(wanted) + " puts it anew"};
    }
    if (result.error) co_return result;
    const etcd_result_t<uint64_t> next = co_await next_version(before.value);
    result.error = next.error;
    if (!result.error) co_await publish_and_collect(std::move(before.value), next.value, result);
    co_return result;
}

/** Chooses the document of a rollback without a number, if there is one. While a stage is in force, the first choice is
 * the document of the gateways outside of the stage. */
nat64::task<etcd_error_t> pusher_t::choose_older(manifest_t in_force, push_result_t &result) {
    const auto takes = [&](const manifest_t &older) {
        const bool is_same = older.document.hash == in_force.document.hash;
        const bool is_good = !older.stage && !is_same;
        if (is_good) result.manifest.document = older.document;
        if (!is_good) {
            result.skipped.push_back("version " + std::to_string(older.document.version) +
                                     (older.stage ? " is for " + stage_text(*older.stage) : " has the same document"));
        }
        return is_good;
    };
    uint64_t before = in_force.document.version;
    if (before == 0) before = UINT64_MAX;
    if (in_force.base) {
        if (takes({*in_force.base, std::nullopt, std::nullopt})) co_return etcd_error_t{};
        before = in_force.base->version;
    }
    const etcd_result_t<etcd_range_t> history = co_await etcd_.list(keys_.history(), false);
    if (history.error) co_return history.error;
    std::vector<uint64_t> versions = versions_of(history.value.entries, keys_);
    std::reverse(versions.begin(), versions.end());
    for (const uint64_t version : versions) {
        if (version >= before) continue;
        const etcd_result_t<std::optional<manifest_t>> older = co_await read_version(etcd_, keys_, version);
        const bool is_unreadable = older.error.kind == kind_t::malformed;
        if (is_unreadable) result.skipped.push_back("version " + std::to_string(version) + " cannot be read");
        if (older.error && !is_unreadable) co_return older.error;
        if (older.value && takes(*older.value)) break;
    }
    co_return etcd_error_t{};
}

nat64::task<> pusher_t::publish_and_collect(manifest_read_t before, uint64_t version, push_result_t &result) {
    if (says_the_same(before.manifest, result.manifest)) {
        result.manifest = *std::move(before.manifest);
    } else {
        result.error = co_await publish(std::move(before), version, result);
        if (result.error) co_return;
    }
    const etcd_error_t error = co_await collect(result);
    result.uncollected = error.text;
}

/** Indices of the chunks that are missing or damaged in the store, each chunk once. A pusher writes a chunk only once.
 * Therefore only chunks that were written again are read and checked. */
etcd_t::reply_t<std::vector<size_t>> pusher_t::find_missing(std::vector<chunk_t> chunks) {
    etcd_result_t<std::vector<size_t>> result;
    const etcd_result_t<etcd_range_t> stored = co_await etcd_.list(keys_.chunks(), false);
    result.error = stored.error;
    if (result.error) co_return result;
    std::set<std::string_view> known;
    std::set<std::string_view> rewritten;
    for (const etcd_entry_t &entry : stored.value.entries) {
        const std::string_view hash = std::string_view(entry.key).substr(keys_.chunks().size());
        known.insert(hash);
        if (entry.mod_revision != entry.create_revision) rewritten.insert(hash);
    }
    for (const chunk_t &chunk : chunks) {
        if (rewritten.erase(chunk.hash) == 0) continue;
        const etcd_result_t<etcd_range_t> got = co_await etcd_.get(keys_.chunk(chunk.hash));
        result.error = got.error;
        if (result.error) co_return result;
        const bool is_good = !got.value.entries.empty() && is_chunk(chunk, got.value.entries.front().value);
        if (!is_good) known.erase(chunk.hash);
    }
    for (size_t i = 0; i < chunks.size(); ++i) {
        if (known.insert(chunks[i].hash).second) result.value.push_back(i);
    }
    co_return result;
}

nat64::task<etcd_error_t> pusher_t::put_chunks(std::string text, push_result_t &result) {
    const std::vector<std::string_view> pieces = cut_chunks(text);
    const std::vector<chunk_t> &chunks = result.manifest.document.chunks;
    etcd_error_t error = name_pieces(text, pieces, who_, result.manifest);
    if (error) co_return error;
    const etcd_result_t<std::vector<size_t>> missing = co_await find_missing(chunks);
    if (missing.error) co_return missing.error;
    for (size_t next = 0; next < missing.value.size();) {
        etcd_txn_t txn;
        txn.compares = {lock_.held()};
        txn.is_repeatable = true;
        uint64_t bytes = 0;
        for (; next < missing.value.size() && txn.puts.size() < most_put_chunks; ++next) {
            const size_t index = missing.value[next];
            if (bytes + chunks[index].bytes > most_put_bytes) break;
            txn.puts.push_back({keys_.chunk(chunks[index].hash), std::string(pieces[index]), 0});
            bytes += chunks[index].bytes;
        }
        const size_t count = txn.puts.size();
        const etcd_result_t<etcd_txn_result_t> put = co_await etcd_.txn(std::move(txn));
        if (put.error) co_return put.error;
        if (!put.value.is_done) co_return lock_lost();
        result.chunks_put += count;
        result.bytes_put += bytes;
    }
    co_return etcd_error_t{};
}

/** The number of the version that a push makes. An error if it would be greater than gateways read. */
etcd_t::reply_t<uint64_t> pusher_t::next_version(const manifest_read_t &before) {
    etcd_result_t<uint64_t> result;
    const etcd_result_t<etcd_range_t> history = co_await etcd_.list(keys_.history(), false);
    result.error = history.error;
    if (result.error) co_return result;
    uint64_t last = before.manifest ? before.manifest->document.version : 0;
    for (const uint64_t version : versions_of(history.value.entries, keys_)) {
        last = std::max(last, version);
    }
    result.value = last + 1;
    if (last >= most_version) {
        result.error = {kind_t::other, keys_.history(last) +
                                           ": no version can follow this one; push to another prefix, "
                                           "or delete the key if no push has made that version"};
    }
    co_return result;
}

nat64::task<etcd_error_t> pusher_t::publish(manifest_read_t before, uint64_t version, push_result_t &result) {
    manifest_t &manifest = result.manifest;
    manifest.document.version = version;
    manifest.document.pushed_by = who_;
    manifest.document.pushed_at = time_text();
    const etcd_error_t fault = unreadable(manifest, who_);
    if (fault) co_return fault;
    const std::string text = write_manifest(manifest, manifest_place_t::current);
    etcd_txn_t txn;
    txn.compares = {lock_.held(),
                    {etcd_txn_t::compare_t::what_t::mod_revision, keys_.manifest(), "", before.mod_revision}};
    txn.puts = {{keys_.manifest(), text, 0},
                {keys_.history(version), write_manifest(manifest, manifest_place_t::history), 0}};
    etcd_result_t<etcd_txn_result_t> put = co_await etcd_.txn(std::move(txn));
    if (put.error.kind == kind_t::no_answer) { /* the transaction may have been carried out */
        const etcd_result_t<etcd_range_t> now = co_await etcd_.get(keys_.manifest());
        const bool is_there = !now.error && !now.value.entries.empty() && now.value.entries.front().value == text;
        if (is_there) put = {{true, now.value.revision}, {}};
    }
    if (put.error) co_return put.error;
    if (!put.value.is_done) co_return lock_lost();
    result.is_changed = true;
    co_return etcd_error_t{};
}

/** Deletes nothing if an entry of the history cannot be parsed, because it could name any chunk. */
nat64::task<etcd_error_t> pusher_t::collect(push_result_t &result) {
    const etcd_result_t<etcd_range_t> history = co_await etcd_.list(keys_.history(), false);
    if (history.error) co_return history.error;
    std::vector<uint64_t> versions = versions_of(history.value.entries, keys_);
    const size_t old = versions.size() - std::min(versions.size(), kept_versions);
    std::set<std::string> named;
    add_names(result.manifest.document, named);
    if (result.manifest.base) add_names(*result.manifest.base, named);
    for (size_t i = old; i < versions.size(); ++i) {
        const etcd_result_t<std::optional<manifest_t>> kept = co_await read_version(etcd_, keys_, versions[i]);
        if (kept.error) co_return kept.error;
        if (kept.value) add_names(kept.value->document, named);
    }
    const etcd_result_t<etcd_range_t> stored = co_await etcd_.list(keys_.chunks(), false);
    if (stored.error) co_return stored.error;
    std::vector<std::string> garbage; /* entries of the history first, so that none names a deleted chunk */
    for (size_t i = 0; i < old; ++i) {
        garbage.push_back(keys_.history(versions[i]));
    }
    for (const etcd_entry_t &entry : stored.value.entries) {
        if (!named.contains(entry.key.substr(keys_.chunks().size()))) garbage.push_back(entry.key);
    }
    co_return co_await delete_all(std::move(garbage), result);
}

nat64::task<etcd_error_t> pusher_t::delete_all(std::vector<std::string> keys, push_result_t &result) {
    for (size_t next = 0; next < keys.size();) {
        const size_t count = std::min(most_deletes, keys.size() - next);
        const auto first = keys.begin() + static_cast<ptrdiff_t>(next);
        etcd_txn_t txn;
        txn.compares = {lock_.held()};
        txn.deletes = {first, first + static_cast<ptrdiff_t>(count)};
        txn.is_repeatable = true;
        const etcd_result_t<etcd_txn_result_t> done = co_await etcd_.txn(std::move(txn));
        if (done.error) co_return done.error;
        if (!done.value.is_done) co_return lock_lost();
        next += count;
        result.collected += count;
    }
    co_return etcd_error_t{};
}
