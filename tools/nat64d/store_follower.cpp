/*
 * Implements store_follower.h. `run` follows the store until an error, and retries with back-off. `asked` is driven by
 * the heartbeat's requests. It notices a broken watch and asks the store to confirm the manifest.
 */
#include "tools/nat64d/store_follower.h"

#include <algorithm>
#include <chrono>
#include <set>

#include "fwx_host/adapter.hpp"
#include "net/jitter.h"
#include "net/json.h"
#include "reconcile/background.h"
#include "state/read_file.h"
#include "state/time_text.h"
#include "state/write_file.h"
#include "tools/nat64d/log.h"

namespace {

constexpr uint64_t first_pause_ms = 500; /* after a failure; doubles each time */
constexpr uint64_t last_pause_ms = 5000;
constexpr uint64_t steady_ms = 5000;  /* a watch that lasted so long resets the back-off */
constexpr uint32_t most_failures = 3; /* of other requests before the watch counts as broken */
constexpr uint64_t check_ms = 15000;  /* between confirmations of the watch */
/* Without an answer for so long the store counts as lost. A request that tries each hanging member takes longer. */
constexpr uint64_t most_silence_ms = 10000;

std::string name_of(const fleet_document_t &document) {
    return document.version == 0 ? "manifest" : "version " + std::to_string(document.version);
}

/** The first line of the file that stores the document. */
struct kept_t {
    fleet_document_t document;
    std::string hash; /* the supervisor's; empty: the file does not have it */
};

/** The content of the file: a line with the document's manifest and the supervisor's hash, then the document's text. */
std::string kept_text(const kept_t &kept, const std::string &text) {
    json_t line = json_t::parse(write_manifest({kept.document, std::nullopt, std::nullopt}, manifest_place_t::history));
    line["in_force"] = kept.hash;
    return line.dump() + '\n' + text;
}

/** Parses the content of the file and leaves the document in `text`. Empty if the file is damaged. */
std::optional<kept_t> take_kept(std::string &text) {
    const size_t end = text.find('\n');
    if (end == std::string::npos) return std::nullopt;
    const std::string line = text.substr(0, end);
    text.erase(0, end + 1);
    std::string error;
    const std::optional<manifest_t> manifest = read_manifest(line, manifest_place_t::history, error);
    const bool is_whole = manifest && sha256(text) == manifest->document.hash;
    if (!is_whole) return std::nullopt;
    return kept_t{manifest->document, json_t::parse(line).value("in_force", "")};
}

}  // namespace

store_follower_t::store_follower_t(fwx_host_loop_t *loop, etcd_t &etcd, std::string gateway,
                                   const std::string &directory, handlers_t on)
    : loop_(loop),
      etcd_(etcd),
      keys_(etcd.store().prefix),
      gateway_(std::move(gateway)),
      kept_path_(directory + "/store_document"),
      on_(std::move(on)) {
    status_.reason = "nothing has been asked yet";
}

/** Finds out which version of the store is in force since before the restart, because the store may be away, or may
 * have a version that the server refuses. */
void store_follower_t::start(const std::string &hash) {
    std::string ignored;
    std::string text = read_state_file(kept_path_, ignored).value_or("");
    const std::optional<kept_t> kept = take_kept(text);
    const bool is_held = kept && !hash.empty() && kept->hash == hash;
    if (is_held) held_ = kept->document;
    in_force_at_start_ = hash;
    status_.version = held_.version;
    begin();
}

void store_follower_t::begin() {
    is_watching_ = is_fetching_ = false;
    failures_ = 0;
    run_.emplace(run());
    run_->start();
}

void store_follower_t::reload() {
    must_hand_over_ = true;
    begin();
}

nat64::task<> store_follower_t::run() {
    using kind_t = etcd_error_t::kind_t;
    for (backoff_t backoff(first_pause_ms);;) {
        const uint64_t begin_ms = fwx_host_clock_ms();
        const etcd_error_t error = co_await follow();
        const bool was_steady = is_watching_ && fwx_host_clock_ms() - begin_ms >= steady_ms;
        is_watching_ = is_fetching_ = false;
        const bool is_there = error.kind == kind_t::malformed || error.kind == kind_t::compacted;
        if (!is_there) lose(error.text);
        if (!offered_) co_await read_kept();
        on_.settled();
        if (was_steady) backoff.reset();
        const uint64_t pause_ms = backoff.next(error.kind == kind_t::rights ? rights_pause_ms : last_pause_ms);
        co_await fwx::host::sleep(loop_, std::chrono::milliseconds(pause_ms));
    }
}

