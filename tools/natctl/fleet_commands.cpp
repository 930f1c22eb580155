/* Documents that many gateways follow: put into their store, taken back, and how the gateways do. */
#include <CLI/CLI.hpp>

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

void store_fields(CLI::App &app, const std::shared_ptr<fleet_request_t> &request) {
    store_options_t &store = request->store;
    app.add_option("--store", store.url, "the store, or NATCTL_STORE")->type_name("etcd://HOST:PORT/PREFIX");
    app.add_option("--ca", store.ca, "authority that signs the store, which is then reached by https")
        ->type_name("FILE");
    app.add_option("--cert", store.cert, "certificate to show to the store")->type_name("FILE");
    app.add_option("--key", store.key, "key of that certificate")->type_name("FILE");
    app.add_option("--user", store.user, "user of the store")->type_name("NAME");
    app.add_option("--password-file", store.password_file, "file with the user's password")->type_name("FILE");
}

void wait_field(CLI::App &app, const std::shared_ptr<fleet_request_t> &request) {
    duration_field(app, "--wait", request->wait_s,
                   "waits for as long until every gateway that is there and meant has it, or has refused it");
}

void stage_fields(CLI::App &app, const std::shared_ptr<fleet_request_t> &request) {
    auto read = [request](const std::vector<std::string> &names) {
        for (const std::string &name : names) {
            const std::string error =
                is_gateway_name(name) ? ""
                                      : record_field_error("--to", name, "1 to 64 letters, digits, '.', '_' and '-'");
            if (!error.empty()) throw CLI::ValidationError(error, CLI::ExitCodes::ValidationError);
        }
        request->gateways = names;
    };
    CLI::Option *to = app.add_option_function<std::vector<std::string>>(
                             "--to", read, "a gateway that gets it; the others keep theirs")
                          ->type_name("GATEWAY")
                          ->allow_extra_args(false);
    number_field(app, "--percent", request->percent, "of a hundred gateways so many get it; the others keep theirs", 1,
                 100)
        .excludes(option_t(*to));
}

}  // namespace

void add_fleet_commands(grammar_t &grammar) {
    grammar.family("fleet", "The document that many gateways follow, and how they do");
    auto request = grammar.record<fleet_request_t>();
    const auto with = [request](uint32_t (*act)(call_t &, const fleet_request_t &)) {
        return [request, act](call_t &call) { return act(call, *request); };
    };
    CLI::App &pushed = grammar.local("push", "Puts a document into the store, in force at once", with(push));
    pushed.add_option("file", request->file, "the document, lines or JSON; - for standard input")
        ->required()
        ->type_name("FILE");
    stage_fields(pushed, request);
    wait_field(pushed, request);
    flag_field(pushed, "--check", request->is_check, "says what would be put, and puts nothing");
    CLI::App &back = grammar.local("rollback", "Puts an older version in force again, for all", with(roll_back));
    number_field(back, "version", request->version, "the version, the one before that in force without it", 1,
                 most_version);
    wait_field(back, request);
    CLI::App &shown = grammar.local("status", "Shows what each gateway holds, and what is wrong", with(show_status));
    CLI::App &history = grammar.local("history", "Lists the versions that are kept", with(show_history));
    for (CLI::App *app : {&pushed, &back, &shown, &history}) {
        store_fields(*app, request);
    }
}
