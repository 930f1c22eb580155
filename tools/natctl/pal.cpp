/*
 * The binding and the life of a call: start, result, deadline, loss of the channel. The library calls back from the
 * loop, which runs only within the functions of pal_t.
 */
#include "tools/natctl/pal.h"

#include <algorithm>
#include <cerrno>

#include "fwx_host/adapter.hpp"
#include "fwx_host/errors.h"
#include "reconcile/no_server.h"
#include "reconcile/reconciler.h"
#include "tools/diagnostic.h"
#include "tools/natctl/connection.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/server_place.h"
#include "tools/seed.h"

namespace {

void cgm_returned(void *arg, uint32_t, void *ctx, uint32_t result) {
    static_cast<pal_t *>(arg)->answered(reinterpret_cast<uintptr_t>(ctx), {nat64::nat64_error(result)});
}

/** Shows the library's diagnostics only with --debug-level, because for its unconditional errors the answer of the
 * command says enough. */
void debug_written(void *arg, fwx_host_debug_channel_t, uint32_t, const char *text) {
    auto *pal = static_cast<pal_t *>(arg);
    if (pal->options().debug_level != 0) pal->note(diagnostic_line(text));
}

server_kind_t server_kind(const options_t &options) {
    if (options.dry_run) return server_kind_t::sink;
    return options.connect.empty() ? server_kind_t::model : server_kind_t::remote;
}

std::string silence_text(const options_t &options) {
    return "no answer within " + std::to_string(options.timeout_ms) + " ms";
}

void fail(outcome_t &outcome, const char *by, uint32_t code) {
    outcome.code = code;
    if (is_no_server(code)) {
        outcome.status = status_t::no_server;
        outcome.error = "no server has it: " + code_text(code);
        return;
    }
    outcome.status = code == FWX_HOST_ERR_NO_ANSWER ? status_t::no_answer : status_t::refused;
    const bool is_done = code == FWX_NAT64_MODEL_ERR_NOT_SAVED;
    outcome.error = (is_done ? "" : std::string("refused by the ") + by + ": ") + code_text(code);
}

}  // namespace

pal_t::pal_t(const options_t &options, note_fn_t note)
    : options_(options), note_(std::move(note)), loop_(fwx_host_loop_create(), fwx_host_loop_destroy) {
    fwx_host_debug_level_set(FWX_NAT64_DEBUG_MODULE, options.debug_level);
    fwx_host_tap_set(tapped, this);
    fwx_host_cgm_observe(cgm_returned, this);
    fwx_host_debug_sink_set(debug_written, this);
}

pal_t::~pal_t() {
    for (const auto &[id, call] : calls_) {
        bool is_lost = call.awaited && !call.answered && !options_.dry_run;
        if (is_lost) note_(outcome_label(call.outcome) + ": still outstanding when the binding ended");
    }
    const std::string not_kept = end_change();
    if (!not_kept.empty()) note_("natctl: " + not_kept);
    calls_.clear(); /* their callbacks then find nothing */
    const bool was_bound = client_ && client_->is_open();
    reconciler_.reset();
    client_.reset();
    if (was_bound) fwx_mapt_plu_cleanup();
    fwx_host_cgm_observe(nullptr, nullptr);
    fwx_host_tap_set(nullptr, nullptr);
    fwx_host_debug_sink_set(nullptr, nullptr);
    fwx_host_debug_level_set(FWX_NAT64_DEBUG_MODULE, 0);
}

outcome_t pal_t::bind() {
    outcome_t outcome;
    outcome.command = "bind";
    if (loop_ == nullptr) {
        fail(outcome, "system", EMFILE);
        return outcome;
    }
    seed_random();
    fwx_host_sync_timeout_set_ms(options_.timeout_ms);
    connection_ = std::make_unique<connection_t>(loop_.get(), server_kind(options_), options_.connect);
    uint32_t code = connection_->result();
    if (code == 0) {
        std::error_code error;
        client_ = std::make_unique<nat64::client>("nctl", loop_.get(), handlers(), fwx::host::adapter, error);
        code = static_cast<uint32_t>(error.value());
    }
    if (code != 0) fail(outcome, "library", code);
    if (outcome.status == status_t::no_answer) outcome.error = silence_text(options_);
    const bool is_unreachable = outcome.status == status_t::no_server && server_kind(options_) == server_kind_t::remote;
    if (is_unreachable) outcome.error = server_absence(options_.connect);
    /* So that the server has the initial commands before the user's first command. */
    fwx_host_loop_run_until_idle(loop_.get());
    return outcome;
}

