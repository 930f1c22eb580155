/* Implements screen.h with escape sequences that all present terminals support, on the terminal's alternate screen. */
#include "tools/natctl/screen.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <string>

namespace {

/* Escape sequences: alternate screen with hidden cursor, and back; cursor home; clear to the end of the line; clear to
 * the end of the screen. */
constexpr std::string_view other_screen = "\x1b[?1049h\x1b[?25l";
constexpr std::string_view first_screen = "\x1b[?25h\x1b[?1049l";
constexpr std::string_view home = "\x1b[H";
constexpr std::string_view clear_line = "\x1b[K";
constexpr std::string_view clear_below = "\x1b[J";

}  // namespace

screen_t::window_t screen_t::size() {
    winsize window{};
    const bool is_known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_col != 0 && window.ws_row != 0;
    return is_known ? window_t{window.ws_col, window.ws_row} : window_t{80, 24};
}

bool screen_t::show(std::string_view page) {
    std::string out(home);
    for (bool is_first = true; !page.empty(); is_first = false) {
        const std::string_view line = page.substr(0, page.find('\n'));
        page.remove_prefix(line.size() + 1);
        /* No line feed after the last line, because it would scroll the last row. */
        out.append(is_first ? "" : "\r\n").append(line).append(clear_line);
    }
    return put(out.append(clear_below));
}

void screen_t::stop() {
    leave();
    kill(getpid(), SIGSTOP);
    enter();
}

void screen_t::enter() {
    has_keys_ = tcgetattr(STDIN_FILENO, &before_) == 0;
    if (has_keys_) {
        termios silent = before_;
        silent.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        tcsetattr(STDIN_FILENO, TCSANOW, &silent);
    }
    put(other_screen);
}

void screen_t::leave() {
    put(first_screen);
    if (has_keys_) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
}

bool screen_t::put(std::string_view text) {
    while (!text.empty() && is_seen_) {
        const ssize_t size = write(STDOUT_FILENO, text.data(), text.size());
        is_seen_ = size > 0 || errno == EINTR;
        text.remove_prefix(size > 0 ? static_cast<size_t>(size) : 0);
    }
    return is_seen_;
}
