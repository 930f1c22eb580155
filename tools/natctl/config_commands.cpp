/*
 * The commands `natctl config`: check, diff, apply, show, rollback, log, confirm. This file reads their arguments and
 * chooses the document; config_run.h brings the server in sync with it.
 */
#include "config/notation.h"
#include "reconcile/reconciler.h"
#include "records/value.h"
#include "tools/natctl/config_run.h"
#include "tools/natctl/document_input.h"
#include "tools/natctl/grammar.h"

namespace {

constexpr uint32_t no_version = UINT32_MAX; /* none was given */
constexpr uint32_t last_version = no_version - 1;

struct request_t {
    std::string file;
    config_options_t options;
    uint32_t version = no_version;
    bool is_json = false;
};

uint32_t check(call_t &call, const request_t &request) {
    document_t document;
    problems_t problems;
    const bool is_good = read_document(call, request.file, document, problems);
    call.outcome.data = {{"items", document.size()}, {"problems", problems_json(problems)}};
    if (is_good) call.outcome.note = count_text(document.size(), "item");
    return 0;
}

uint32_t apply(call_t &call, const request_t &request) {
    document_t document;
    problems_t problems;
    if (!read_document(call, request.file, document, problems)) return 0;
    config_options_t options = request.options;
    options.what = "config apply " + request.file;
    config_apply(call, document, options);
    return 0;
}

/** Opens the versions of the server for reading. Null: failed, the outcome of the call has the reason. */
versions_t *look_at_versions(call_t &call, std::optional<versions_t> &place) {
    versions_t *versions = nullptr;
    const std::string error = call.pal.open_versions(place, versions);
    if (!error.empty()) refuse(call.outcome, status_t::usage, 0, error);
    return error.empty() ? versions : nullptr;
}

/** Reads the document of a version. False: failed, the outcome of the call has the reason. */
bool read_version(call_t &call, uint32_t number, document_t &document) {
    std::optional<versions_t> place;
    const versions_t *versions = look_at_versions(call, place);
    return versions != nullptr && config_version(call, *versions, number, document);
}

uint32_t diff(call_t &call, const request_t &request) {
    document_t document;
    problems_t problems;
    uint64_t number = 0;
    const bool is_version = parse_number(request.file, number) && number <= UINT32_MAX;
    const bool is_read = is_version ? read_version(call, static_cast<uint32_t>(number), document)
                                    : read_document(call, request.file, document, problems);
    if (is_read) config_diff(call, document, request.options);
    return 0;
}

/** Finds the newest version whose document differs from the server's. False: failed, the outcome of the call has the
 * reason. */
bool find_other_version(call_t &call, const request_t &request, const versions_t &versions, uint32_t &number) {
    if (!config_read(call, request.options)) return false;
    const std::string held = write_lines(call.pal.reconciler().held());
    const std::vector<version_t> &all = versions.all();
    for (auto version = all.rbegin(); version != all.rend(); ++version) {
        std::string text;
        const bool is_other = version->has_document && versions.read(version->number, text).empty() && text != held;
        if (is_other) number = version->number;
        if (is_other) return true;
    }
    number = 0; /* no such version: the state before the first one */
    return true;
}

uint32_t roll_back(call_t &call, const request_t &request) {
    call.pal.settle_all();
    std::optional<versions_t> place;
    const versions_t *versions = look_at_versions(call, place);
    if (versions == nullptr) return 0;
    uint32_t number = request.version;
    if (number == no_version && !find_other_version(call, request, *versions, number)) return 0;
    document_t document;
    if (!config_version(call, *versions, number, document)) return 0;
    place.reset();
    config_options_t options = request.options;
    options.what = "config rollback " + std::to_string(number);
    config_apply(call, document, options);
    return 0;
}

uint32_t show(call_t &call, const request_t &request) {
    call.pal.settle_all();
    document_t document;
    const bool is_version = request.version != no_version;
    if (!(is_version ? read_version(call, request.version, document) : config_read(call))) return 0;
    if (!is_version) document = call.pal.reconciler().held();
    const bool is_json = request.is_json || call.pal.options().format != format_t::text;
    call.outcome.text = is_json ? write_json(document) : write_lines(document);
    if (call.pal.options().format != format_t::text) call.outcome.data = json_t::parse(call.outcome.text);
    return 0;
}

uint32_t show_log(call_t &call) {
    call.pal.settle_all();
    std::optional<versions_t> place;
    const bool is_embedded = call.pal.options().connect.empty();
    const std::string error = is_embedded ? call.pal.begin_change() + call.pal.end_singles() : "";
    const versions_t *versions = error.empty() ? look_at_versions(call, place) : nullptr;
    if (!error.empty()) refuse(call.outcome, status_t::usage, 0, error);
    if (versions == nullptr) return 0;
    call.outcome.data = json_t::array();
    for (const version_t &version : versions->all()) {
        call.outcome.data.push_back({{"version", version.number},
                                     {"time", version.time},
                                     {"who", version.who},
                                     {"commands", version.commands},
                                     {"confirmed", versions->unconfirmed() != version.number},
                                     {"what", version.what},
                                     {"document", version.has_document}});
    }
    return 0;
}

uint32_t confirm(call_t &call) {
    if (call.pal.options().dry_run) {
        refuse(call.outcome, status_t::usage, 0, "a dry run confirms nothing; config log shows what waits");
        return 0;
    }
    std::string error = call.pal.begin_change();
    if (!error.empty()) {
        call.pal.refuse_change(call, error);
        return 0;
    }
    versions_t &versions = call.pal.versions();
    const std::optional<uint32_t> waiting = versions.unconfirmed();
    if (!waiting) {
        refuse(call.outcome, status_t::usage, 0, versions.directory() + "/unconfirmed: cannot be read");
        return 0;
    }
    const uint32_t number = *waiting;
    if (number == 0) {
        refuse(call.outcome, status_t::refused, 0, "no version waits for it");
        return 0;
    }
    error = versions.set_unconfirmed(0);
    if (!error.empty()) {
        refuse(call.outcome, status_t::usage, 0, error);
        return 0;
    }
    call.outcome.note = "version " + std::to_string(number) + " stays";
    call.outcome.data = {{"version", number}};
    return 0;
}

void file_field(command_spec_t &app, const std::shared_ptr<request_t> &request) {
    word_field(app, "file", request->file, "the document, lines or JSON; - for standard input", "FILE").required();
}

void assume_fields(command_spec_t &app, const std::shared_ptr<request_t> &request) {
    word_field(app, "--assume", request->options.assumed_file,
               "for a server that does not report its state: it holds this document", "FILE");
    flag_field(app, "--assume-empty", request->options.assumes_empty,
               "for a server that does not report its state: it holds nothing");
}

void apply_fields(command_spec_t &app, const std::shared_ptr<request_t> &request) {
    config_options_t &options = request->options;
    flag_field(app, "--check", options.is_check, "says what would change, and sends nothing");
    flag_field(app, "--diff", options.shows_diff, "shows the commands");
    flag_field(app, "--keep-partial", options.keeps_partial,
               "after a refusal or Ctrl-C, does not undo the commands before");
    duration_field(app, "--confirm", options.confirm_s,
                   "waits, and undoes the change unless config confirm comes within this time");
    assume_fields(app, request);
}

}  // namespace

