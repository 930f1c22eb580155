#include "tools/natctl/grammar.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace {

/** The words that were recognised as a command, or as the beginning of one. */
std::string path_of(const CLI::App &root) {
    std::string path;
    for (const CLI::App *app = &root; !app->get_subcommands().empty();) {
        app = app->get_subcommands().back();
        path += (path.empty() ? "" : " ") + app->get_name();
    }
    return path;
}

const CLI::App &deepest_parsed(const CLI::App &root) {
    const CLI::App *app = &root;
    while (!app->get_subcommands().empty()) {
        app = app->get_subcommands().back();
    }
    return *app;
}

/** `add, mod, del`, or empty for a command without verbs. */
std::string verbs_of(const CLI::App &app) {
    std::string verbs;
    for (const CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; })) {
        verbs += (verbs.empty() ? "" : ", ") + verb->get_name();
    }
    return verbs;
}

std::string error_text(const CLI::App &root, const CLI::ParseError &error) {
    std::vector<std::string> rest = root.remaining(true);
    std::string verbs = verbs_of(deepest_parsed(root));
    bool lacks_verb = !verbs.empty() && dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
    if (lacks_verb) return rest.empty() ? "must go on with " + verbs : rest.front() + ": must be " + verbs;
    bool has_extra = dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr && !rest.empty();
    if (has_extra) return rest.front() + ": not expected here, see --help";
    return error.what();
}

}  // namespace

grammar_t::grammar_t(CLI::App &root) : root_(root), group_(&root) {
    root.require_subcommand(1);
    add_status_command(*this);
    add_record_commands(*this, "");
    add_query_commands(*this);
    add_mapt_commands(*this);
    add_classifier_commands(*this);
    add_server_commands(*this);
}

CLI::App &grammar_t::add_group(CLI::App &parent, const std::string &name, const std::string &summary) {
    CLI::App &group = *parent.add_subcommand(name, summary);
    group.require_subcommand(1);
    return group;
}

void grammar_t::family(const std::string &name, const std::string &summary) {
    top_ = &add_group(root_, name, summary);
    group_ = top_;
}

void grammar_t::subfamily(const std::string &name, const std::string &summary) {
    group_ = &add_group(*top_, name, summary);
}

CLI::App &grammar_t::command(const std::string &verb, const std::string &summary, start_fn_t start) {
    CLI::App &app = *group_->add_subcommand(verb, summary);
    app.callback([this, start = std::move(start)] { parsed_ = {path_of(root_), start}; });
    return app;
}

CLI::App &grammar_t::immediate(const std::string &verb, const std::string &summary, start_fn_t start) {
    return command(verb, summary, [start = std::move(start)](call_t &call) {
        call.awaited = false;
        return start(call);
    });
}

CLI::App &grammar_t::embedded(const std::string &verb, const std::string &summary,
                              std::function<uint32_t(call_t &call, fwx_nat64_model_t &model)> act) {
    CLI::App &app = *group_->add_subcommand(verb, summary + " (embedded server only)");
    start_fn_t start = [act = std::move(act)](call_t &call) {
        call.awaited = false;
        return act(call, *call.pal.model());
    };
    app.callback([this, start = std::move(start)] { parsed_ = {path_of(root_), start, true}; });
    return app;
}

command_t grammar_t::parse(std::vector<std::string> words) {
    for (const std::function<void()> &restore : restorers_) {
        restore();
    }
    parsed_ = {};
    std::reverse(words.begin(), words.end());
    try {
        root_.parse(words);
    } catch (const CLI::Success &) {
        throw help_request_t{root_.help()};
    } catch (const CLI::ParseError &error) {
        throw usage_error_t{path_of(root_), error_text(root_, error)};
    }
    return parsed_;
}
