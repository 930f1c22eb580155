/*
 * Implements supervisor.h. `run` looks at the server in a loop. Each look asks for the server's identity and its count
 * of changes. If both are as expected and nothing is to be done, the look ends there. Otherwise `keep` reads the server
 * if necessary, applies the document in force, and then the offered one.
 */
#include "tools/nat64d/supervisor.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "config/load.h"
#include "config/merge.h"
#include "config/notation.h"
#include "fwx_nat64/mapt.h"
#include "reconcile/background.h"
#include "state/directory.h"
#include "state/time_text.h"
#include "tools/nat64d/log.h"

namespace {

constexpr uint64_t look_ms = 1000;       /* between looks at a server that answers */
constexpr uint64_t absent_look_ms = 200; /* and at one that does not */
constexpr auto look_deadline = std::chrono::seconds(1);
constexpr auto command_deadline = std::chrono::seconds(5);
constexpr auto lock_patience = std::chrono::seconds(5);
constexpr uint64_t first_retry_ms = 1000; /* after a refusal of the document in force; doubles each time */
constexpr uint64_t last_retry_ms = 60000;

std::string text_of(const plan_command_t &command) {
    return command_line(*command.family, command.op, command.record.bytes);
}

std::string refusal_text(const apply_refusal_t &refusal) {
    return text_of(refusal.command) + ": " + refusal.error.message();
}

}  // namespace

offer_t make_offer(document_t document) {
    uint64_t hash = 0xcbf29ce484222325; /* FNV-1a */
    const auto take = [&hash](uint8_t byte) { hash = (hash ^ byte) * 0x100000001b3; };
    for (size_t i = 0; i < document.size(); ++i) {
        const config_item_t item = document.item(i);
        take(item.family->rank);
        take(item.is_nvi ? 1 : 0);
        std::for_each(item.record, item.record + item.family->record_size, take);
    }
    char text[17];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
    return {std::move(document), text};
}

supervisor_t::supervisor_t(fwx_host_loop_t *loop, const std::string &server, std::string directory,
                           std::function<void()> changed)
    : loop_(loop),
      changed_(std::move(changed)),
      lock_(lock_path_of(server), "nat64d"),
      kept_(std::move(directory)),
      bell_(loop) {
    status_.server = server;
    status_.reason = "the server has not been asked yet";
    status_.since = time_text();
    status_.since_s = seconds_now();
}

supervisor_t::~supervisor_t() {
    run_.reset();
    reconciler_.reset();
    client_.reset();
    fwx_mapt_plu_cleanup();
}

std::string supervisor_t::open() {
    std::string error = take_server_lock(lock_, status_.server, lock_patience);
    std::vector<std::string> faults;
    document_t in_force;
    if (error.empty()) error = kept_.open(in_force, faults);
    if (!error.empty()) return error;
    for (const std::string &fault : faults) {
        log_event(log_level_t::error, "state", {{"reason", fault}});
    }
    is_first_in_force_ = in_force.size() == 0;
    if (!is_first_in_force_) put_in_force(make_offer(std::move(in_force)));
    const uint32_t code = fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, status_.server.c_str());
    return code == 0 ? "" : status_.server + ": " + xerr_strerror(code);
}

void supervisor_t::start() {
    run_.emplace(run());
    run_->start();
}

void supervisor_t::offer(offer_t offered) {
    const bool was_refused = !std::exchange(status_.refused_reason, {}).empty();
    if (was_refused) {
        log_event(log_level_t::info, "refusal_over",
                  {{"document", offered.hash}, {"refused_since", status_.refused_since}});
    }
    const bool is_in_force = wanted_ && wanted_->hash == offered.hash && !is_editing_;
    offered_.reset();
    if (!is_in_force) offered_.emplace(std::move(offered));
    retry_at_ms_ = 0;
    bell_.ring();
}

void supervisor_t::refuse(const std::string &hash, const std::string &reason) {
    count_refusal(hash, reason);
    status_.refused_document = hash;
    status_.refused_reason = reason;
    status_.refused_since = time_text();
}

void supervisor_t::count_refusal(const std::string &hash, const std::string &reason) {
    log_event(log_level_t::error, "refused", {{"document", hash}, {"reason", reason}});
    ++status_.refusals;
}

void supervisor_t::replay() {
    must_reconcile_ = is_replay_ = true;
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
    reconciler_.emplace(loop_, *client_, rules_);
    return true;
}

