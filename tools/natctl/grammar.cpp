/* Implements grammar.h: adds all families in the order of the help, and wraps the action of each verb into a command_t.
 */
#include "tools/natctl/grammar.h"

#include <algorithm>
#include <utility>

#include "records/misspelt.h"

grammar_t::grammar_t(command_spec_t &root) : root_(root), home_(&root), group_(&root) {
    add_status_command(*this);
    add_convert_command(*this);
    add_configuration_command(*this);
    add_record_commands(*this, "");
    add_query_commands(*this);
    add_mapt_commands(*this);
    add_nat64_commands(*this);
    add_config_commands(*this);
    add_fleet_commands(*this);
    group("dev", "For developers: the server model, and what the library sends beside configuration");
    add_classifier_commands(*this);
    add_ipalias_command(*this);
    add_lookup_command(*this);
    add_server_commands(*this);
    add_help();
}

void grammar_t::add_help() {
    command_spec_t &help = root_.command("help", "Shows what --help shows, of natctl or of a command",
                                         [this](const std::string &) { show_help(); });
    const auto take = [this](const std::string &word) {
        help_words_.push_back(word);
        return std::string();
    };
    text_field(help, "command", take, "the words of the command", "WORD").is_repeatable = true;
}

void grammar_t::show_help() {
    const command_spec_t *of = &root_;
    for (const std::string &word : help_words_) {
        const auto is_named = [&word](const command_spec_t &next) { return next.name == word; };
        const auto next = std::find_if(of->commands.begin(), of->commands.end(), is_named);
        if (next == of->commands.end()) {
            std::vector<std::string_view> known;
            for (const command_spec_t &other : of->commands) {
                known.emplace_back(other.name);
            }
            throw usage_error_t{"help", wrong_word_text(word, known, "no such command")};
        }
        of = &*next;
    }
    std::vector<std::string> words = std::exchange(help_words_, {});
    words.emplace_back("--help");
    command_parser_t(root_).parse(std::move(words));
}

void grammar_t::group(const std::string &name, const std::string &summary) {
    home_ = &root_.command(name, summary);
}

command_spec_t &grammar_t::family(const std::string &name, const std::string &summary) {
    group_ = top_ = &home_->command(name, summary);
    return *top_;
}

void grammar_t::subfamily(const std::string &name, const std::string &summary) {
    group_ = &top_->command(name, summary);
}

command_spec_t &grammar_t::enter(const std::string &verb, const std::string &summary, command_t command) {
    return group_->command(verb, summary, [this, command = std::move(command)](const std::string &path) {
        parsed_ = command;
        parsed_.name = path;
    });
}

namespace {

start_fn_t at_once(start_fn_t start) {
    return [start = std::move(start)](call_t &call) {
        call.awaited = false;
        return start(call);
    };
}

}  // namespace

command_spec_t &grammar_t::command(const std::string &verb, const std::string &summary, start_fn_t start) {
    return enter(verb, summary, {"", std::move(start)});
}

command_spec_t &grammar_t::immediate(const std::string &verb, const std::string &summary, start_fn_t start) {
    return enter(verb, summary, {"", at_once(std::move(start))});
}

command_spec_t &grammar_t::local(const std::string &verb, const std::string &summary, start_fn_t start) {
    return enter(verb, summary, {"", at_once(std::move(start)), false, false});
}

command_spec_t &grammar_t::embedded(const std::string &verb, const std::string &summary,
                                    std::function<uint32_t(call_t &call, fwx_nat64_model_t &model)> act) {
    start_fn_t start = [act = std::move(act)](call_t &call) { return act(call, *call.pal.model()); };
    return enter(verb, summary + " (embedded server only)", {"", at_once(std::move(start)), true});
}

command_t grammar_t::parse(std::vector<std::string> words) {
    for (const std::function<void()> &restore : restorers_) {
        restore();
    }
    parsed_ = {};
    help_words_.clear();
    if (parser_ == nullptr) parser_ = std::make_unique<command_parser_t>(root_);
    parser_->parse(std::move(words));
    return parsed_;
}
