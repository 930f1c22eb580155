/*
 * Implements config_run.h. `config_apply` reads the server, plans, sends the plan through the reconciler, and adds
 * versions for the states before and after. With --confirm it then releases the lock and waits. If no confirmation
 * comes, or if it cannot wait for one, it undoes what the change did, except for items that others have changed since.
 */
#include "tools/natctl/config_run.h"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>

#include "config/load.h"
#include "config/merge.h"
#include "config/notation.h"
#include "fwx_host/adapter.hpp"
#include "reconcile/reconciler.h"
#include "state/directory.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/document_input.h"
#include "tools/natctl/interrupt.h"

namespace {

constexpr size_t most_named = 10; /* commands listed in a message */

std::string text_of(const plan_command_t &command) {
    return command_line(*command.family, command.op, command.record.bytes);
}

/** The first lines of a list, each after a line feed, and the number of the others. */
std::string named(const std::vector<std::string> &lines) {
    std::string text;
    for (size_t i = 0; i < std::min(lines.size(), most_named); ++i) {
        text += "\n  " + lines[i];
    }
    if (lines.size() > most_named) text += "\n  and " + std::to_string(lines.size() - most_named) + " more";
    return text;
}

std::vector<std::string> texts_of(const std::vector<plan_command_t> &commands) {
    std::vector<std::string> texts;
    std::transform(commands.begin(), commands.end(), std::back_inserter(texts), text_of);
    return texts;
}

std::vector<std::string> texts_of(const plan_t &plan) {
    std::vector<std::string> texts;
    for (size_t i = 0; i < plan.size(); ++i) {
        texts.push_back(text_of(plan.command(i)));
    }
    return texts;
}

void report_plan(call_t &call, const plan_t &plan, bool as_text, bool as_data) {
    outcome_t &outcome = call.outcome;
    json_t commands = json_t::array();
    for (size_t i = 0; i < plan.size() && (as_text || as_data); ++i) {
        const plan_command_t command = plan.command(i);
        const std::string text = text_of(command);
        if (as_text) outcome.text += text + (command.ends_sessions ? "  # ends its sessions\n" : "\n");
        if (as_data) commands.push_back(text);
    }
    outcome.data = {{"changed", plan.size() != 0}, {"commands", std::move(commands)}};
}

/** True if the plan goes into `data`, for a format that programs read. */
bool wants_data(const call_t &call) {
    return call.pal.options().format != format_t::text;
}

/** Adds a version with the server's state. Returns an error text, empty on success. */
std::string keep_version(call_t &call, const std::string &what, size_t commands) {
    const reconciler_t &server = call.pal.reconciler();
    version_t version;
    version.what = what;
    version.commands = commands;
    version.boot_id = server.boot_id();
    version.changes = server.changes();
    return call.pal.versions().add_if_other(std::move(version), server.held());
}

uint32_t last_number(call_t &call) {
    const std::vector<version_t> &versions = call.pal.versions().all();
    return versions.empty() ? 0 : versions.back().number;
}

constexpr const char *second_interrupt_text =
    "natctl: ended at once: what the server has done stays, and the next config apply finds it\n";

/** Sends a plan; an interrupt stops it. */
reconcile_result_t carry_out(call_t &call, const plan_t &plan, const document_t &to, bool rolls_back,
                             const interrupt_t &interrupt) {
    reconciler_t &server = call.pal.reconciler();
    bool is_told = false;
    return call.pal.run_plan(server.reconcile(plan, to, rolls_back), [&] {
        if (!interrupt.is_raised() || std::exchange(is_told, true)) return;
        const bool is_undone = rolls_back && !server.is_sent();
        call.pal.note("natctl: interrupted after " + std::to_string(server.done()) + " of " +
                      count_text(plan.size(), "command") + ": waiting for the outstanding commands" +
                      (is_undone ? ", then undoing all" : ""));
        server.stop();
    });
}

/** Reports a plan that was not completed. */
void report_failure(call_t &call, const plan_t &plan, const reconcile_result_t &result) {
    outcome_t &outcome = call.outcome;
    const apply_result_t &applied = result.applied;
    const std::string how_far =
        std::to_string(applied.done) + " of " + count_text(plan.size(), "command") + " carried out";
    if (applied.lost) {
        const bool is_late = applied.lost == std::errc::timed_out;
        outcome.status = call.pal.has_lost_server() ? status_t::no_server : status_t::no_answer;
        outcome.error = std::string(is_late ? "no answer in time" : "the server went away") + ": " + how_far + ", " +
                        std::to_string(applied.unanswered) +
                        " without an answer; the next config apply finds what is there";
        return;
    }
    const auto code = applied.refusal ? static_cast<uint32_t>(applied.refusal->error.value()) : 0;
    std::string text = applied.refusal
                           ? text_of(applied.refusal->command) + ": refused by the server: " + code_text(code)
                           : "interrupted: " + how_far;
    if (result.standing.empty()) {
        text += "; the server is as before";
    } else {
        if (result.others != 0) text += "; others have changed the server meanwhile";
        text += "; these changes remain:" + named(texts_of(result.standing));
    }
    refuse(outcome, applied.refusal ? status_t::refused : status_t::usage, code, text);
    outcome.data["changed"] = !result.standing.empty();
    outcome.data["undone"] = applied.is_rolled_back;
}

/** Reports changes by others during a plan that was completed. */
void report_other_changes(call_t &call, const document_t &document, const reconcile_result_t &result) {
    if (result.unknown) {
        call.outcome.status = call.pal.has_lost_server() ? status_t::no_server : status_t::no_answer;
        call.outcome.error =
            "all commands were carried out; whether others have changed the server meanwhile is not "
            "known: " +
            result.unknown.message();
        return;
    }
    if (result.others == 0 && result.is_in_sync) return;
    const std::string changed = "others have changed the server meanwhile";
    if (result.is_in_sync) {
        call.pal.note("natctl: " + changed + " (changes: " + std::to_string(result.others) +
                      "), and it holds the document all the same");
        return;
    }
    const plan_t plan(call.pal.reconciler().held(), document);
    const std::vector<std::string> difference = texts_of(plan);
    refuse(call.outcome, status_t::refused, 0,
           changed + ", and it does not hold the document; missing commands:" + named(difference));
    call.outcome.data["difference"] = difference;
}

/** True: the server has carried out all commands of a plan. The outcome may be a failure all the same. */
bool apply(call_t &call, const document_t &document, const config_options_t &options, const interrupt_t &interrupt) {
    outcome_t &outcome = call.outcome;
    reconciler_t &server = call.pal.reconciler();
    const document_t from = server.held();
    const plan_t plan(from, document);
    report_plan(call, plan, options.shows_diff && !wants_data(call), wants_data(call));
    outcome.data["undone"] = false;
    outcome.note = plan.size() == 0 ? "nothing to change" : count_text(plan.size(), "command");
    std::string error = plan.size() == 0 ? "" : keep_version(call, "as it was found", 0);
    if (!error.empty() && !options.undoes) {
        refuse(outcome, status_t::usage, 0, "nothing was sent: " + error);
        return false;
    }
    if (plan.size() == 0) {
        outcome.data["version"] = last_number(call);
        return false;
    }
    const reconcile_result_t result = carry_out(call, plan, document, !options.keeps_partial, interrupt);
    const bool is_changed = server.is_known() && result.applied.done != 0 && !result.applied.is_rolled_back;
    if (is_changed) error = keep_version(call, options.what, result.applied.done);
    outcome.data["version"] = last_number(call);
    const bool waits = options.confirm_s != 0 && result.is_in_sync;
    const bool must_tell = waits || (result.is_in_sync && call.pal.versions().unconfirmed() != 0);
    if (error.empty() && must_tell) error = call.pal.versions().set_unconfirmed(waits ? last_number(call) : 0);
    if (result.applied.table_code != 0) {
        call.pal.note("natctl: the library's rule table is not as the server has it: " +
                      code_text(result.applied.table_code));
    }
    outcome.changes = is_changed;
    if (!result.applied) {
        report_failure(call, plan, result);
        return false;
    }
    report_other_changes(call, document, result);
    refuse_unkept(outcome, error);
    return true;
}

/** True if the version no longer waits for a confirmation. */
bool is_confirmed(call_t &call, uint32_t number) {
    const std::optional<uint32_t> waiting = versions_t(state_directory_of(call.pal.options().connect)).unconfirmed();
    return waiting && waiting != number;
}

/** Ignores the loss of the terminal during its lifetime, because the change itself may have cut the connection. */
class outlives_terminal_t {
public:
    outlives_terminal_t() = default;
    ~outlives_terminal_t() {
        std::signal(SIGHUP, hangup_);
        std::signal(SIGPIPE, pipe_);
    }
    outlives_terminal_t(const outlives_terminal_t &) = delete;
    outlives_terminal_t &operator=(const outlives_terminal_t &) = delete;

private:
    void (*hangup_)(int) = std::signal(SIGHUP, SIG_IGN);
    void (*pipe_)(int) = std::signal(SIGPIPE, SIG_IGN);
};

/** Waits for the confirmation of the version. False: none came in time or before an interrupt. */
bool wait_for_confirmation(call_t &call, uint32_t number, uint64_t seconds, const interrupt_t &interrupt) {
    constexpr int look_every_ms = 100;
    const uint64_t deadline = fwx_host_clock_ms() + seconds * 1000;
    while (fwx_host_clock_ms() < deadline && !interrupt.is_raised()) {
        if (is_confirmed(call, number)) return true;
        fwx_host_loop_run_once(call.pal.loop(), look_every_ms);
    }
    return is_confirmed(call, number);
}

struct undo_t {
    uint32_t number;  /* of the version that waits for its confirmation; 0: none does */
    std::string what; /* the entry in the log */
    std::string why;  /* begins the outcome */
    status_t status;  /* of the outcome */
};

/** Undoes the change from `before` to `after`, except for items that others have changed since. */
void roll_back(call_t &call, const document_t &before, const document_t &after, const undo_t &undo) {
    const std::string error = call.pal.begin_change();
    if (!error.empty()) return call.pal.refuse_change(call, undo.why + " cannot be undone: " + error);
    /* The previous holder of the lock may have confirmed it at the last moment. */
    if (undo.number != 0 && is_confirmed(call, undo.number)) return;
    const std::string &why = undo.why;
    const auto tell_failure = [&](bool is_undone) {
        call.outcome.error = why + (is_undone ? " is undone: " : " could not be undone: ") + call.outcome.error;
        call.outcome.data["changed"] = !is_undone;
        call.outcome.data["undone"] = is_undone;
    };
    if (!config_read(call)) return tell_failure(false);
    std::vector<config_item_t> kept;
    const document_t now = call.pal.reconciler().held();
    const document_t target = roll_back(before, after, now, kept);
    const json_t commands = call.outcome.data["commands"];
    config_options_t options;
    options.what = undo.what;
    options.undoes = true;
    refuse(call.outcome, status_t::ok, 0, "");
    const interrupt_t interrupt(call.pal.loop(), second_interrupt_text);
    apply(call, target, options, interrupt);
    if (call.outcome.status != status_t::ok) {
        const reconciler_t &server = call.pal.reconciler();
        return tell_failure(server.is_known() && plan_t(server.held(), target).size() == 0);
    }
    const std::string kept_error = call.pal.versions().set_unconfirmed(0); /* also if there was nothing to undo */
    if (!kept_error.empty()) call.pal.note("natctl: " + kept_error);
    std::vector<std::string> lines;
    std::transform(kept.begin(), kept.end(), std::back_inserter(lines),
                   [](const config_item_t &item) { return command_line(*item.family, FWX_NAT64_OP_ADD, item.record); });
    call.outcome.data = {{"changed", !lines.empty()},
                         {"commands", commands},
                         {"undone", true},
                         {"version", call.outcome.data["version"]}};
    refuse(call.outcome, undo.status, 0,
           why + " is undone" +
               (lines.empty() ? "" : ", but for what others have changed since; it stays:" + named(lines)));
}

/** Waits for the confirmation of a change, and undoes it if none comes. */
void confirm_or_roll_back(call_t &call, const document_t &before, const document_t &after, uint64_t seconds,
                          const interrupt_t &interrupt) {
    const auto number = call.outcome.data["version"].get<uint32_t>();
    const std::string error = call.pal.end_change();
    if (!error.empty()) return refuse(call.outcome, status_t::usage, 0, error);
    const std::string name = "version " + std::to_string(number);
    call.pal.note("natctl: " + name + " is in force; it is undone in " + std::to_string(seconds) +
                  " s unless you run natctl --connect " + call.pal.options().connect + " config confirm");
    if (wait_for_confirmation(call, number, seconds, interrupt)) return;
    const bool is_interrupted = interrupt.is_raised();
    roll_back(call, before, after,
              {number, name + " not confirmed",
               is_interrupted ? "interrupted: " + name : name + " was not confirmed in time, and",
               is_interrupted ? status_t::usage : status_t::refused});
}

std::string totals_text(const std::optional<fwx_nat64_stats_sys_entry_t> &totals) {
    if (!totals) return "";
    return " (pools: " + std::to_string(totals->pools) + ", rules: " + std::to_string(totals->rules) +
           ", static mappings: " + std::to_string(totals->static_mappings) +
           ", interfaces: " + std::to_string(totals->interfaces) + ")";
}

/** Takes the state that the user states with --assume, for a server that does not report it. */
bool assume(call_t &call, const config_options_t &options) {
    document_t held;
    problems_t problems;
    const bool is_read = options.assumes_empty || read_document(call, options.assumed_file, held, problems);
    if (is_read) call.pal.reconciler().assume(std::move(held), call.pal.server_boot());
    return is_read;
}

/** Refuses dry runs, because they send nothing and so cannot read the server's state. */
bool is_refused_dry(call_t &call) {
    if (!call.pal.options().dry_run) return false;
    refuse(call.outcome, status_t::usage, 0,
           "a dry run asks no server what it holds; --check does, and changes nothing");
    return true;
}

}  // namespace