void supervisor_t::take_boot(const fwx_nat64_stats_boot_t &boot) {
    const bool is_known = status_.boot_id != 0;
    if (!was_connected_ && is_known) ++status_.reconnections;
    was_connected_ = true;
    if (is_known && status_.boot_id != boot.boot_id) {
        ++status_.restarts;
        must_reconcile_ = is_replay_ = true;
        retry_at_ms_ = 0;
        log_event(log_level_t::warning, "server_restarted");
        note_out_of_sync("the server has restarted");
    }
    if (!status_.is_server_up) log_event(log_level_t::info, "server_up", {{"server", status_.server}});
    status_.is_server_up = true;
    status_.boot_id = boot.boot_id;
}

nat64::task<> supervisor_t::keep(const fwx_nat64_stats_boot_t &boot) {
    if (fwx_host_clock_ms() < retry_at_ms_) co_return;
    const bool is_as_known = reconciler_->is_as_known(boot);
    const bool is_settled = is_as_known && (status_.is_in_step || has_drifted_) && !offered_ && !must_reconcile_;
    if (is_settled) co_return;
    const bool must_read = !is_as_known || is_replay_;
    if (must_read && !co_await read_server()) co_return;
    const bool has_nothing_to_stay_with = offered_ && (!wanted_ || (must_reconcile_ && is_first_in_force_));
    if (has_nothing_to_stay_with) put_in_force(*std::exchange(offered_, std::nullopt));
    if (!wanted_) {
        note_out_of_sync("there is no document");
        co_return;
    }
    const bool must_look = must_reconcile_ || !offered_;
    const bool is_held = !must_look || co_await reconcile(*wanted_, must_reconcile_);
    if (is_held && offered_) co_await edit();
    const bool is_replaced = !is_held && !refusal_.empty() && offered_;
    if (!is_replaced) co_return;
    put_in_force(*std::exchange(offered_, std::nullopt)); /* because the server refuses the previous one */
    retry_at_ms_ = 0;
    bell_.ring();
}

nat64::task<bool> supervisor_t::read_server() {
    has_drifted_ = false;
    std::error_code error = co_await reconciler_->read();
    if (error == nat64::client_errc::unreadable && co_await reconciler_->assume_known(kept_.versions())) error = {};
    if (error == nat64::client_errc::unreadable) {
        note_out_of_sync("the server does not report what it holds; name it with natctl config apply --assume FILE");
    } else if (error) {
        lose(error.message());
    }
    if (error) co_return false;
    co_await follow_rules();
    co_return true;
}

/** Updates the library's rule table, if the server was read since it was updated last. */
nat64::task<> supervisor_t::follow_rules() {
    if (!reconciler_->has_new_rules()) co_return;
    const size_t failed = co_await reconciler_->follow_rules();
    log_event(failed == 0 ? log_level_t::info : log_level_t::error, "server_read",
              {{"items", std::to_string(reconciler_->held().size())},
               {"rules", std::to_string(rules_.installed())},
               {"failed", std::to_string(failed)}});
}

/** Sends the commands that lead from the server's state to the document. Without `may_change` it sends none, and only
 * reports the drift. Returns false if the server does not hold the document; the status then has the reason. */
nat64::task<bool> supervisor_t::reconcile(const offer_t &to, bool may_change) {
    const document_t before = reconciler_->held();
    std::vector<config_item_t> foreign;
    const document_t target =
        co_await in_background(loop_, [&] { return keep_foreign(kept_.owned(), to.document, before, foreign); });
    const plan_t plan = co_await in_background(loop_, [&] { return plan_t(before, target); });
    refusal_.clear();
    note_foreign(foreign);
    has_drifted_ = plan.size() != 0 && !may_change;
    if (has_drifted_) {
        note_out_of_sync("another client has changed the server; natctl daemon replay repairs that with " +
                         std::to_string(plan.size()) + (plan.size() == 1 ? " command: " : " commands, first: ") +
                         text_of(plan.command(0)));
        co_return false;
    }
    if (plan.size() != 0) {
        std::string error = co_await keep_version("as it was found", 0);
        if (error.empty()) error = co_await in_background(loop_, [&] { return kept_.note_coming(to.document); });
        if (!error.empty()) {
            note_out_of_sync(error);
            co_return false;
        }
        const reconcile_result_t result = co_await reconciler_->reconcile(plan, target);
        co_await follow_rules();
        if (result.is_in_sync) error = co_await keep_version("nat64d " + to.hash, result.applied.done);
        if (!error.empty()) log_event(log_level_t::error, "state", {{"reason", error}});
        const bool is_as_before = result.applied.is_rolled_back && is_editing_ && status_.is_in_step;
        if (is_as_before) co_await keep_in_force(*wanted_);
        note_result(result);
        if (!result.is_in_sync) co_return false;
    }
    co_await keep_in_force(to);
    if (!is_editing_ && std::exchange(is_replay_, false)) {
        ++status_.replays;
        log_event(log_level_t::info, "replayed", {{"document", to.hash}, {"commands", std::to_string(plan.size())}});
    }
    must_reconcile_ = false;
    note_in_sync();
    co_return true;
}

