#include "tools/nat64d/supervisor.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "config/notation.h"
#include "fwx_nat64/mapt.h"
#include "records/families.h"
#include "state/time_text.h"
#include "tools/nat64d/log.h"
#include "tools/nat64d/rule_learner.h"

namespace {

constexpr uint64_t look_ms = 1000;       /* between looks at a server that is there */
constexpr uint64_t absent_look_ms = 200; /* and at one that is not */
constexpr auto look_deadline = std::chrono::seconds(1);
constexpr auto command_deadline = std::chrono::seconds(5);
constexpr auto lock_patience = std::chrono::seconds(5);
constexpr uint64_t first_pause_ms = 1000; /* after a document in force was refused; twice as long each time */
constexpr uint64_t last_pause_ms = 60000;

double seconds_now() {
    return static_cast<double>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::system_clock::now().time_since_epoch())
                                   .count()) /
           1000;
}

std::string refusal_text(const apply_refusal_t &refusal) {
    const plan_command_t &command = refusal.command;
    return command_line(*command.family, command.op, command.record.bytes) + ": " + refusal.error.message();
}

}  // namespace

offer_t make_offer(document_t document) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char c : write_lines(document)) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
    char text[17];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return {std::move(document), text};
}

supervisor_t::supervisor_t(fwx_host_loop_t *loop, const std::string &server, std::string directory,
                           std::function<void()> changed)
    : loop_(loop), changed_(std::move(changed)), running_(std::move(directory), "nat64d"), bell_(loop) {
    status_.server = server;
    status_.reason = "nothing has been looked at yet";
    status_.since = time_text();
    status_.since_s = seconds_now();
}

supervisor_t::~supervisor_t() {
    run_.reset();
    client_.reset();
    fwx_mapt_plu_cleanup();
}

std::string supervisor_t::open() {
    std::string error = running_.open(lock_patience);
    if (!error.empty()) return error;
    for (const std::string &note : running_.notes()) {
        log_event(log_level_t::warning, "state", {{"reason", note}});
    }
    const document_t &held = running_.document();
    if (held.size() != 0) put_in_force(make_offer(held));
    const uint32_t code = fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, status_.server.c_str());
    return code == 0 ? "" : status_.server + ": " + xerr_strerror(code);
}

void supervisor_t::start() {
    run_.emplace(run());
    run_->start();
}

void supervisor_t::offer(offer_t offered) {
    status_.refused_reason.clear();
    const bool is_in_force = wanted_ && wanted_->hash == offered.hash && !is_editing_;
    offered_.reset();
    if (!is_in_force) offered_.emplace(std::move(offered));
    retry_at_ms_ = 0;
    bell_.ring();
}

void supervisor_t::refuse(const std::string &hash, const std::string &reason) {
    log_event(log_level_t::error, "refused", {{"document", hash}, {"reason", reason}});
    ++status_.refusals;
    status_.refused_document = hash;
    status_.refused_reason = reason;
    status_.refused_since = time_text();
}

void supervisor_t::replay() {
    must_replay_ = true;
    retry_at_ms_ = 0;
    bell_.ring();
}

nat64::handlers supervisor_t::handlers() {
    nat64::handlers on;
    on.lost = [this] {
        was_connected_ = false;
        meter_.channel_lost();
        bell_.ring();
    };
    return on;
}

nat64::task<> supervisor_t::run() {
    for (;;) {
        const std::vector<std::function<void()>> waiting = std::exchange(waiting_, {});
        co_await look();
        for (const auto &done : waiting) {
            done();
        }
        changed_();
        co_await bell_.wait(status_.is_server_up ? look_ms : absent_look_ms);
    }
}

nat64::task<> supervisor_t::look() {
    if (!client_ && !bind()) co_return;
    client_->deadline_set(look_deadline);
    const nat64::record_result<fwx_nat64_stats_boot_t> boot = co_await client_->stats_boot();
    if (!boot) {
        lose(boot.error.message());
        co_return;
    }
    take_boot(boot.record);
    client_->deadline_set(command_deadline);
    co_await keep(boot.record);
}