bool config_read(call_t &call, const config_options_t &options) {
    reconciler_t &server = call.pal.reconciler();
    if (is_refused_dry(call)) return false;
    const bool assumes = options.assumes_empty || !options.assumed_file.empty();
    const std::error_code error = call.pal.run_internal(server.read());
    if (!error && !assumes) return true;
    if (!error) {
        refuse(call.outcome, status_t::usage, 0, "--assume: this server reports what it holds itself");
        return false;
    }
    const bool is_unreadable = error == nat64::client_errc::unreadable;
    if (is_unreadable && assumes) return assume(call, options);
    std::optional<versions_t> place;
    versions_t *versions = nullptr;
    const bool may_know = is_unreadable && call.pal.open_versions(place, versions).empty();
    if (may_know && call.pal.run_internal(server.assume_known(*versions))) return true;
    std::string text = error.message();
    if (is_unreadable) {
        text +=
            totals_text(call.pal.server_totals()) +
            "; nothing was sent. Say what it holds with --assume FILE, or with --assume-empty that it holds nothing";
    }
    call.pal.refuse_unread(call, error, text);
    return false;
}

bool config_version(call_t &call, const versions_t &versions, uint32_t number, document_t &document) {
    std::string text;
    const std::string error = versions.read(number, text);
    if (!error.empty()) {
        refuse(call.outcome, status_t::usage, 0, error);
        return false;
    }
    problems_t problems;
    document = load_written(text, problems);
    return judge(call, "version " + std::to_string(number), problems);
}