fwx_nat64_model_t *pal_t::model() const {
    return connection_->model();
}

void pal_t::deadline_set(uint32_t timeout_ms) {
    client_->deadline_set(std::chrono::milliseconds(timeout_ms));
}

uint32_t pal_t::configure(const call_t &call, std::function<uint32_t(void *pal_ctx)> send_it) {
    return client_->configure(std::move(send_it), [this, id = call.id](const nat64::result &got) { answered(id, got); })
        .code();
}

std::optional<outcome_t> pal_t::without_server(const command_t &command) const {
    const bool is_concerned = command.is_embedded_only && server_kind(options_) != server_kind_t::model;
    if (!is_concerned) return std::nullopt;
    outcome_t outcome;
    outcome.command = command.name;
    if (options_.connect.empty()) {
        outcome.messages = json_t::array();
        return outcome;
    }
    outcome.status = status_t::usage;
    outcome.error =
        "only the embedded server can do that, not one in another process (--connect " + options_.connect + ")";
    return outcome;
}

pal_t::call_id_t pal_t::start(const command_t &command, uint32_t line) {
    call_id_t id = ++last_id_;
    uint64_t deadline = fwx_host_clock_ms() + options_.timeout_ms;
    call_t &call = calls_.emplace(id, call_t{*this, id, true, {}, deadline}).first->second;
    call.outcome.command = command.name;
    if (std::optional<outcome_t> outcome = without_server(command)) {
        call.outcome = *std::move(outcome);
        call.awaited = false;
    }
    call.outcome.line = line;
    uint32_t code = 0;
    if (call.awaited) {
        starting_ = &call;
        code = command.start(call);
        starting_ = nullptr;
    }
    if (code != 0) fail(call.outcome, "library", code);
    call.answered = call.answered || code != 0 || !call.awaited;
    return id;
}

outcome_t pal_t::finish(call_id_t id) {
    call_t &call = calls_.at(id);
    /* If the answer came while another command was settled, the loop has run already. */
    const bool has_answer = call.awaited && call.answered && call.outcome.status == status_t::ok;
    if (!options_.dry_run) settle(call);
    if (!has_answer) fwx_host_loop_run_until_idle(loop_.get());
    outcome_t outcome = call.answered ? std::move(call.outcome) : call.outcome;
    const bool is_final = call.answered || call.cut_off || options_.dry_run;
    if (!call.answered && !options_.dry_run) {
        outcome.status = call.cut_off && has_lost_server() ? status_t::no_server : status_t::no_answer;
        outcome.error = call.cut_off ? "the server went away before it answered" : silence_text(options_);
    }
    call.given_up = !is_final;
    if (call.rule) end_rule(call);
    if (is_final) forget(id);
    return outcome;
}

void pal_t::settle(call_t &call) {
    while (!call.answered && !call.cut_off) {
        const uint64_t now = fwx_host_clock_ms();
        const bool is_late = now >= call.deadline;
        if (is_late) {
            fwx_host_loop_run_until_idle(loop_.get()); /* takes answers that came in time but were not read yet */
        } else {
            fwx_host_loop_run_once(loop_.get(), static_cast<int>(call.deadline - now));
        }
        if (is_late) return;
    }
}

/** Marks all outstanding calls, because answers to commands of a lost channel do not come. */
void pal_t::channel_lost() {
    for (auto &[id, call] : calls_) {
        const bool is_unanswered = call.awaited && !call.answered && starting_ != &call;
        call.cut_off = call.cut_off || is_unanswered;
    }
}

bool pal_t::is_connected() const {
    const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    return info == nullptr || info->connected != 0;
}

bool pal_t::has_lost_server() const {
    return server_kind(options_) == server_kind_t::remote && !is_connected() && !server_is_there(options_.connect);
}