bool supervisor_t::bind() {
    std::error_code error;
    client_.emplace("n64d", loop_, handlers(), fwx::host::adapter, error);
    if (error) {
        client_.reset();
        lose(error.message());
        return false;
    }
    return true;
}

void supervisor_t::take_boot(const fwx_nat64_stats_boot_t &boot) {
    const bool is_known = status_.boot_id != 0;
    if (!was_connected_ && is_known) ++status_.reconnections;
    was_connected_ = true;
    if (is_known && status_.boot_id != boot.boot_id) {
        ++status_.restarts;
        retry_at_ms_ = 0;
        log_event(log_level_t::warning, "server_restarted");
    }
    if (!status_.is_server_up) log_event(log_level_t::info, "server_up", {{"server", status_.server}});
    status_.is_server_up = true;
    status_.boot_id = boot.boot_id;
}

nat64::task<> supervisor_t::keep(const fwx_nat64_stats_boot_t &boot) {
    if (fwx_host_clock_ms() < retry_at_ms_) co_return;
    const step_t step = running_.compare(boot);
    const bool is_settled = step == step_t::in_step && status_.is_in_step && !offered_ && !must_replay_;
    if (is_settled) co_return;
    const bool is_strange = step == step_t::changed && is_first_in_force_ && running_.document().size() == 0;
    const bool is_anew = must_replay_ || is_strange || step == step_t::restarted || step == step_t::unknown;
    const bool has_nothing_to_stay_with = offered_ && (!wanted_ || (is_anew && is_first_in_force_));
    if (has_nothing_to_stay_with) put_in_force(*std::exchange(offered_, std::nullopt));
    if (!wanted_) {
        fall_out("there is no document");
        co_return;
    }
    if (is_anew) {
        if (!co_await doubt_all()) co_return;
        if (!co_await bring(*wanted_, "replay")) co_return;
        must_replay_ = false;
        has_learnt_rules_ = true;
        ++status_.replays;
        prune_rules(rules_, wanted_->document);
        log_event(log_level_t::info, "replayed",
                  {{"document", wanted_->hash}, {"items", std::to_string(wanted_->document.size())}});
    } else {
        if (!has_learnt_rules_) co_await learn_rules();
        const bool is_drifted = step == step_t::changed && running_.doubtful() == 0;
        if (is_drifted) {
            fall_out("somebody else has changed the server; a replay puts that right");
            co_return;
        }
        if (!offered_ && !co_await bring(*wanted_, "apply")) co_return;
    }
    if (offered_) co_await edit();
}

/** Notes of each item that it may be there or not. A server that holds none of a kind needs no deletes. */
nat64::task<bool> supervisor_t::doubt_all() {
    const nat64::record_result<fwx_nat64_stats_sys_entry_t> totals = co_await client_->stats_totals();
    if (!totals) {
        lose(totals.error.message());
        co_return false;
    }
    const document_t held = running_.document();
    running_.begin("replay " + wanted_->hash);
    running_.restarted(true);
    const document_t *const documents[] = {&held, &wanted_->document};
    for (const document_t *document : documents) {
        for (size_t i = 0; i < document->size(); ++i) {
            const config_item_t item = document->item(i);
            const std::optional<uint64_t> total = record_total_of(*item.family, totals.record);
            if (!total || *total != 0) running_.doubt(*item.family, FWX_NAT64_OP_ADD, item.record);
        }
    }
    co_return true;
}

nat64::task<> supervisor_t::learn_rules() {
    const document_t held = running_.document();
    const size_t failed = co_await ::learn_rules(*client_, rules_, held);
    has_learnt_rules_ = true;
    log_event(failed == 0 ? log_level_t::info : log_level_t::error, "rules_learnt",
              {{"rules", std::to_string(rules_.installed())}, {"failed", std::to_string(failed)}});
}

