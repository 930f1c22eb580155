/* A terminal that shows one page after the other, and is afterwards as it was before. */
#ifndef TOOLS_NATCTL_SCREEN_H
#define TOOLS_NATCTL_SCREEN_H

#include <termios.h>

#include <cstddef>
#include <string_view>

/** One at a time, for standard output and, if that is one too, the terminal that is standard input. */
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
    /** Of the window, now. */
    static window_t size();
    /** Shows lines, each with its line feed, that fit the window. False: nobody sees them any more. */
    bool show(std::string_view page);
    /** Stops the process as Ctrl-Z does, with the terminal as it was; returns when it goes on. */
    void stop();
    /** Whether keys come from standard input. */
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