void store_follower_t::lose(const std::string &reason) {
    const bool is_new = status_.is_up || status_.reason != reason;
    if (is_new) log_event(log_level_t::warning, "store_lost", {{"reason", reason}});
    status_.is_up = false;
    status_.reason = reason;
}

store_status_t store_follower_t::status() const {
    store_status_t status = status_;
    const bool is_silent = status.is_up && fwx_host_clock_ms() - answered_at_ms_ >= most_silence_ms;
    if (is_silent) {
        status.is_up = false;
        status.reason = "no member of the store has answered for 10 s";
    }
    return status;
}

/** Reads the manifest and watches it, until an error. */
nat64::task<etcd_error_t> store_follower_t::follow() {
    watch_.emplace(etcd_, keys_);
    for (bool is_first = true;; is_first = false) {
        const etcd_result_t<manifest_read_t> read = co_await watch_->next();
        const bool is_unreadable = read.error && read.value.mod_revision != 0;
        if (read.error && !is_unreadable) co_return read.error;
        watched_revision_ = read.value.mod_revision;
        if (is_first) confirm(); /* it was read from the store, not reported by a watch */
        etcd_error_t error;
        if (is_unreadable) refuse({}, read.error.text);
        is_fetching_ = true;
        if (read.value.manifest) error = co_await fetch(read.value.manifest->document_for(gateway_));
        is_fetching_ = false;
        if (error) co_return error;
        is_watching_ = true;
        on_.settled();
    }
}

/** Fetches a document and hands it over, unless it was the last one handed over. */
nat64::task<etcd_error_t> store_follower_t::fetch(fleet_document_t document) {
    const bool is_known =
        offered_ && offered_->document.version == document.version && offered_->document.hash == document.hash;
    if (is_known && !must_hand_over_) co_return {};
    std::string ignored;
    std::string kept = read_state_file(kept_path_, ignored).value_or("");
    if (!take_kept(kept)) kept.clear();
    std::map<std::string, std::string_view> pieces;
    for (const std::string_view piece : cut_chunks(kept)) {
        pieces.emplace(name_chunk(piece).hash, piece);
    }
    std::set<std::string_view> named;
    for (const chunk_t &chunk : document.chunks) {
        named.insert(chunk.hash);
    }
    std::erase_if(fetched_, [&named](const auto &chunk) { return !named.contains(chunk.first); });
    pieces.insert(fetched_.begin(), fetched_.end());
    const auto known = [&pieces](const chunk_t &chunk) -> std::optional<std::string> {
        const auto found = pieces.find(chunk.hash);
        if (found == pieces.end()) return std::nullopt;
        return std::string(found->second);
    };
    const auto fetched = [this](const chunk_t &chunk, const std::string &piece) { fetched_[chunk.hash] = piece; };
    etcd_result_t<std::string> text = co_await read_document(etcd_, keys_, document, known, fetched);
    if (text.error.kind == etcd_error_t::kind_t::malformed) refuse(document, text.error.text);
    if (text.error) co_return text.error;
    fetched_.clear();
    must_hand_over_ = false;
    co_await offer(std::move(document), std::move(text.value));
    co_return {};
}

/** Hands over the document on disk, because the store does not answer. */
nat64::task<> store_follower_t::read_kept() {
    std::string error;
    std::optional<std::string> text = read_state_file(kept_path_, error);
    if (!text && !is_missing(kept_path_)) log_event(log_level_t::error, "state", {{"reason", error}});
    if (!text) co_return;
    std::optional<kept_t> kept = take_kept(*text);
    if (!kept) {
        log_event(log_level_t::error, "state", {{"reason", kept_path_ + ": damaged, and ignored"}});
        co_return;
    }
    /* A later document came into force, but could not be stored here, or came from a file. */
    const bool is_outdated = !in_force_at_start_.empty() && kept->hash != in_force_at_start_;
    if (is_outdated) co_return;
    log_event(log_level_t::warning, "store_unreachable",
              {{"document", name_of(kept->document)}, {"pushed_at", kept->document.pushed_at}});
    co_await offer(std::move(kept->document), std::move(*text));
}

