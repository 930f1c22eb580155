#include "tools/natctl/shell.h"

#include <editline/readline.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

#include "tools/natctl/completion.h"
#include "tools/natctl/line_parser.h"

namespace {

/** For the line editor: the match number `state` for `text`, as a block of malloc. */
char *next_match(const char *text, int state) {
    static std::vector<std::string> matches;
    if (state == 0) {
        std::istringstream typed(std::string(rl_line_buffer, static_cast<size_t>(rl_point)));
        std::vector<std::string> words(std::istream_iterator<std::string>(typed), {});
        if (*text != '\0') words.pop_back();
        words.emplace_back(text);
        matches = completions(line_parser_t().root(), words);
    }
    auto index = static_cast<size_t>(state);
    return index < matches.size() ? strdup(matches[index].c_str()) : nullptr;
}

char **complete_word(const char *text, int, int) {
    rl_attempted_completion_over = 1; /* no file names */
    return rl_completion_matches(text, next_match);
}

bool read_typed(std::string &line) {
    std::unique_ptr<char, decltype(&std::free)> typed(readline("natctl> "), std::free);
    if (typed == nullptr) return false;
    if (*typed != '\0') add_history(typed.get());
    line = typed.get();
    return true;
}

/** Turns `help timeout` into `timeout --help`. */
bool take_line(std::string &line) {
    if (line == "exit" || line == "quit") return false;
    bool asks_help = line == "help" || line.rfind("help ", 0) == 0;
    if (asks_help) line = line.substr(std::strlen("help")) + " --help";
    return true;
}

}  // namespace

next_line_fn_t shell_lines(std::istream &input) {
    bool is_terminal = &input == &std::cin && isatty(STDIN_FILENO) != 0;
    if (!is_terminal) {
        return [&input](std::string &line) { return std::getline(input, line) && take_line(line); };
    }
    rl_attempted_completion_function = complete_word;
    return [](std::string &line) { return read_typed(line) && take_line(line); };
}
