/*
 * Implements completion.h. It walks through the table of commands with the words before the last one, and then collects
 * the words that may follow. The shells' scripts call `natctl complete`.
 */
#include "tools/natctl/completion.h"

#include <algorithm>

#include "fwx_host/smc.h"

namespace {

using words_t = std::vector<std::string>;

bool begins_with(const std::string &word, const std::string &begun) {
    return word.compare(0, begun.size(), begun) == 0;
}

words_t split(const std::string &text, char separator) {
    words_t words;
    for (size_t at = 0; at <= text.size();) {
        const size_t length = std::min(text.find(separator, at), text.size()) - at;
        words.push_back(text.substr(at, length));
        at += length + 1;
    }
    return words;
}

words_t server_names() {
    words_t names;
    fwx_host_server_names([](void *arg, const char *name) { static_cast<words_t *>(arg)->emplace_back(name); }, &names);
    std::sort(names.begin(), names.end());
    return names;
}

/** The known values of an option, taken from its form. */
words_t values_of(const option_spec_t &option) {
    const std::string &form = option.form;
    if (form == "FILE") return {completion_of_files};
    if (form == "SERVER") return server_names();
    if (form.find('|') != std::string::npos) return split(form, '|');
    /* The form has names beside numbers, as in `1 to 7, or udp, icmp`. A part with blanks is not a name. */
    words_t names;
    const size_t numbers = std::min(form.find(", or "), form.size());
    for (const std::string &name : split(form.substr(std::min(numbers + 5, form.size())), ',')) {
        const std::string word = name.substr(std::min(name.find_first_not_of(' '), name.size()));
        if (!word.empty() && word.find(' ') == std::string::npos) names.push_back(word);
    }
    return names;
}

/** The command line before the word that is being completed. */
class begun_line_t {
public:
    begun_line_t(const command_spec_t &root, const words_t &words) : path_{&root} {
        for (size_t i = 0; i + 1 < words.size(); ++i) {
            take(words[i]);
        }
    }

    words_t next() const {
        if (valued_ != nullptr) return values_of(*valued_);
        words_t words;
        size_t position = 0;
        for (const option_spec_t &option : path_.back()->options) {
            const bool is_next_argument = option.is_argument() && position++ == arguments_;
            if (is_next_argument) words = values_of(option);
        }
        if (!words.empty() && words.front() == completion_of_files) return words;
        for (const command_spec_t &command : path_.back()->commands) {
            words.push_back(command.name);
        }
        words.emplace_back("--help");
        if (!path_.back()->version.empty()) words.emplace_back("--version");
        for (const option_spec_t &option : path_.back()->options) {
            if (is_excluded(option)) continue;
            for (const std::string &name : option.long_names()) {
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
        for (const command_spec_t &command : path_.back()->commands) {
            if (command.name != word) continue;
            path_.push_back(&command);
            arguments_ = 0;
            return;
        }
        const size_t equals = word.find('=');
        const option_spec_t *option = find_option(word.substr(0, equals));
        if (option == nullptr) {
            ++arguments_;
            return;
        }
        used_.push_back(option);
        if (!option->is_flag() && equals == std::string::npos) valued_ = option;
    }

    /** The option of that name, of this command or of those before it, whose options may follow too. */
    const option_spec_t *find_option(const std::string &word) const {
        for (auto command = path_.rbegin(); command != path_.rend(); ++command) {
            for (const option_spec_t &option : (*command)->options) {
                const words_t names = option.long_names();
                const bool is_it = std::any_of(names.begin(), names.end(),
                                               [&word](const std::string &name) { return word == "--" + name; });
                if (is_it) return &option;
            }
        }
        return nullptr;
    }

    bool is_excluded(const option_spec_t &option) const {
        const auto has = [](const words_t &names, const std::string &name) {
            return std::find(names.begin(), names.end(), name) != names.end();
        };
        return std::any_of(used_.begin(), used_.end(), [&](const option_spec_t *used) {
            return used == &option || has(used->others, option.names) || has(option.others, used->names);
        });
    }

    std::vector<const command_spec_t *> path_; /* the commands so far, the root first */
    const option_spec_t *valued_ = nullptr;    /* the option whose value comes next */
    std::vector<const option_spec_t *> used_;
    size_t arguments_ = 0; /* number of positional arguments so far */
};

}  // namespace

const shell_completion_t shell_completions[] = {
    {"bash", "For bash", R"(_natctl() {
    local IFS=$'\n'
    COMPREPLY=($(natctl complete "${COMP_WORDS[@]:1:COMP_CWORD}"))
    if [[ ${COMPREPLY[0]-} == : ]]; then
        COMPREPLY=()
        compopt -o default
    fi
}
complete -F _natctl natctl
)"},
    {"zsh", "For zsh", R"(#compdef natctl
_natctl() {
    local -a found
    found=("${(@f)$(natctl complete "${(@)words[2,CURRENT]}")}")
    if [[ ${found[1]-} == : ]]; then
        _files
    else
        compadd -a found
    fi
}
compdef _natctl natctl
)"},
    {"fish", "For fish", R"(function __natctl
    set -l found (natctl complete (commandline -opc)[2..-1] (commandline -ct))
    if test "$found[1]" = :
        __fish_complete_path (commandline -ct)
    else
        printf '%s\n' $found
    end
end
complete -c natctl -f -a '(__natctl)'
)"},
};

words_t completions(const command_spec_t &root, const words_t &words) {
    const std::string begun = words.empty() ? "" : words.back();
    words_t matches;
    for (std::string &word : begun_line_t(root, words).next()) {
        const bool is_match = word == completion_of_files || begins_with(word, begun);
        if (is_match) matches.push_back(std::move(word));
    }
    return matches;
}