nat64::task<> store_follower_t::offer(fleet_document_t document, std::string text) {
    status_.refused_version = 0;
    status_.refused_document.clear();
    status_.refused_reason.clear();
    const taken_t taken = co_await on_.take(text, name_of(document));
    const bool is_taken = taken.reason.empty();
    if (!is_taken) text.clear();
    offered_ = offer_t{std::move(document), taken.hash, std::move(text)};
    if (!is_taken) refuse(offered_->document, taken.reason);
}

void store_follower_t::in_force(const std::string &hash) {
    const bool is_offered = offered_ && !hash.empty() && offered_->hash == hash;
    if (!is_offered) return;
    const bool is_new = held_.version != offered_->document.version || held_.hash != offered_->document.hash;
    held_ = offered_->document;
    status_.version = held_.version;
    std::string text = std::exchange(offered_->text, {});
    if (!is_new) return;
    keep_.emplace(keep(held_, hash, std::move(text)));
    keep_->start();
}

void store_follower_t::refused(const std::string &hash, const std::string &reason) {
    if (offered_ && offered_->hash == hash && !hash.empty()) note_refused(offered_->document, reason);
}

/** Writes the document to disk, in the background, because the heartbeat cannot wait for a slow disk. */
nat64::task<> store_follower_t::keep(fleet_document_t document, std::string hash, std::string text) const {
    const std::string error = co_await in_background(loop_, [&] {
        return write_file(kept_path_, kept_text({document, hash}, text));
    });
    if (!error.empty()) log_event(log_level_t::error, "state", {{"reason", error}});
}

bool store_follower_t::note_refused(const fleet_document_t &document, const std::string &reason) {
    const bool is_new = status_.refused_version != document.version || status_.refused_reason != reason;
    status_.refused_version = document.version;
    status_.refused_document = document.hash;
    status_.refused_reason = reason;
    return is_new;
}

void store_follower_t::refuse(const fleet_document_t &document, const std::string &reason) {
    if (note_refused(document, reason)) on_.refuse(name_of(document), reason);
}

void store_follower_t::confirm() {
    if (!status_.is_up) log_event(log_level_t::info, "store_up");
    status_.is_up = true;
    status_.reason.clear();
    status_.confirmed_s = seconds_now();
    answered_at_ms_ = fwx_host_clock_ms();
    check_at_ms_ = fwx_host_clock_ms() + jitter(check_ms);
}

void store_follower_t::asked(const etcd_error_t &error) {
    using kind_t = etcd_error_t::kind_t;
    const bool is_away = error.kind == kind_t::unreachable || error.kind == kind_t::no_answer;
    failures_ = is_away ? failures_ + 1 : 0;
    if (!is_away) answered_at_ms_ = fwx_host_clock_ms();
    if (!is_watching_) return;
    if (is_away) lose(error.text);
    const bool must_wait = is_fetching_ || (check_ && !check_->done());
    if (must_wait) return;
    const std::string place = watch_->endpoint();
    const bool has_moved = !place.empty() && place != etcd_.endpoint();
    if (has_moved) return reopen("another member than " + place + ", which has the watch, answers requests");
    if (failures_ >= most_failures) return reopen(error.text);
    const bool is_due = !status_.is_up || fwx_host_clock_ms() >= check_at_ms_;
    if (is_away || !is_due) return;
    check_.emplace(check());
    check_->start();
}

/** Compares the revision that the watch reported with the store's. */
nat64::task<> store_follower_t::check() {
    const etcd_result_t<int64_t> put = co_await etcd_.mod_revision_of(keys_.manifest());
    if (!is_watching_) co_return;
    if (put.error) {
        lose(put.error.text);
    } else if (put.value == watched_revision_) {
        confirm();
    } else if (!is_fetching_) {
        reopen("the manifest in the store is not the one that the watch reported");
    }
}

void store_follower_t::reopen(const std::string &reason) {
    log_event(log_level_t::warning, "watch_reopened", {{"reason", reason}});
    begin();
}
