#include "tools/natctl/batch.h"

#include <deque>

namespace {

bool has_command(const std::string &line) {
    size_t start = line.find_first_not_of(" \t\r");
    return start != std::string::npos && line[start] != '#';
}

class batch_t {
public:
    batch_t(line_parser_t &parser, line_source_t source, const options_t &options, pal_t &pal, output_t &output)
        : parser_(parser), is_shell_(source == line_source_t::shell), options_(options), pal_(pal), output_(output) {}

    void take(const std::string &text) {
        if (!is_shell_) ++line_;
        if (is_stopped()) {
            not_run_ += has_command(text) ? 1 : 0;
            return;
        }
        try {
            const std::optional<command_t> command = parser_.parse(text);
            if (!command.has_value()) return;
            started_.push_back(pal_.start(*command, line_));
        } catch (const usage_error_t &error) {
            refuse(error);
        } catch (const help_request_t &help) {
            output_.note(help.text);
        }
        finish_down_to(options_.pipeline - 1);
    }

    status_t end() {
        finish_down_to(0);
        bool has_failed = first_failure_ != status_t::ok && !is_shell_;
        if (has_failed) {
            output_.note("natctl: " + std::to_string(done_) + " commands done, " + std::to_string(failed_) +
                         " failed, " + std::to_string(not_run_) + " not run");
        }
        return first_failure_;
    }

private:
    bool is_stopped() const { return first_failure_ != status_t::ok && !options_.keep_going && !is_shell_; }

    void refuse(const usage_error_t &error) {
        finish_down_to(0);
        outcome_t outcome;
        outcome.command = error.command;
        outcome.line = line_;
        outcome.status = status_t::usage;
        outcome.error = error.text;
        report(outcome);
    }

    void finish_down_to(size_t most_started) {
        while (started_.size() > most_started) {
            pal_t::call_id_t id = started_.front();
            started_.pop_front();
            report(pal_.finish(id));
        }
    }

    void report(const outcome_t &outcome) {
        output_.report(outcome);
        bool is_done = outcome.status == status_t::ok;
        ++(is_done ? done_ : failed_);
        if (!is_done && first_failure_ == status_t::ok) first_failure_ = outcome.status;
    }

    line_parser_t &parser_;
    bool is_shell_;
    const options_t &options_;
    pal_t &pal_;
    output_t &output_;
    std::deque<pal_t::call_id_t> started_;
    uint32_t line_ = 0;
    size_t done_ = 0;
    size_t failed_ = 0;
    size_t not_run_ = 0;
    status_t first_failure_ = status_t::ok;
};

}  // namespace

status_t run_batch(line_parser_t &parser, line_source_t source, const next_line_fn_t &next_line,
                   const options_t &options, pal_t &pal, output_t &output) {
    batch_t batch(parser, source, options, pal, output);
    std::string line;
    while (next_line(line)) {
        batch.take(line);
    }
    return batch.end();
}
