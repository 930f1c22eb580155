#include "tools/natctl/completion.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <set>

#include "fwx_host/smc.h"

namespace {

using words_t = std::vector<std::string>;

bool begins_with(const std::string &word, const std::string &begun) {
    return word.compare(0, begun.size(), begun) == 0;
}

const CLI::App *find_subcommand(const CLI::App &app, const std::string &name) {
    for (const CLI::App *subcommand : app.get_subcommands([](const CLI::App *) { return true; })) {
        if (subcommand->get_name() == name) return subcommand;
    }
    return nullptr;
}

/** The option of that name; those of a command's parents may follow it too. */
const CLI::Option *find_option(const CLI::App *app, const std::string &name) {
    const CLI::Option *option = nullptr;
    for (; app != nullptr && option == nullptr; app = app->get_parent()) {
        option = app->get_option_no_throw(name);
    }
    return option;
}

words_t server_names() {
    words_t names;
    fwx_host_server_names([](void *arg, const char *name) { static_cast<words_t *>(arg)->emplace_back(name); }, &names);
    std::sort(names.begin(), names.end());
    return names;
}

/** What is known of the values of an option, from the name of their type. */
words_t values_of(const CLI::Option &option) {
    const std::string type = option.get_type_name();
    if (type == "FILE") return {completion_of_files};
    if (type == "SERVER") return server_names();
    if (type.find('|') != std::string::npos) return CLI::detail::split(type, '|');
    /* Names beside numbers, `1 to 7, or udp, icmp`; what has blanks is no name. */
    words_t names;
    const size_t numbers = std::min(type.find(", or "), type.size());
    for (const std::string &name : CLI::detail::split(type.substr(std::min(numbers + 5, type.size())), ',')) {
        const std::string word = CLI::detail::trim_copy(name);
        if (!word.empty() && word.find(' ') == std::string::npos) names.push_back(word);
    }
    return names;
}

/** A command line up to the word that is begun. */
class begun_line_t {
public:
    begun_line_t(const CLI::App &root, const words_t &words) : app_(&root) {
        for (size_t i = 0; i + 1 < words.size(); ++i) {
            take(words[i]);
        }
    }

    words_t next() const {
        if (valued_ != nullptr) return values_of(*valued_);
        words_t words;
        size_t position = 0;
        for (const CLI::Option *option : app_->get_options()) {
            const bool is_next_argument = option->get_positional() && position++ == arguments_;
            if (is_next_argument) words = values_of(*option);
        }
        if (!words.empty() && words.front() == completion_of_files) return words;
        for (const CLI::App *subcommand : app_->get_subcommands([](const CLI::App *) { return true; })) {
            words.push_back(subcommand->get_name());
        }
        for (const CLI::Option *option : app_->get_options()) {
            if (is_excluded(*option)) continue;
            for (const std::string &name : option->get_lnames()) {
                words.push_back("--" + name);
            }
        }
        return words;
    }

private:
    void take(const std::string &word) {
        if (valued_ != nullptr) {
            valued_ = nullptr;
            return;
        }
        if (const CLI::App *subcommand = find_subcommand(*app_, word)) {
            app_ = subcommand;
            arguments_ = 0;
            return;
        }
        const size_t equals = word.find('=');
        const CLI::Option *option = find_option(app_, word.substr(0, equals));
        const bool is_named = option != nullptr && !option->get_lnames().empty();
        if (!is_named) {
            ++arguments_;
            return;
        }
        used_.insert(option);
        const bool awaits_value = option->get_items_expected_max() > 0 && equals == std::string::npos;
        if (awaits_value) valued_ = option;
    }

    bool is_excluded(const CLI::Option &option) const {
        return std::any_of(used_.begin(), used_.end(), [&option](const CLI::Option *used) {
            return used == &option || used->get_excludes().count(const_cast<CLI::Option *>(&option)) != 0;
        });
    }

    const CLI::App *app_;
    const CLI::Option *valued_ = nullptr; /* whose value comes next */
    std::set<const CLI::Option *> used_;
    size_t arguments_ = 0; /* of the command, without names, that are there */
};

}  // namespace

const char bash_completion[] = R"(_natctl() {
    local IFS=$'\n'
    COMPREPLY=($(natctl complete "${COMP_WORDS[@]:1:COMP_CWORD}"))
    if [[ ${COMPREPLY[0]-} == : ]]; then
        COMPREPLY=()
        compopt -o default
    fi
}
complete -F _natctl natctl
)";

words_t completions(const CLI::App &root, const words_t &words) {
    const std::string begun = words.empty() ? "" : words.back();
    words_t matches;
    for (std::string &word : begun_line_t(root, words).next()) {
        const bool is_match = word == completion_of_files || begins_with(word, begun);
        if (is_match) matches.push_back(std::move(word));
    }
    return matches;
}