void add_config_commands(grammar_t &grammar) {
    grammar.family("config", "Configuration documents, and the one that the server runs");
    auto request = grammar.record<request_t>();
    const auto with = [request](uint32_t (*act)(call_t &, const request_t &)) {
        return [request, act](call_t &call) { return act(call, *request); };
    };
    file_field(grammar.local("check", "Reports all errors of a document, without asking a server", with(check)),
               request);
    command_spec_t &differ = grammar.immediate(
        "diff", "Prints the commands that make a server run a document; exit status 1 if there are any", with(diff));
    word_field(differ, "file", request->file, "the document as above, or the number of a version", "FILE|N").required();
    assume_fields(differ, request);
    command_spec_t &applied = grammar.immediate("apply", "Makes the server run a document", with(apply));
    file_field(applied, request);
    apply_fields(applied, request);
    command_spec_t &shown =
        grammar.immediate("show", "Prints the document that the server runs, or that of a version", with(show));
    number_field(shown, "version", request->version, "the version, by default what the server runs", 0, last_version);
    flag_field(shown, "--as-json", request->is_json, "prints the document as JSON");
    command_spec_t &back =
        grammar.immediate("rollback", "Makes the server run an older version again", with(roll_back));
    number_field(back, "version", request->version,
                 "the version, by default the newest that differs from what the server runs", 0, last_version);
    apply_fields(back, request);
    grammar.local("log", "Lists who changed what and when", show_log);
    grammar.local("confirm", "Confirms a change that waits for it", confirm);
}