/** Carries out what leads from what the server holds to the document; false: it does not hold it, and why is noted. */
nat64::task<bool> supervisor_t::bring(const offer_t &to, const char *what) {
    const document_t held = running_.document();
    const plan_t plan(held, to.document);
    trouble_.clear();
    if (plan.size() == 0 && running_.has_begun()) note_kept(running_.end());
    if (plan.size() != 0) {
        if (!running_.has_begun()) running_.begin(std::string(what) + ' ' + to.hash);
        const std::string error = running_.enter_plan(plan);
        if (!error.empty()) {
            note_kept(running_.end());
            fall_out(error);
            co_return false;
        }
        applier_t applier(*client_, rules_);
        const apply_result_t result = co_await applier.apply(
            plan, [this](const plan_command_t &command) { running_.carried_out(command); },
            [this] { running_.undo_begins(); });
        for (const plan_command_t &command : result.in_doubt) {
            running_.doubt(command);
        }
        note_kept(running_.end());
        note_result(result);
        if (!result) co_return false;
    }
    const nat64::record_result<fwx_nat64_stats_boot_t> boot = co_await client_->stats_boot();
    if (!boot) lose(boot.error.message());
    if (!boot || boot.record.boot_id != status_.boot_id)
        co_return false; /* another one now: the next look sees to it */
    running_.in_step_with(boot.record);
    note_kept(running_.commit());
    note_reached();
    co_return true;
}

nat64::task<> supervisor_t::edit() {
    offer_t offer = *std::exchange(offered_, std::nullopt);
    is_editing_ = true;
    const bool is_held = co_await bring(offer, "apply");
    is_editing_ = false;
    if (is_held) {
        put_in_force(std::move(offer));
        ++status_.edits;
        log_event(log_level_t::info, "applied",
                  {{"document", status_.document}, {"items", std::to_string(status_.items)}});
    } else if (!trouble_.empty()) {
        refuse(offer.hash, trouble_);
    } else if (!offered_) {
        offered_ = std::move(offer); /* it was not refused; the server is away */
    }
}

void supervisor_t::note_result(const apply_result_t &result) {
    if (result.table_code != 0) {
        log_event(log_level_t::error, "rule_table", {{"reason", xerr_strerror(result.table_code)}});
    }
    if (result.lost) {
        lose(result.lost.message());
        bell_.ring();
    } else if (result.refusal) {
        trouble_ = refusal_text(*result.refusal);
        if (result.is_taken_back && status_.is_in_step) return;
        fall_out(trouble_ + (result.left.empty() ? "" : "; " + std::to_string(result.left.size()) + " changes stand"));
        pause_ms_ = std::min(std::max(2 * pause_ms_, first_pause_ms), last_pause_ms);
        retry_at_ms_ = fwx_host_clock_ms() + pause_ms_;
    }
}

void supervisor_t::note_reached() {
    is_first_in_force_ = false;
    pause_ms_ = 0;
    if (status_.is_in_step) return;
    status_.is_in_step = true;
    status_.reason.clear();
    status_.since = time_text();
    status_.since_s = seconds_now();
    log_event(log_level_t::info, "in_step", {{"document", status_.document}});
}

void supervisor_t::put_in_force(offer_t offered) {
    wanted_ = std::move(offered);
    status_.document = wanted_->hash;
    status_.items = wanted_->document.size();
    status_.document_since = time_text();
}

void supervisor_t::fall_out(const std::string &reason) {
    const bool is_news = status_.is_in_step || status_.reason != reason;
    if (!is_news) return;
    if (status_.is_in_step) {
        status_.since = time_text();
        status_.since_s = seconds_now();
    }
    status_.is_in_step = false;
    status_.reason = reason;
    log_event(log_level_t::warning, "out_of_step", {{"document", status_.document}, {"reason", reason}});
}

void supervisor_t::lose(const std::string &reason) {
    status_.is_server_up = false;
    was_connected_ = false;
    fall_out("the server " + status_.server + " does not answer: " + reason);
}

void supervisor_t::note_kept(const std::string &error) {
    if (!error.empty()) log_event(log_level_t::error, "state", {{"reason", error}});
}
