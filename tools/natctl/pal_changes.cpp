/* Part of pal.h: reads the server's state, takes its lock, and adds a version for every change. */
#include "fwx_host/adapter.hpp"
#include "fwx_nat64/server_result.h"
#include "reconcile/reconciler.h"
#include "state/directory.h"
#include "tools/natctl/pal.h"

namespace {

nat64::task<fwx_nat64_stats_boot_t> ask_boot(nat64::client &client) {
    co_return (co_await client.stats_boot()).record;
}

nat64::task<std::optional<fwx_nat64_stats_sys_entry_t>> ask_totals(nat64::client &client) {
    const auto got = co_await client.stats_totals();
    co_return got ? std::optional(got.record) : std::nullopt;
}

}  // namespace

reconciler_t &pal_t::reconciler() {
    if (!reconciler_) reconciler_ = std::make_unique<reconciler_t>(loop_.get(), *client_, rules_);
    return *reconciler_;
}

std::string pal_t::open_versions(std::optional<versions_t> &place, versions_t *&versions) {
    const bool is_remote = !options_.connect.empty();
    if (!versions_ && !is_remote) versions_.emplace("");
    versions = versions_ ? &*versions_ : &place.emplace(state_directory_of(options_.connect));
    return place ? place->open() : "";
}

std::string pal_t::begin_change() {
    if (options_.connect.empty() || lock_) {
        if (!versions_) versions_.emplace("");
        return "";
    }
    lock_.emplace(lock_path_of(options_.connect), "natctl");
    const auto on_wait = [this](const std::string &holder) {
        note_("natctl: server " + options_.connect + ": " + holder + " is changing it; waiting for up to " +
              std::to_string(options_.timeout_ms) + " ms");
    };
    const auto patience = std::chrono::milliseconds(options_.timeout_ms);
    std::string error = take_server_lock(*lock_, options_.connect, patience, on_wait);
    is_locked_out_ = lock_->is_taken();
    versions_.emplace(state_directory_of(options_.connect));
    if (error.empty()) error = make_state_directory(versions_->directory() + "/documents");
    if (error.empty()) error = versions_->open();
    if (error.empty()) return "";
    versions_.reset();
    lock_.reset();
    return error;
}

std::string pal_t::end_singles() {
    const version_t made = std::exchange(single_, {});
    return made.commands == 0 ? "" : versions_->add(made, std::nullopt);
}

std::string pal_t::end_change() {
    std::string error = end_singles();
    if (!lock_) return error;
    versions_.reset();
    lock_.reset();
    return error;
}

std::string pal_t::begin_single(const call_t &call) {
    std::string error = begin_change();
    if (single_.what.empty()) single_.what = change_name_.empty() ? call.outcome.command : change_name_;
    return error;
}

void pal_t::count_single(call_t &call, const nat64::result &got) {
    const bool is_done = got || got.code() == FWX_NAT64_MODEL_ERR_NOT_SAVED;
    const bool is_change = std::exchange(call.is_change, false);
    call.outcome.changes = is_done && (is_change || call.outcome.changes);
    if (is_change && is_done) ++single_.commands;
}

void pal_t::refuse_unread(call_t &call, const std::error_code &error, const std::string &text) const {
    const bool is_late = error == std::errc::timed_out || error == nat64::client_errc::connection_lost;
    const status_t status = has_lost_server() ? status_t::no_server : is_late ? status_t::no_answer : status_t::refused;
    refuse(call.outcome, status, 0, text);
}

std::optional<document_t> pal_t::server_document(call_t &call) {
    const bool is_known_here = rules_.installed() + rules_.pending() + rules_.defaults().size() != 0;
    if (is_known_here || options_.connect.empty() || options_.dry_run) return std::nullopt;
    const std::error_code error = run_internal(reconciler().read());
    const bool is_unreadable = error == nat64::client_errc::unreadable;
    if (is_unreadable) {
        note_("natctl: " + error.message());
    } else if (error) {
        refuse_unread(call, error, error.message());
    }
    if (error || reconciler().held().size() == 0) return std::nullopt;
    note_("natctl: " + call.outcome.command + ": from what " + options_.connect +
          " holds: this natctl has installed no rules");
    return reconciler().held();
}

fwx_nat64_stats_boot_t pal_t::server_boot() {
    return run_internal(ask_boot(*client_));
}

std::optional<fwx_nat64_stats_sys_entry_t> pal_t::server_totals() {
    return run_internal(ask_totals(*client_));
}

void pal_t::settle_all() {
    for (auto &[id, call] : calls_) {
        const bool is_awaited = call.awaited && &call != starting_ && !options_.dry_run;
        if (is_awaited) settle(call);
    }
}
