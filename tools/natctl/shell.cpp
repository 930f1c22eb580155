/*
 * Implements shell.h with libedit. At a terminal, SIGINT is blocked except while the editor waits for a key, so that an
 * interrupt clears the line and nothing else.
 */
#include "tools/natctl/shell.h"

#include <editline/readline.h>
#include <poll.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>

#include "tools/natctl/completion.h"
#include "tools/natctl/line_parser.h"

namespace {

/** For the line editor: returns match number `state` for `text`, allocated with malloc. */
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
    rl_attempted_completion_over = 1; /* do not fall back to file names */
    return rl_completion_matches(text, next_match);
}

constexpr int history_lines = 1000;

/** The path of the history file; makes its directory if it is missing. Empty: there is none. */
std::string history_file() {
    const char *state = std::getenv("XDG_STATE_HOME");
    const char *home = std::getenv("HOME");
    std::filesystem::path directory = state == nullptr ? "" : state;
    if (!directory.is_absolute() && home != nullptr) directory = std::filesystem::path(home) / ".local/state";
    if (!directory.is_absolute()) return "";
    directory /= "natctl";
    const mode_t before = umask(S_IRWXG | S_IRWXO);
    std::error_code failed;
    std::filesystem::create_directories(directory, failed);
    umask(before);
    return failed ? "" : directory / "history";
}

volatile std::sig_atomic_t was_interrupted = 0;
sigset_t mask_while_waiting; /* SIGINT is unblocked only with this mask */

/** For the line editor: returns the next byte typed, or -1 at the end of the input and after an interrupt. */
int next_byte(FILE *) {
    pollfd typed{STDIN_FILENO, POLLIN, 0};
    unsigned char byte = 0;
    const bool has_byte =
        ppoll(&typed, 1, nullptr, &mask_while_waiting) > 0 && ::read(STDIN_FILENO, &byte, sizeof byte) > 0;
    return has_byte ? byte : -1;
}

termios settings_before; /* of the terminal */

/** For signals that end the program: restores the terminal first. */
void end_by(int number) {
    tcsetattr(STDIN_FILENO, TCSANOW, &settings_before);
    std::signal(number, SIG_DFL);
    raise(number);
}

/** Reads lines typed at a terminal, and restores the terminal's settings at the end. During its lifetime an interrupt
 * only clears the line. */
class prompt_t {
public:
    explicit prompt_t(std::string text) : text_(std::move(text)), history_(history_file()) {
        tcgetattr(STDIN_FILENO, &settings_before);
        for (const int number : {SIGTERM, SIGHUP, SIGQUIT}) {
            std::signal(number, end_by);
        }
        rl_catch_signals = 0;
        rl_getc_function = next_byte; /* must be set before the first other call */
        rl_attempted_completion_function = complete_word;
        using_history();
        stifle_history(history_lines);
        if (!history_.empty()) read_history(history_.c_str());
        sigset_t interrupts;
        sigemptyset(&interrupts);
        sigaddset(&interrupts, SIGINT);
        sigprocmask(SIG_BLOCK, &interrupts, &mask_before_);
        mask_while_waiting = mask_before_;
        sigdelset(&mask_while_waiting, SIGINT);
        struct sigaction interrupt {};
        interrupt.sa_handler = [](int) { was_interrupted = 1; };
        sigaction(SIGINT, &interrupt, &before_);
    }
    ~prompt_t() {
        rl_deprep_terminal();
        tcsetattr(STDIN_FILENO, TCSADRAIN, &settings_before); /* because the line editor leaves the echo off */
        for (const int number : {SIGTERM, SIGHUP, SIGQUIT}) {
            std::signal(number, SIG_DFL);
        }
        std::signal(SIGINT, SIG_IGN); /* drops an interrupt that came with the end of the input */
        sigaction(SIGINT, &before_, nullptr);
        sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    }
    prompt_t(const prompt_t &) = delete;
    prompt_t &operator=(const prompt_t &) = delete;

    bool read(std::string &line) {
        was_interrupted = 0;
        rl_prep_terminal(1); /* before the prompt, so that the terminal does not handle keys typed at it */
        std::unique_ptr<char, decltype(&std::free)> typed(readline(text_.c_str()), std::free);
        const bool has_ended = typed == nullptr && was_interrupted == 0;
        if (typed == nullptr) std::cout << std::endl;
        if (has_ended) return false;
        line = typed == nullptr ? "" : typed.get();
        if (line.find_first_not_of(" \t") != std::string::npos) remember(line);
        return true;
    }

private:
    /** Saves the line at once, so that a killed shell loses nothing. */
    void remember(const std::string &line) {
        add_history(line.c_str());
        if (!history_.empty()) write_history(history_.c_str());
    }

    const std::string text_;
    std::string history_;
    struct sigaction before_ {};
    sigset_t mask_before_{};
};

bool is_end(const std::string &line) {
    return line == "exit" || line == "quit";
}

}  // namespace

next_line_fn_t shell_lines(std::istream &input, const std::string &server) {
    const bool is_terminal = &input == &std::cin && isatty(STDIN_FILENO) != 0;
    if (is_terminal) {
        auto prompt = std::make_shared<prompt_t>(server.empty() ? "natctl> " : "natctl " + server + "> ");
        return [prompt](std::string &line) { return prompt->read(line) && !is_end(line); };
    }
    auto next = lines_of(input, {"shell", "standard input"});
    return [next](std::string &line) { return next(line) && !is_end(line); };
}
