#include "tools/natctl/config_run.h"

#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <ctime>

#include "config/notation.h"
#include "fwx_host/loop.h"
#include "reconcile/applier.h"
#include "state/directory.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/interrupt.h"

namespace {

std::string text_of(const plan_command_t &command) {
    return command_line(*command.family, command.op, command.record.bytes);
}

std::string count_text(size_t count) {
    return std::to_string(count) + (count == 1 ? " command" : " commands");
}

/** Makes the running document say what a server holds that it is compared with. `running` has begun a change. */
void bring_in_step(call_t &call, running_t &running, bool replays) {
    const bool is_alone = call.pal.options().connect.empty() || call.pal.options().dry_run;
    const fwx_nat64_stats_boot_t server = is_alone ? fwx_nat64_stats_boot_t{} : call.pal.server_boot();
    const step_t step = is_alone ? step_t::in_step : running.compare(server);
    if (step == step_t::restarted) call.pal.note("natctl: the server has started anew: it gets the whole document");
    /* What a crash has left is known to be in doubt. */
    if (step == step_t::changed && !replays && running.doubtful() == 0) {
        call.pal.note(
            "natctl: the server has been changed by others since: what they did is not known here; --replay sends the "
            "whole document");
    }
    const bool is_sent_anew = (replays && !is_alone) || step == step_t::restarted;
    if (is_sent_anew) running.restarted(call.pal.server_holds_nothing());
    if (!is_alone) running.in_step_with(server); /* so that the next one knows it, whatever comes of this */
}

void tell_plan(call_t &call, const plan_t &plan, bool as_text, bool as_data) {
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

/** The plan as data where somebody reads it by a program. */
bool wants_data(const call_t &call) {
    return call.pal.options().format != format_t::text;
}

/** Says what came of a plan that was not carried out as a whole. */
void tell_failure(call_t &call, const apply_result_t &result) {
    outcome_t &outcome = call.outcome;
    if (result.lost) {
        const bool is_gone = call.pal.has_lost_server();
        const bool is_late = result.lost == std::errc::timed_out;
        outcome.status = is_gone ? status_t::no_server : status_t::no_answer;
        outcome.error = std::string(is_late ? "no answer in time" : "the server went away") + ": " +
                        count_text(result.done) + " carried out, " + std::to_string(result.in_doubt.size()) +
                        " in doubt; the next config apply puts that right";
        return;
    }
    const auto code = static_cast<uint32_t>(result.refusal->error.value());
    std::string text = text_of(result.refusal->command) + ": refused by the server: " + code_text(code);
    if (result.left.empty()) text += "; all that was done is undone";
    for (const plan_command_t &command : result.left) {
        text += "; stands: " + text_of(command);
    }
    refuse(outcome, status_t::refused, code, text);
    outcome.data["changed"] = !result.left.empty();
    outcome.data["undone"] = result.is_taken_back;
}

/** Carries a plan out and keeps what comes of it. */
apply_result_t carry_out(call_t &call, running_t &running, const plan_t &plan) {
    constexpr size_t commands_a_group = 1024;
    size_t entered = 0;
    const auto on_done = [&](const plan_command_t &command) {
        running.carried_out(command);
        if (++entered % commands_a_group == 0) running.commit();
    };
    const auto on_undo = [&] {
        running.undo_begins();
        running.commit();
    };
    applier_t applier(call.pal.client(), call.pal.rules());
    apply_result_t result = call.pal.run(applier.apply(plan, on_done, on_undo));
    for (const plan_command_t &command : result.in_doubt) {
        running.doubt(command);
    }
    const bool is_embedded = call.pal.options().connect.empty();
    if (!result.lost && !is_embedded) running.in_step_with(call.pal.server_boot());
    return result;
}

void apply(call_t &call, const document_t &document, const config_wish_t &wish) {
    outcome_t &outcome = call.outcome;
    std::string error = call.pal.open_running();
    if (!error.empty()) return refuse(outcome, status_t::usage, 0, error);
    running_t &running = call.pal.running();
    error = running.end();
    if (!error.empty()) return refuse(outcome, status_t::usage, 0, error);
    running.begin(wish.what);
    bring_in_step(call, running, wish.replays);
    const document_t from = running.document();
    const plan_t plan(from, document);
    tell_plan(call, plan, wish.shows_diff && !wants_data(call), wants_data(call));
    outcome.data["undone"] = false;
    error = running.enter_plan(plan);
    if (!error.empty()) {
        running.end();
        return refuse(outcome, status_t::usage, 0, "nothing was sent: " + error);
    }
    const apply_result_t result = carry_out(call, running, plan);
    const bool waits = wish.confirm_s != 0 && plan.size() != 0 && result;
    error = running.end();
    const uint32_t number = running.versions().empty() ? 0 : running.versions().back().number;
    outcome.data["version"] = number;
    if (error.empty() && (waits || (result && running.unconfirmed().number != 0 && plan.size() != 0))) {
        running.set_unconfirmed(
            waits ? running_t::unconfirmed_t{number, std::time(nullptr) + static_cast<int64_t>(wish.confirm_s)}
                  : running_t::unconfirmed_t{});
        error = running.commit();
    }
    outcome.note = plan.size() == 0 ? "nothing to change" : count_text(plan.size());
    if (result.table_code != 0) {
        call.pal.note("natctl: the library's rule table is not as the server has it: " + code_text(result.table_code));
    }
    if (!result) return tell_failure(call, result);
    if (!error.empty()) refuse(outcome, status_t::usage, 0, "the server has it, and it is not kept: " + error);
}

/** Whether the version that waits has been confirmed. */
bool is_confirmed(call_t &call, uint32_t number) {
    std::optional<running_t> place;
    running_t *running = nullptr;
    const std::string error = call.pal.look_at_running(place, running);
    return error.empty() && running->unconfirmed().number != number;
}

/** While it lives, the loss of a terminal, which the change may have cut off, ends nothing. */
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

/** Waits for the confirmation of a version, and takes it back if none comes. */
void wait_for_confirmation(call_t &call, const config_wish_t &wish) {
    constexpr int look_every_ms = 100;
    const auto number = call.outcome.data["version"].get<uint32_t>();
    const std::string name = "version " + std::to_string(number);
    std::string error = call.pal.end_change();
    if (!error.empty()) return refuse(call.outcome, status_t::usage, 0, error);
    const outlives_terminal_t outlives_terminal;
    call.pal.note("natctl: " + name + " runs; it is undone in " + std::to_string(wish.confirm_s) +
                  " s unless somebody says natctl config confirm");
    const std::string path = state_directory_of(call.pal.options().connect) + "/journal";
    const interrupt_t interrupt(call.pal.loop());
    const uint64_t deadline = fwx_host_clock_ms() + wish.confirm_s * 1000;
    struct stat before {};
    while (fwx_host_clock_ms() < deadline && !interrupt.is_raised()) {
        struct stat now {};
        const bool is_news =
            stat(path.c_str(), &now) == 0 && (now.st_ino != before.st_ino || now.st_size != before.st_size);
        before = now;
        if (is_news && is_confirmed(call, number)) return;
        fwx_host_loop_run_once(call.pal.loop(), look_every_ms);
    }
    if (is_confirmed(call, number)) return;
    std::optional<running_t> place;
    running_t *running = nullptr;
    document_t older;
    error = call.pal.look_at_running(place, running);
    if (error.empty()) error = running->older(number - 1, older);
    place.reset();
    if (!error.empty()) return refuse(call.outcome, status_t::usage, 0, name + " cannot be undone: " + error);
    const json_t commands = call.outcome.data["commands"];
    apply(call, older, {name + " not confirmed", false, false, false, 0});
    if (call.outcome.status != status_t::ok) return;
    call.outcome.data = {
        {"changed", false}, {"commands", commands}, {"undone", true}, {"version", call.outcome.data["version"]}};
    refuse(call.outcome, status_t::refused, 0, name + " was not confirmed in time, and is undone");
}

}  // namespace

running_t *config_look(call_t &call, std::optional<running_t> &place) {
    running_t *running = nullptr;
    const std::string error = call.pal.look_at_running(place, running);
    if (error.empty()) return running;
    refuse(call.outcome, status_t::usage, 0, error);
    return nullptr;
}

size_t config_diff(call_t &call, const document_t &document, bool replays) {
    call.pal.settle_all();
    std::optional<running_t> place;
    running_t *running = config_look(call, place);
    if (running == nullptr) return 0;
    if (place) {
        place->begin("");
        bring_in_step(call, *place, replays);
    }
    const plan_t plan(running->document(), document);
    tell_plan(call, plan, !wants_data(call), wants_data(call));
    call.outcome.differs = plan.size() != 0;
    if (plan.size() == 0) call.outcome.note = "no difference";
    return plan.size();
}

void config_apply(call_t &call, const document_t &document, const config_wish_t &wish) {
    const bool is_check = wish.is_check || call.pal.options().dry_run;
    if (is_check) {
        const size_t count = config_diff(call, document, wish.replays);
        call.outcome.differs = false;
        if (!wish.shows_diff) call.outcome.text.clear();
        call.outcome.note = count == 0 ? "nothing to change" : count_text(count) + " to send";
        return;
    }
    const bool needs_other = wish.confirm_s != 0 && call.pal.options().connect.empty();
    if (needs_other) {
        return refuse(call.outcome, status_t::usage, 0, "--confirm: the embedded server ends with this natctl");
    }
    call.pal.settle_all();
    apply(call, document, wish);
    const bool is_done = call.outcome.status == status_t::ok;
    const bool waits = wish.confirm_s != 0 && is_done && call.outcome.data["changed"].get<bool>();
    if (waits) wait_for_confirmation(call, wish);
}
