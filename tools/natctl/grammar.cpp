#include "tools/natctl/grammar.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "records/misspelt.h"

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

/** The words of the commands that `app` may go on with. */
std::vector<std::string_view> verbs_of(const CLI::App &app) {
    std::vector<std::string_view> verbs;
    for (const CLI::App *verb : app.get_subcommands([](const CLI::App *) { return true; })) {
        verbs.emplace_back(verb->get_name());
    }
    return verbs;
}

/** The options that a command takes, its own first. */
std::vector<std::string> options_of(const CLI::App &command) {
    std::vector<std::string> names;
    for (const CLI::App *app = &command; app != nullptr; app = app->get_parent()) {
        for (const CLI::Option *option : app->get_options()) {
            for (const std::string &name : option->get_lnames()) {
                names.push_back("--" + name);
            }
        }
    }
    return names;
}

std::string error_text(const CLI::App &root, const CLI::ParseError &error) {
    const std::vector<std::string> rest = root.remaining(true);
    const CLI::App &command = deepest_parsed(root);
    const std::vector<std::string_view> verbs = verbs_of(command);
    const bool lacks_word = dynamic_cast<const CLI::RequiredError *>(&error) != nullptr;
    if (lacks_word && !verbs.empty()) {
        std::string list;
        for (const std::string_view verb : verbs) {
            list.append(list.empty() ? "" : ", ").append(verb);
        }
        return rest.empty() ? "must go on with " + list : wrong_word_text(rest.front(), verbs, "must be " + list);
    }
    const bool has_extra = lacks_word || dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr;
    if (!has_extra || rest.empty()) return error.what();
    const std::vector<std::string> options = options_of(command);
    return wrong_word_text(rest.front(), {options.begin(), options.end()}, "not expected here, see --help");
}

}  // namespace

grammar_t::grammar_t(CLI::App &root) : root_(root), group_(&root) {
    root.require_subcommand(1);
    add_status_command(*this);
    add_convert_command(*this);
    add_record_commands(*this, "");
    add_query_commands(*this);
    add_mapt_commands(*this);
    add_nat64_commands(*this);
    add_classifier_commands(*this);
    add_server_commands(*this);
    add_config_commands(*this);
    add_fleet_commands(*this);
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

CLI::App &grammar_t::local(const std::string &verb, const std::string &summary, start_fn_t start) {
    CLI::App &app = *group_->add_subcommand(verb, summary);
    start_fn_t at_once = [start = std::move(start)](call_t &call) {
        call.awaited = false;
        return start(call);
    };
    app.callback([this, at_once = std::move(at_once)] { parsed_ = {path_of(root_), at_once, false, false}; });
    return app;
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
    } catch (const CLI::CallForVersion &version) {
        throw help_request_t{version.what()};
    } catch (const CLI::Success &) {
        throw help_request_t{root_.help()};
    } catch (const CLI::ParseError &error) {
        throw usage_error_t{path_of(root_), error_text(root_, error)};
    }
    return parsed_;
}
