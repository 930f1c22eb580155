/* Implements top_command.h. One loop waits for keys, signals, the server's answer and the next refresh. */
#include "tools/natctl/top_command.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <optional>

#include "fwx_host/loop.h"
#include "tools/natctl/screen.h"
#include "tools/natctl/top.h"
#include "tools/natctl/top_server.h"
#include "tools/signals.h"

namespace {

/** Looks at the server at intervals, and shows each result on the terminal or passes it to `output`. */
class live_t {
public:
    live_t(top_server_t &server, uint64_t interval_ms, bool is_terminal, output_t &output)
        : server_(server), interval_ms_(interval_ms), output_(output) {
        if (is_terminal) screen_.emplace();
        has_keys_ = screen_ && screen_->has_keys();
    }

    void run() {
        begin();
        while (!has_ended_) {
            pollfd waited[] = {
                {server_.fd(), POLLIN, 0}, {signals_.fd(), POLLIN, 0}, {has_keys_ ? STDIN_FILENO : -1, POLLIN, 0}};
            poll(waited, std::size(waited), timeout_ms(server_.timeout_ms()));
            for (int number = signals_.take(); number != 0; number = signals_.take()) {
                take_signal(number);
            }
            if (waited[2].revents != 0) take_key();
            server_.process();
            take_look();
            if (!is_looking_ && fwx_host_clock_ms() >= next_ms_) begin();
        }
    }

private:
    void begin() {
        next_ms_ = fwx_host_clock_ms() + interval_ms_;
        is_looking_ = true;
        server_.begin();
        take_look();
    }

    /** The time until the binding has something to do, or the next look is due. */
    int timeout_ms(int of_server) const {
        const uint64_t now = fwx_host_clock_ms();
        const uint64_t left = next_ms_ > now ? next_ms_ - now : 0;
        const int until_next = is_looking_ ? -1 : static_cast<int>(std::min<uint64_t>(left, INT32_MAX));
        if (of_server < 0 || until_next < 0) return std::max(of_server, until_next);
        return std::min(of_server, until_next);
    }

    void take_look() {
        std::optional<top_look_t> look = server_.take();
        if (!look) return;
        is_looking_ = false;
        const bool is_answer = look->problem.empty();
        if (is_answer) {
            shown_ = std::move(*look);
        } else { /* the last result stays, with its time */
            shown_.source = look->source;
            shown_.problem = "trying again: " + look->problem;
        }
        if (screen_) return show();
        output_.print_event(top_json(is_answer ? shown_ : *look));
        has_ended_ = !output_.flush() || has_ended_;
    }

    void show() {
        const screen_t::window_t window = screen_t::size();
        has_ended_ = !screen_->show(top_page(shown_, window.width, window.height)) || has_ended_;
    }

    void take_signal(int number) {
        if (number == SIGTSTP && screen_) screen_->stop();
        if (number == SIGTSTP && !screen_) kill(getpid(), SIGSTOP);
        const bool needs_page = number == SIGWINCH || number == SIGTSTP;
        if (needs_page && screen_) return show();
        has_ended_ = has_ended_ || !needs_page;
    }

    void take_key() {
        char key = 0;
        const ssize_t size = read(STDIN_FILENO, &key, 1);
        has_keys_ = size > 0;
        has_ended_ = has_ended_ || key == 'q' || key == 'Q';
    }

    top_server_t &server_;
    uint64_t interval_ms_;
    output_t &output_;
    const signals_t signals_{SIGINT, SIGTERM, SIGHUP, SIGWINCH, SIGTSTP};
    std::optional<screen_t> screen_;
    bool has_keys_ = false;
    bool is_looking_ = false;
    bool has_ended_ = false;
    uint64_t next_ms_ = 0; /* when the next look is due */
    top_look_t shown_;
};

top_look_t look_once(top_server_t &server) {
    server.begin();
    std::optional<top_look_t> look = server.take();
    while (!look) {
        pollfd waited = {server.fd(), POLLIN, 0};
        poll(&waited, 1, server.timeout_ms());
        server.process();
        look = server.take();
    }
    return std::move(*look);
}

}  // namespace

outcome_t top(const top_options_t &wanted, const options_t &options, bool is_terminal, output_t &output) {
    top_server_t server(options);
    const bool is_text = options.format == format_t::text;
    const bool is_live = !wanted.is_once && (is_text ? is_terminal : options.format == format_t::jsonl);
    outcome_t outcome;
    outcome.command = "top";
    if (is_live) {
        output.quiet(); /* the user ended it, so no "ok" */
        live_t(server, wanted.interval_ms, is_text, output).run();
        return outcome;
    }
    const top_look_t look = look_once(server);
    const bool has_answer = look.problem.empty();
    if (has_answer && is_text) outcome.text = top_page(look, SIZE_MAX, top_any_height);
    if (has_answer && !is_text) outcome.data = top_json(look);
    if (!has_answer) refuse(outcome, status_t::no_server, 0, look.source + ": " + look.problem);
    return outcome;
}
