/*
 * The only source that includes the argument parser. It makes the parser's objects from a table of commands and turns
 * the parser's exceptions into usage_error_t and help_request_t, with suggestions for misspelt words.
 */
#include "tools/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>

#include "net/json.h"
#include "records/misspelt.h"

namespace {

/** The recognised words: a command, or the beginning of one. */
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

/** The words that may follow the command `app`. */
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

/** Sorts the names of the options that exclude each other, because the parser orders them by address. */
class formatter_t : public CLI::Formatter {
public:
    std::string make_option_opts(const CLI::Option *option) const override {
        std::string text = CLI::Formatter::make_option_opts(option);
        const std::string head = " " + get_label("Excludes") + ":";
        const size_t at = text.find(head);
        if (at == std::string::npos) return text;
        std::vector<std::string> others;
        for (const CLI::Option *other : option->get_excludes()) {
            others.push_back(other->get_name());
        }
        std::sort(others.begin(), others.end());
        text.resize(at);
        text += head;
        for (const std::string &other : others) {
            text += ' ' + other;
        }
        return text;
    }
};

void enter(CLI::App &app, const option_spec_t &spec) {
    if (spec.is_flag()) {
        CLI::Option *flag =
            spec.flag != nullptr ? app.add_flag(spec.names, *spec.flag, spec.meaning) : app.add_flag(spec.names);
        flag->description(spec.meaning);
        for (const std::string &other : spec.others) {
            flag->excludes(app.get_option(other.substr(0, other.find(','))));
        }
        return;
    }
    const auto take = [&spec](const std::string &text) {
        const std::string error = spec.read(text);
        if (!error.empty()) throw CLI::ValidationError(error, CLI::ExitCodes::ValidationError);
    };
    CLI::Option *option =
        spec.is_repeatable
            ? app.add_option_function<std::vector<std::string>>(
                     spec.names,
                     [take](const std::vector<std::string> &texts) { std::for_each(texts.begin(), texts.end(), take); },
                     spec.meaning)
                  ->allow_extra_args(spec.is_argument())
            : app.add_option_function<std::string>(spec.names, take, spec.meaning);
    option->type_name(spec.form)->required(spec.is_required);
    if (!spec.preset.empty()) option->default_str(spec.preset);
    for (const std::string &other : spec.others) {
        option->excludes(app.get_option(other.substr(0, other.find(','))));
    }
}

}  // namespace

class command_parser_t::impl_t {
public:
    explicit impl_t(const command_spec_t &spec) : root_(spec.summary, spec.name) {
        root_.formatter(std::make_shared<formatter_t>()); /* inherited by its commands */
        if (!spec.version.empty()) root_.set_version_flag("--version", spec.version, "Prints the version");
        falls_through_ = !spec.options.empty();
        fill(root_, spec);
    }

    void parse(std::vector<std::string> words) {
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
    }

private:
    void fill(CLI::App &app, const command_spec_t &spec) {
        app.footer(spec.footer);
        app.fallthrough(falls_through_ && spec.takes_root_options);
        for (const option_spec_t &option : spec.options) {
            enter(app, option);
        }
        for (const command_spec_t &command : spec.commands) {
            CLI::App *added = app.add_subcommand(command.name, command.summary);
            added->group(command.is_listed ? "Subcommands"
                                           : ""); /* set each time, because the group would be inherited */
            fill(*added, command);
        }
        if (!spec.commands.empty()) app.require_subcommand(1);
        for (const std::string &other : spec.others) {
            app.excludes(root_.get_option(other.substr(0, other.find(','))));
        }
        if (spec.act) app.callback([this, &spec] { spec.act(path_of(root_)); });
    }

    CLI::App root_;
    bool falls_through_ = false; /* options of the root may follow commands */
};

command_parser_t::command_parser_t(const command_spec_t &root) : impl_(std::make_unique<impl_t>(root)) {}

command_parser_t::~command_parser_t() = default;

void command_parser_t::parse(std::vector<std::string> words) {
    impl_->parse(std::move(words));
}

int read_command_line(const command_spec_t &root, int argc, const char *const *argv) {
    try {
        command_parser_t(root).parse({argv + 1, argv + argc});
        return -1;
    } catch (const help_request_t &help) {
        std::fputs(help.text.c_str(), stdout);
        return 0;
    } catch (const usage_error_t &error) {
        std::fprintf(stderr, "%s: %s\n", root.name.c_str(), clean_line(error.text).c_str());
        return usage_status;
    }
}

std::vector<std::string> option_spec_t::long_names() const {
    std::vector<std::string> found;
    for (size_t at = 0; at < names.size();) {
        const size_t length = std::min(names.find(',', at), names.size()) - at;
        if (names.compare(at, 2, "--") == 0) found.push_back(names.substr(at + 2, length - 2));
        at += length + 1;
    }
    return found;
}

command_spec_t &command_spec_t::command(std::string word, std::string summary_text,
                                        std::function<void(const std::string &path)> action) {
    command_spec_t &made = commands.emplace_back();
    made.name = std::move(word);
    made.summary = std::move(summary_text);
    made.act = std::move(action);
    return made;
}

option_spec_t &text_field(command_spec_t &command, std::string_view option, option_spec_t::read_fn_t read,
                          std::string meaning, std::string form) {
    option_spec_t spec;
    spec.names = option;
    spec.meaning = std::move(meaning);
    spec.form = std::move(form);
    spec.read = std::move(read);
    return command.add(std::move(spec));
}

option_spec_t &word_field(command_spec_t &command, std::string_view option, std::string &out, std::string meaning,
                          std::string form) {
    const auto take = [&out](const std::string &text) {
        out = text;
        return std::string();
    };
    return text_field(command, option, take, std::move(meaning), std::move(form));
}

option_spec_t &add_field(command_spec_t &command, const record_field_t &field, void *record) {
    auto read = [field, record](const std::string &text) { return record_field_read(field, text, record); };
    std::string options(field.option);
    if (!field.also.empty()) options.append(",").append(field.also);
    return text_field(command, options, read, field.meaning, record_field_form(field));
}

option_spec_t &choice_field(command_spec_t &command, const std::string &option, uint32_t &out,
                            std::vector<choice_t> choices, const std::string &meaning) {
    std::string allowed;
    for (const choice_t &choice : choices) {
        allowed += (allowed.empty() ? "" : "|") + std::string(choice.text);
    }
    auto read = [option, &out, choices = std::move(choices), allowed](const std::string &text) {
        for (const choice_t &choice : choices) {
            if (text != choice.text) continue;
            out = choice.value;
            return std::string();
        }
        return record_field_error(option, text, allowed);
    };
    return text_field(command, option, read, meaning, allowed);
}

option_spec_t &flag_field(command_spec_t &command, const std::string &option, bool &out, const std::string &meaning) {
    option_spec_t spec;
    spec.names = option;
    spec.meaning = meaning;
    spec.flag = &out;
    return command.add(std::move(spec));
}
