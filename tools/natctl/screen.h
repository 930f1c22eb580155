/* Shows pages on the terminal, one after the other, and restores the terminal afterwards. */
#ifndef TOOLS_NATCTL_SCREEN_H
#define TOOLS_NATCTL_SCREEN_H

#include <termios.h>

#include <cstddef>
#include <string_view>

/** There is at most one. It uses the terminals of standard output and, if that is a terminal, of standard input. */
class screen_t {
public:
    screen_t() { enter(); }
    ~screen_t() { leave(); }
    screen_t(const screen_t &) = delete;
    screen_t &operator=(const screen_t &) = delete;

    struct window_t {
        size_t width;
        size_t height;
    };
    /** The present size of the window. */
    static window_t size();
    /** Shows lines that fit the window, each with its line feed. False: writing to the terminal failed. */
    bool show(std::string_view page);
    /** Restores the terminal and stops the process as Ctrl-Z does. Returns when the process continues. */
    void stop();
    /** True if standard input is a terminal. */
    bool has_keys() const { return has_keys_; }

private:
    void enter();
    void leave();
    bool put(std::string_view text);

    termios before_{};
    bool has_keys_ = false;
    bool is_seen_ = true;
};

#endif
