/*
 * Implements batch.h. With --pipeline, several commands are outstanding at a time. They are answered in order, and the
 * first failure stops the batch only after the outstanding ones are finished.
 */
#include "tools/natctl/batch.h"

#include <cerrno>
#include <cstring>
#include <deque>

#include "tools/natctl/interrupt.h"
#include "tools/natctl/line_joiner.h"

namespace {

constexpr size_t longest_line = size_t{1} << 20; /* in bytes, also for joined lines */

usage_error_t too_long(const usage_error_t &name) {
    return {name.command, name.text + ": a line is longer than " + std::to_string(longest_line) + " bytes"};
}

class batch_t {
public:
    batch_t(line_parser_t &parser, const line_source_t &source, const options_t &options, pal_t &pal, output_t &output)
        : parser_(parser),
          source_(source.name),
          is_shell_(source.is_shell),
          options_(options),
          pal_(pal),
          output_(output) {
        if (!is_shell_) interrupt_.emplace(pal.loop());
    }

    /** Takes the next line of the input. False: the input ends here, because its joined line is too long. */
    bool read(std::string &text) {
        bool is_whole = true;
        if (!is_shell_) {
            is_whole = joiner_.join(text);
            line_ = joiner_.line();
            if ((is_whole ? text : joiner_.rest()).size() > longest_line) {
                fail(too_long(source_), line_);
                return false;
            }
        }
        if (is_whole) take(text);
        return true;
    }

    /** Ends an input whose next line cannot be read. */
    void fail(const usage_error_t &error) { fail(error, is_shell_ ? 0 : joiner_.count() + 1); }

    status_t end() {
        if (!joiner_.rest().empty()) take(joiner_.rest());
        finish_down_to(0);
        end_change();
        const bool is_interrupted = was_interrupted();
        if (is_interrupted && first_failure_ == status_t::ok) first_failure_ = status_t::usage;
        bool has_failed = first_failure_ != status_t::ok && !is_shell_;
        if (has_failed) {
            const std::string unanswered =
                unanswered_ == 0 ? "" : ", " + std::to_string(unanswered_) + " without an answer";
            output_.note(std::string("natctl: ") + (is_interrupted ? "interrupted: " : "") +
                         count_text(done_, "command") + " done, " + std::to_string(failed_) + " failed, " +
                         std::to_string(not_run_) + " not run" + unanswered);
        }
        return first_failure_;
    }

private:
    void fail(const usage_error_t &error, uint32_t line) {
        joiner_ = {}; /* a command that is cut off must not be sent */
        line_ = line;
        refuse(error);
    }

    void take(const std::string &text) {
        /* Checked first, because starting more commands without a server is useless. */
        const bool must_look = !is_shell_ && !started_.empty() && pal_.has_lost_server();
        if (must_look) finish_down_to(0);
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
        if (is_shell_) {
            finish_down_to(0);
            end_change();
            output_.flush();
        } else if (started_.size() >= options_.pipeline) {
            finish_down_to(options_.pipeline / 2); /* many at a time, because each wait may wake both processes */
        }
    }

    void end_change() {
        const std::string error = pal_.end_change();
        if (error.empty()) return;
        output_.note("natctl: " + error);
        if (first_failure_ == status_t::ok) first_failure_ = status_t::usage;
    }
    bool was_interrupted() const { return interrupt_.has_value() && interrupt_->is_raised(); }
    bool is_stopped() const {
        const bool ends_at_failure = first_failure_ != status_t::ok && !options_.keep_going && !is_shell_;
        return ends_at_failure || is_server_lost_ || was_interrupted();
    }

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
            if (is_server_lost_ && !pal_.has_verdict(id)) {
                ++(pal_.abandon(id) ? unanswered_ : not_run_);
                continue;
            }
            const outcome_t outcome = pal_.finish(id);
            const bool has_no_server = outcome.status == status_t::no_server && !is_shell_;
            is_server_lost_ = is_server_lost_ || (has_no_server && pal_.has_lost_server());
            report(outcome);
        }
    }

    void report(const outcome_t &outcome) {
        const status_t status = output_.report(outcome);
        ++(status == status_t::ok ? done_ : failed_);
        if (first_failure_ == status_t::ok) first_failure_ = status;
        output_.progress(done_, failed_);
    }

    line_parser_t &parser_;
    const usage_error_t &source_;
    bool is_shell_;
    const options_t &options_;
    pal_t &pal_;
    output_t &output_;
    std::deque<pal_t::call_id_t> started_;
    line_joiner_t joiner_; /* of a file */
    uint32_t line_ = 0;    /* the line at which the command begins */
    size_t done_ = 0;
    size_t failed_ = 0;
    size_t not_run_ = 0;
    size_t unanswered_ = 0;
    bool is_server_lost_ = false;          /* the remaining commands are neither sent nor waited for */
    std::optional<interrupt_t> interrupt_; /* empty in the shell, which has its own */
    status_t first_failure_ = status_t::ok;
};

}  // namespace

next_line_fn_t lines_of(std::istream &stream, const usage_error_t &name) {
    return [&stream, name, room = std::string(longest_line + 2, '\0')](std::string &line) mutable {
        errno = 0;
        const bool is_read = static_cast<bool>(stream.getline(room.data(), static_cast<std::streamsize>(room.size())));
        if (!is_read && stream.bad()) {
            throw usage_error_t{name.command, name.text + ": " + std::strerror(errno == 0 ? EIO : errno)};
        }
        if (!is_read && !stream.eof()) throw too_long(name);
        const auto taken = static_cast<size_t>(stream.gcount());
        if (is_read) line.assign(room, 0, stream.eof() ? taken : taken - 1);
        return is_read;
    };
}

status_t run_batch(line_parser_t &parser, const line_source_t &source, const next_line_fn_t &next_line,
                   const options_t &options, pal_t &pal, output_t &output) {
    batch_t batch(parser, source, options, pal, output);
    try {
        for (std::string line; next_line(line) && batch.read(line);) {
        }
    } catch (const usage_error_t &error) {
        batch.fail(error);
    }
    return batch.end();
}
