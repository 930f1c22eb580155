/* How natctl's binding keeps the running document of its server. */
#include <algorithm>

#include "fwx_nat64/server_result.h"
#include "records/families.h"
#include "state/directory.h"
#include "tools/natctl/pal.h"

namespace {

nat64::task<fwx_nat64_stats_boot_t> ask_boot(nat64::client &client) {
    co_return (co_await client.stats_boot()).record;
}

nat64::task<fwx_nat64_stats_sys_entry_t> ask_totals(nat64::client &client, bool &is_known) {
    const auto got = co_await client.stats_totals();
    is_known = static_cast<bool>(got);
    co_return got.record;
}

}  // namespace

running_t &pal_t::running() {
    if (!running_) running_.emplace("", "natctl");
    return *running_;
}

std::string pal_t::open_running() {
    if (options_.connect.empty()) {
        running();
        return "";
    }
    if (running_) return "";
    running_.emplace(state_directory_of(options_.connect), "natctl");
    std::string error = running_->open(std::chrono::milliseconds(options_.timeout_ms));
    for (const std::string &text : running_->notes()) {
        note_("natctl: " + text);
    }
    if (!error.empty()) running_.reset();
    return error;
}

std::string pal_t::look_at_running(std::optional<running_t> &place, running_t *&running) {
    if (running_ || options_.connect.empty()) {
        running = &this->running();
        return "";
    }
    place.emplace(state_directory_of(options_.connect), "natctl");
    running = &*place;
    return place->look();
}

std::optional<document_t> pal_t::recorded_document(call_t &call) {
    const bool is_known_here = rules_.installed() + rules_.pending() + rules_.defaults().size() != 0;
    if (is_known_here || options_.connect.empty() || options_.dry_run) return std::nullopt;
    std::optional<running_t> place;
    running_t *running = nullptr;
    const std::string error = look_at_running(place, running);
    if (!error.empty()) note_("natctl: " + error);
    if (!error.empty() || running->document().size() == 0) return std::nullopt;
    note_("natctl: " + call.outcome.command + ": from the running document of " + options_.connect +
          ": this natctl has installed no rules");
    return running->document();
}

std::string pal_t::begin_change(const call_t &call) {
    std::string error = open_running();
    const bool begins = error.empty() && !running_->has_begun();
    if (begins) running_->begin(change_name_.empty() ? call.outcome.command : change_name_);
    return error;
}

std::string pal_t::commit_changes() {
    return running_ ? running_->commit() : "";
}

std::string pal_t::end_change() {
    const bool is_kept = running_ && !options_.connect.empty();
    if (!is_kept) return "";
    std::string error = running_->end();
    running_.reset();
    return error;
}

void pal_t::keep_verdict(call_t &call, const nat64::result &got) {
    const bool is_done = got || got.code() == FWX_NAT64_MODEL_ERR_NOT_SAVED;
    const bool can_be_kept = call.change && running_ && running_->has_begun();
    if (can_be_kept && is_done) running_->carried_out(*call.change);
    call.outcome.changes = can_be_kept && is_done;
    call.change.reset();
}

void pal_t::keep_doubt(call_t &call) {
    const bool can_be_kept = call.change && running_ && running_->has_begun();
    if (can_be_kept) running_->doubt(*call.change);
}

fwx_nat64_stats_boot_t pal_t::server_boot() {
    return run_internal(ask_boot(*client_));
}

bool pal_t::server_holds_nothing() {
    bool is_known = false;
    const fwx_nat64_stats_sys_entry_t holds = run_internal(ask_totals(*client_, is_known));
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    return is_known && std::all_of(families, families + count, [&holds](const record_family_t &family) {
               return record_total_of(family, holds).value_or(0) == 0;
           });
}

void pal_t::settle_all() {
    for (auto &[id, call] : calls_) {
        const bool is_awaited = call.awaited && &call != starting_ && !options_.dry_run;
        if (is_awaited) settle(call);
    }
}