size_t config_diff(call_t &call, const document_t &document, const config_options_t &options) {
    call.pal.settle_all();
    if (!config_read(call, options)) return 0;
    const plan_t plan(call.pal.reconciler().held(), document);
    report_plan(call, plan, !wants_data(call), wants_data(call));
    call.outcome.differs = plan.size() != 0;
    if (plan.size() == 0) call.outcome.note = "no difference";
    return plan.size();
}

void config_apply(call_t &call, const document_t &document, const config_options_t &options) {
    if (options.is_check) {
        const size_t count = config_diff(call, document, options);
        if (call.outcome.status != status_t::ok) return;
        call.outcome.differs = false;
        if (!options.shows_diff) call.outcome.text.clear();
        call.outcome.note = count == 0 ? "nothing to change" : count_text(count, "command") + " to send";
        return;
    }
    const bool needs_other = options.confirm_s != 0 && call.pal.options().connect.empty();
    if (needs_other) {
        return refuse(call.outcome, status_t::usage, 0, "--confirm: the embedded server ends with this natctl");
    }
    if (is_refused_dry(call)) return;
    call.pal.settle_all();
    const auto interrupt =
        std::make_shared<interrupt_t>(call.pal.loop(), "natctl: interrupted: nothing was sent\n", true);
    call.outcome.until_told = interrupt;
    std::string error = call.pal.begin_change();
    if (!error.empty()) return call.pal.refuse_change(call, error);
    error = call.pal.end_singles();
    if (!error.empty()) return refuse(call.outcome, status_t::usage, 0, error);
    if (!config_read(call, options)) return;
    if (interrupt->is_raised()) return refuse(call.outcome, status_t::usage, 0, "interrupted: nothing was sent");
    interrupt->hold(second_interrupt_text);
    const document_t before = call.pal.reconciler().held();
    std::optional<outlives_terminal_t> outlives_terminal;
    if (options.confirm_s != 0) outlives_terminal.emplace();
    const bool is_done = apply(call, document, options, *interrupt);
    if (!is_done || options.confirm_s == 0) return;
    if (call.outcome.status == status_t::ok) {
        return confirm_or_roll_back(call, before, document, options.confirm_s, *interrupt);
    }
    roll_back(call, before, document,
              {0, options.what + " undone", call.outcome.error + "; it cannot wait for a confirmation, and",
               call.outcome.status});
}