bool pal_t::has_verdict(call_id_t id) const {
    const call_t &call = calls_.at(id);
    return call.answered && call.outcome.status != status_t::no_server;
}

bool pal_t::abandon(call_id_t id) {
    const bool is_open = !calls_.at(id).answered;
    forget(id);
    return is_open;
}

void pal_t::forget(call_id_t id) {
    const call_t &call = calls_.at(id);
    const bool is_pending = call.rule && !call.answered && call.rule->op == FWX_NAT64_OP_ADD && !options_.dry_run;
    if (is_pending) note_repair(call, rules_.failed(*call.rule));
    calls_.erase(id);
}

size_t pal_t::outstanding() const {
    auto is_waiting = [](const auto &entry) { return entry.second.awaited && !entry.second.answered; };
    return static_cast<size_t>(std::count_if(calls_.begin(), calls_.end(), is_waiting));
}

call_t *pal_t::find(call_id_t id) {
    auto found = calls_.find(id);
    return found == calls_.end() ? nullptr : &found->second;
}

void pal_t::answered(call_id_t id, const nat64::result &got) {
    call_t *call = find(id);
    if (call == nullptr || got.error == nat64::client_errc::connection_lost) return;
    count_single(*call, got);
    const bool goes_on = got && call->list && call->list->then != nullptr && !call->given_up;
    const uint32_t code = goes_on ? start_next(*call) : 0;
    if (goes_on && code == 0) return;
    end(*call, goes_on ? nat64::nat64_error(code) : got.error, goes_on ? "library" : "server");
}

void pal_t::end(call_t &call, const std::error_code &error, const char *by) {
    call.answered = true;
    if (error.category() == nat64::client_category()) {
        call.outcome.status = status_t::refused;
        call.outcome.error = error.message();
    } else if (error) {
        fail(call.outcome, by, static_cast<uint32_t>(error.value()));
    }
    if (!call.given_up) return;
    note_(outcome_label(call.outcome) + ": answered too late" + (error ? ": " + call.outcome.error : ""));
    calls_.erase(call.id);
}

void pal_t::tapped(void *arg, fwx_host_direction_t direction, const void *msg, size_t size) {
    auto *pal = static_cast<pal_t *>(arg);
    const bool is_question = size >= sizeof(fwx_nat64_sync_hdr_t) &&
                             (wire_read(msg, sizeof(uint16_t)) & FWX_NAT64_MSG_NUMBER_MASK) == FWX_NAT64_MSG_STATS_SYS;
    const bool is_own = pal->is_internal_ || (pal->is_reconciling_ && is_question);
    if (pal->options_.trace && !is_own) pal->note_(message_line(direction, msg, size));
    bool is_collected = pal->options_.dry_run && pal->starting_ != nullptr && direction == FWX_HOST_SENT;
    if (is_collected) pal->starting_->outcome.messages.push_back(message_json(direction, msg, size));
    const bool is_unsolicited = direction == FWX_HOST_RECEIVED && size >= sizeof(fwx_nat64_sync_hdr_t) &&
                                wire_read(msg, sizeof(uint16_t)) == (FWX_NAT64_MSG_ASYNC | FWX_NAT64_MSG_UNSOL_SETUP);
    if (is_unsolicited && pal->unsolicited_) pal->unsolicited_(message_json(direction, msg, size));
}

void pal_t::notified(const std::string &text) {
    if (!unsolicited_) note_("notification: " + text);
}

nat64::handlers pal_t::handlers() {
    nat64::handlers on;
    on.record = [this](uint32_t op, std::span<const uint32_t, 3> words) {
        notified(std::string("record ") + record_operation_name(op == FWX_NAT64_OP_ADD ? op : FWX_NAT64_OP_DEL) +
                 " word1=" + std::to_string(words[0]) + " word2=" + std::to_string(words[1]) +
                 " word3=" + std::to_string(words[2]));
    };
    on.event = [this] { notified("event"); };
    on.mapping = [this](const fwx_nat64_stats_mapping_entry_t &mapping) {
        notified("mapping id=" + std::to_string(mapping.id) + " active=" + std::to_string(mapping.active) +
                 " sessions=" + std::to_string(mapping.sessions));
    };
    on.lost = [this] { channel_lost(); };
    return on;
}