nat64::task<> supervisor_t::keep_in_force(const offer_t &offer) {
    if (kept_.in_force() == offer.hash) co_return;
    const std::string error =
        co_await in_background(loop_, [&] { return kept_.note_in_force(offer.document, offer.hash); });
    if (!error.empty()) log_event(log_level_t::error, "state", {{"reason", error}});
}

/** Adds the server's state as a version. Returns an error text, empty on success. */
nat64::task<std::string> supervisor_t::keep_version(std::string what, size_t commands) {
    version_t version;
    version.what = std::move(what);
    version.commands = commands;
    version.boot_id = reconciler_->boot_id();
    version.changes = reconciler_->changes();
    co_return co_await in_background(loop_, [&] { return kept_.add_version(std::move(version), reconciler_->held()); });
}

void supervisor_t::note_foreign(const std::vector<config_item_t> &foreign) {
    constexpr size_t most_listed = 10;
    status_.foreign.clear();
    for (size_t i = 0; i < std::min(foreign.size(), most_listed); ++i) {
        status_.foreign.push_back(command_line(*foreign[i].family, FWX_NAT64_OP_ADD, foreign[i].record));
    }
    if (foreign.size() == status_.foreign_count) return;
    status_.foreign_count = foreign.size();
    log_event(log_level_t::warning, "foreign_items", {{"items", std::to_string(foreign.size())}});
}

nat64::task<> supervisor_t::edit() {
    offer_t offer = *std::exchange(offered_, std::nullopt);
    is_editing_ = true;
    const bool is_held = co_await reconcile(offer, true);
    is_editing_ = false;
    if (is_held) {
        put_in_force(std::move(offer));
        ++status_.edits;
        log_event(log_level_t::info, "applied",
                  {{"document", status_.document}, {"items", std::to_string(status_.items)}});
    } else if (!refusal_.empty()) {
        /* During the edit a later document may have been offered or refused. The status is about the latest one. */
        const bool is_latest = !offered_ && status_.refused_reason.empty();
        if (is_latest) {
            refuse(offer.hash, refusal_);
        } else {
            count_refusal(offer.hash, refusal_);
        }
    } else if (!offered_) {
        offered_ = std::move(offer); /* try again: the server is away and refused nothing */
    }
}

void supervisor_t::note_result(const reconcile_result_t &result) {
    const apply_result_t &applied = result.applied;
    if (applied.table_code != 0) {
        log_event(log_level_t::error, "rule_table", {{"reason", xerr_strerror(applied.table_code)}});
    }
    if (applied.refusal) {
        refusal_ = refusal_text(*applied.refusal);
        if (!applied.is_rolled_back || !status_.is_in_step) {
            must_reconcile_ = true;
            pause_ms_ = std::min(std::max(2 * pause_ms_, first_retry_ms), last_retry_ms);
            note_out_of_sync(refusal_ + (result.standing.empty()
                                             ? ""
                                             : "; " + std::to_string(result.standing.size()) + " changes remain"));
            retry_at_ms_ = fwx_host_clock_ms() + pause_ms_;
        }
    }
    if (result.unknown) {
        must_reconcile_ = true;
        lose(result.unknown.message());
        bell_.ring();
    } else if (applied && !result.is_in_sync) {
        must_reconcile_ = true;
        note_out_of_sync("another client has changed the server meanwhile");
    }
}

void supervisor_t::note_in_sync() {
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

void supervisor_t::note_out_of_sync(const std::string &reason) {
    const bool is_new = status_.is_in_step || status_.reason != reason;
    if (!is_new) return;
    if (status_.is_in_step) {
        status_.since = time_text();
        status_.since_s = seconds_now();
    }
    status_.is_in_step = false;
    status_.reason = reason;
    log_event(log_level_t::warning, "out_of_step", {{"document", status_.document}, {"reason", reason}});
}

void supervisor_t::lose(const std::string &reason) {
    has_drifted_ = false; /* report the drift again when the server is back */
    status_.is_server_up = false;
    note_out_of_sync("the server " + status_.server + " does not answer: " + reason);
}
