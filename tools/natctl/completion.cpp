#include "tools/natctl/completion.h"

#include <CLI/CLI.hpp>

namespace {

const CLI::App *find_subcommand(const CLI::App &app, const std::string &name) {
    for (const CLI::App *subcommand : app.get_subcommands([](const CLI::App *) { return true; })) {
        if (subcommand->get_name() == name) return subcommand;
    }
    return nullptr;
}

std::vector<std::string> words_of(const CLI::App &app) {
    std::vector<std::string> words;
    for (const CLI::App *subcommand : app.get_subcommands([](const CLI::App *) { return true; })) {
        words.push_back(subcommand->get_name());
    }
    for (const CLI::Option *option : app.get_options()) {
        for (const std::string &name : option->get_lnames()) {
            words.push_back("--" + name);
        }
    }
    return words;
}

}  // namespace

const char bash_completion[] = R"(_natctl() {
    local IFS=$'\n'
    COMPREPLY=($(natctl complete "${COMP_WORDS[@]:1:COMP_CWORD}"))
}
complete -o default -F _natctl natctl
)";

std::vector<std::string> completions(const CLI::App &root, const std::vector<std::string> &words) {
    const CLI::App *app = &root;
    std::string begun = words.empty() ? "" : words.back();
    for (size_t i = 0; i + 1 < words.size(); ++i) {
        const CLI::App *next = find_subcommand(*app, words[i]);
        if (next != nullptr) app = next;
    }
    std::vector<std::string> matches;
    for (std::string &word : words_of(*app)) {
        if (word.rfind(begun, 0) == 0) matches.push_back(std::move(word));
    }
    return matches;
}
