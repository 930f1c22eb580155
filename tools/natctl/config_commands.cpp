/* Configuration documents: checked, compared with what the server runs, applied; and the running one. */
#include <ctime>

#include "config/notation.h"
#include "tools/natctl/config_run.h"
#include "tools/natctl/document_input.h"
#include "tools/natctl/grammar.h"

namespace {

struct request_t {
    std::string file;
    bool is_check = false;
    bool shows_diff = false;
    bool replays = false;
    uint64_t confirm_s = 0;
    uint32_t version = UINT32_MAX; /* of a rollback; UINT32_MAX: the one before the last */
    bool is_json = false;
};

uint32_t check(call_t &call, const request_t &request) {
    document_t document;
    problems_t problems;
    const bool is_good = read_document(call, request.file, document, problems);
    call.outcome.data = {{"items", document.size()}, {"problems", problems_json(problems)}};
    if (is_good) call.outcome.note = std::to_string(document.size()) + " items";
    return 0;
}

uint32_t diff(call_t &call, const request_t &request) {
    document_t document;
    problems_t problems;
    if (read_document(call, request.file, document, problems)) config_diff(call, document, request.replays);
    return 0;
}

uint32_t apply(call_t &call, const request_t &request) {
    document_t document;
    problems_t problems;
    if (!read_document(call, request.file, document, problems)) return 0;
    const config_wish_t wish = {"config apply " + request.file, request.is_check, request.shows_diff, request.replays,
                                request.confirm_s};
    config_apply(call, document, wish);
    return 0;
}

uint32_t roll_back(call_t &call, const request_t &request) {
    std::optional<running_t> place;
    running_t *running = nullptr;
    call.pal.settle_all();
    std::string error = call.pal.look_at_running(place, running);
    const bool is_own = error.empty() && !place;
    if (is_own) error = running->end(); /* what commands have changed so far is a version */
    document_t document;
    uint32_t version = request.version;
    if (error.empty() && version == UINT32_MAX) {
        const std::vector<version_t> &versions = running->versions();
        version = versions.empty() ? 0 : versions.back().number - 1;
    }
    if (error.empty()) error = running->older(version, document);
    place.reset();
    if (!error.empty()) {
        refuse(call.outcome, status_t::usage, 0, error);
        return 0;
    }
    const config_wish_t wish = {"config rollback " + std::to_string(version), request.is_check, request.shows_diff,
                                request.replays, request.confirm_s};
    config_apply(call, document, wish);
    return 0;
}

uint32_t show(call_t &call, const request_t &request) {
    std::optional<running_t> place;
    running_t *running = config_look(call, place);
    if (running == nullptr) return 0;
    call.pal.settle_all();
    const document_t &document = running->document();
    const size_t doubtful = running->doubtful();
    if (doubtful != 0) {
        call.pal.note("natctl: " + std::to_string(doubtful) + " items are in doubt: the next config apply sends them");
    }
    const bool is_json = request.is_json || call.pal.options().format != format_t::text;
    call.outcome.text = is_json ? write_json(document) : write_lines(document);
    if (call.pal.options().format != format_t::text) call.outcome.data = json_t::parse(call.outcome.text);
    return 0;
}

std::string time_text(int64_t time) {
    const std::time_t seconds = time;
    std::tm parts{};
    char text[sizeof "2026-01-01T00:00:00Z"];
    const bool is_time = gmtime_r(&seconds, &parts) != nullptr;
    return is_time && std::strftime(text, sizeof text, "%FT%TZ", &parts) != 0 ? text : std::to_string(time);
}

uint32_t show_log(call_t &call) {
    std::optional<running_t> place;
    running_t *running = config_look(call, place);
    if (running == nullptr) return 0;
    call.pal.settle_all();
    if (call.pal.options().connect.empty()) running->end();
    call.outcome.data = json_t::array();
    for (const version_t &version : running->versions()) {
        const bool is_confirmed = running->unconfirmed().number != version.number;
        call.outcome.data.push_back({{"version", version.number},
                                     {"time", time_text(version.time)},
                                     {"who", version.who},
                                     {"commands", version.commands},
                                     {"confirmed", is_confirmed},
                                     {"what", version.what}});
    }
    return 0;
}

uint32_t confirm(call_t &call) {
    std::string error = call.pal.open_running();
    if (!error.empty()) {
        refuse(call.outcome, status_t::usage, 0, error);
        return 0;
    }
    running_t &running = call.pal.running();
    const uint32_t number = running.unconfirmed().number;
    if (number == 0) {
        refuse(call.outcome, status_t::refused, 0, "no version waits for it");
        return 0;
    }
    running.set_unconfirmed({});
    error = running.commit();
    if (!error.empty()) refuse(call.outcome, status_t::usage, 0, error);
    call.outcome.note = "version " + std::to_string(number) + " stays";
    call.outcome.data = {{"version", number}};
    return 0;
}

void file_field(command_spec_t &app, const std::shared_ptr<request_t> &request) {
    word_field(app, "file", request->file, "the document, lines or JSON; - for standard input", "FILE").required();
}

void apply_fields(command_spec_t &app, const std::shared_ptr<request_t> &request) {
    flag_field(app, "--check", request->is_check, "says what would change, and sends nothing");
    flag_field(app, "--diff", request->shows_diff, "shows the commands");
    flag_field(app, "--replay", request->replays, "sends the whole document, whatever the server is thought to hold");
    duration_field(app, "--confirm", request->confirm_s,
                   "takes it back unless config confirm comes within this time, and waits for that");
}

}  // namespace

void add_config_commands(grammar_t &grammar) {
    grammar.family("config", "Configuration documents, and the one that the server runs");
    auto request = grammar.record<request_t>();
    const auto with = [request](uint32_t (*act)(call_t &, const request_t &)) {
        return [request, act](call_t &call) { return act(call, *request); };
    };
    file_field(
        grammar.local("check", "Looks for all that is wrong with a document, without asking a server", with(check)),
        request);
    command_spec_t &differ = grammar.immediate(
        "diff", "Prints the commands that make a server run a document; exit status 1 if there are any", with(diff));
    file_field(differ, request);
    flag_field(differ, "--replay", request->replays, "those that send the whole document");
    command_spec_t &applied = grammar.immediate("apply", "Makes the server run a document", with(apply));
    file_field(applied, request);
    apply_fields(applied, request);
    command_spec_t &shown = grammar.local("show", "Prints the document that the server runs", with(show));
    flag_field(shown, "--as-json", request->is_json, "prints the document as JSON");
    command_spec_t &back =
        grammar.immediate("rollback", "Makes the server run an older version again", with(roll_back));
    number_field(back, "version", request->version, "the version, the one before the last without it");
    apply_fields(back, request);
    grammar.local("log", "Lists who changed what and when", show_log);
    grammar.local("confirm", "Lets a change stay that waits for it", confirm);
}
