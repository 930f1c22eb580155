/* The commands `natctl fleet`: push, rollback, status, history. This file reads their arguments; fleet_run.h works on
 * the store. */

#include "tools/natctl/document_input.h"
#include "tools/natctl/fleet_run.h"
#include "tools/natctl/grammar.h"

namespace {

uint32_t push(call_t &call, const fleet_request_t &request) {
    const std::optional<store_t> store = fleet_store_of(call, request);
    document_t document;
    problems_t problems;
    const bool is_good = store && read_document(call, request.file, document, problems);
    if (is_good) fleet_push(call, request, document, *store);
    return 0;
}

uint32_t roll_back(call_t &call, const fleet_request_t &request) {
    if (call.pal.options().dry_run) {
        refuse(call.outcome, status_t::usage, 0, "a dry run puts nothing; fleet history lists the versions");
        return 0;
    }
    if (const std::optional<store_t> store = fleet_store_of(call, request)) fleet_roll_back(call, request, *store);
    return 0;
}

uint32_t show_status(call_t &call, const fleet_request_t &request) {
    if (const std::optional<store_t> store = fleet_store_of(call, request)) fleet_status(call, *store);
    return 0;
}

uint32_t show_history(call_t &call, const fleet_request_t &request) {
    if (const std::optional<store_t> store = fleet_store_of(call, request)) fleet_history(call, *store);
    return 0;
}

void store_fields(command_spec_t &app, const std::shared_ptr<fleet_request_t> &request) {
    store_options_t &store = request->store;
    word_field(app, "--store", store.url, "the store, or NATCTL_STORE", "etcd://HOST:PORT/PREFIX");
    word_field(app, "--ca", store.ca,
               "authority that signed the store's certificate; the store is then reached by https", "FILE");
    word_field(app, "--cert", store.cert, "client certificate for the store", "FILE");
    word_field(app, "--key", store.key, "key of that certificate", "FILE");
    word_field(app, "--user", store.user, "user of the store", "NAME");
    word_field(app, "--password-file", store.password_file, "file with the user's password", "FILE");
    flag_field(app, "--insecure-plaintext", store.sends_plaintext,
               "sends the password without TLS, so that others on the way can read it");
}

void wait_field(command_spec_t &app, const std::shared_ptr<fleet_request_t> &request) {
    duration_field(app, "--wait", request->wait_s,
                   "waits for at most this time until every addressed gateway has it or has refused it");
}

void stage_fields(command_spec_t &app, const std::shared_ptr<fleet_request_t> &request) {
    auto read = [request](const std::string &name) {
        request->gateways.push_back(name);
        return is_gateway_name(name) ? ""
                                     : record_field_error("--to", name, "1 to 64 letters, digits, '.', '_' and '-'");
    };
    option_spec_t &to = text_field(app, "--to", read, "a gateway that gets it; the others keep theirs", "GATEWAY");
    to.is_repeatable = true;
    number_field(app, "--percent", request->percent, "the percentage of gateways that get it; the others keep theirs",
                 1, 100)
        .excludes(to);
}

}  // namespace

void add_fleet_commands(grammar_t &grammar) {
    grammar.family("fleet", "The document of many gateways, and their state");
    auto request = grammar.record<fleet_request_t>();
    const auto with = [request](uint32_t (*act)(call_t &, const fleet_request_t &)) {
        return [request, act](call_t &call) { return act(call, *request); };
    };
    command_spec_t &pushed = grammar.local("push", "Puts a document into the store, in force at once", with(push));
    word_field(pushed, "file", request->file, "the document, lines or JSON; - for standard input", "FILE").required();
    stage_fields(pushed, request);
    wait_field(pushed, request);
    flag_field(pushed, "--check", request->is_check, "says what would be put, and puts nothing");
    command_spec_t &back = grammar.local("rollback", "Puts an older version in force again, for all", with(roll_back));
    number_field(back, "version", request->version,
                 "the version, by default the newest before the one in force that was for all and has another document",
                 1, most_version);
    wait_field(back, request);
    command_spec_t &shown =
        grammar.local("status", "Shows what each gateway holds, and why it is not in sync", with(show_status));
    command_spec_t &history = grammar.local("history", "Lists the versions that are kept", with(show_history));
    for (command_spec_t *app : {&pushed, &back, &shown, &history}) {
        store_fields(*app, request);
    }
}
