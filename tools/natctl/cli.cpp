#include "tools/natctl/cli.h"

#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "fwx_host/capture.h"
#include "fwx_host/errors.h"
#include "tools/natctl/batch.h"
#include "tools/natctl/completion.h"
#include "tools/natctl/daemon_command.h"
#include "tools/natctl/grammar.h"
#include "tools/natctl/interrupt.h"
#include "tools/natctl/pal.h"
#include "tools/natctl/serve.h"
#include "tools/natctl/shell.h"
#include "tools/natctl/top_command.h"
#include "tools/natctl/watch.h"

namespace {

/** Waits for standard input as long as nobody interrupts; false when somebody did. What was started goes out first. */
bool wait_for_line(std::istream &input, const pal_t &pal) {
    const bool must_wait = &input == &std::cin && input.rdbuf()->in_avail() <= 0;
    if (!must_wait) return true;
    fwx_host_loop_run_until_idle(pal.loop());
    return interrupt_wait_for(STDIN_FILENO);
}

/** The format that the words ask for, known also when they make no valid command line. */
format_t format_of(const std::vector<std::string> &words) {
    struct name_t {
        const char *option;
        format_t format;
    };
    for (const name_t &name :
         {name_t{"--json", format_t::json}, name_t{"--jsonl", format_t::jsonl}, name_t{"--csv", format_t::csv}}) {
        if (std::find(words.begin(), words.end(), name.option) != words.end()) return name.format;
    }
    return format_t::text;
}

void add_output_options(CLI::App &app, options_t &options) {
    CLI::Option *json = app.add_flag("--json")->description("One JSON document: an object, or an array for a batch");
    CLI::Option *jsonl = app.add_flag("--jsonl")->description("One JSON object a line, rows of sessions as they come");
    CLI::Option *csv =
        app.add_flag("--csv")->description("One table of comma-separated values; a batch with a second is refused");
    json->excludes(jsonl)->excludes(csv);
    jsonl->excludes(csv);
    app.add_flag("--quiet", options.quiet, "Leaves out what only says that all is well");
}

void add_client_options(CLI::App &app, options_t &options) {
    app.add_flag("--trace", options.trace, "Shows each message sent and received");
    app.add_option("--capture", options.capture, "Writes each message sent and received to a pcap file")
        ->type_name("FILE");
    app.add_flag("--dry-run", options.dry_run, "Checks and encodes, and shows the message instead of sending it");
    app.add_flag("--keep-going", options.keep_going, "Goes on after a failure in a batch");
    number_field(app, "--pipeline", options.pipeline, "commands of a batch that may wait for answers at a time", 1);
    number_field(app, "--timeout", options.timeout_ms, "milliseconds to wait for an answer, 5000 without it", 1,
                 INT32_MAX);
    auto connect = [&options](const std::string &name) {
        const std::string error = name.empty() ? record_field_error("--connect", name, "the name of a server") : "";
        if (!error.empty()) throw CLI::ValidationError(error, CLI::ExitCodes::ValidationError);
        options.connect = name;
    };
    app.add_option_function<std::string>("--connect", connect,
                                         "The server process of that name, not the embedded model")
        ->type_name("SERVER");
    number_field(app, "--debug-level", options.debug_level, "debug level of the library: 0 silent to 4 trace", 0, 4);
}

outcome_t usage_outcome(const usage_error_t &error) {
    outcome_t outcome;
    outcome.command = error.command;
    outcome.status = status_t::usage;
    outcome.error = error.text;
    return outcome;
}

/** A command line as parsed: either a command or what comes line by line. */
class command_line_t {
public:
    command_line_t() : root_("Drives the NAT64 service through the client library", "natctl"), grammar_(root_) {
        root_.set_version_flag("--version", "natctl " NATCTL_VERSION "\n", "Prints the version");
        root_.fallthrough();
        for (CLI::App *group : root_.get_subcommands([](CLI::App *) { return true; })) {
            fall_through(*group);
        }
        add_client_options(root_, options);
        batch_ = root_.add_subcommand(
            "batch", "Carries out the commands of a file, one a line; a backslash at its end joins the next");
        batch_->add_option("file", file, "the file, - for standard input")->required()->type_name("FILE");
        serve_ = root_.add_subcommand("serve", "Runs the server model as a process of its own, until a signal ends it");
        serve_->add_option("name", serve.name, "the name that --connect takes")->required()->type_name("NAME");
        serve_->add_option("--state", serve.state_file, "file that keeps the configuration over restarts")
            ->type_name("FILE");
        for (CLI::Option *option : root_.get_options()) {
            const bool is_for_servers = option == root_.get_help_ptr() || option == root_.get_version_ptr() ||
                                        option == root_.get_option("--capture");
            if (!is_for_servers) serve_->excludes(option);
        }
        add_output_options(root_, options);
        shell_ = root_.add_subcommand("shell", "Carries out commands typed at a prompt");
        watch_ = root_.add_subcommand("watch", "Shows what the server of --connect sends unasked, until an interrupt");
        add_top();
        daemon_ = root_.add_subcommand("daemon", "Asks the nat64d that keeps the server of --connect");
        daemon_->add_subcommand("status", "Shows what is in force, and whether the server is in step with it");
        daemon_->add_subcommand("replay", "Gives the server the whole document again, whatever it holds");
        daemon_->add_subcommand("reload", "Reads the document's file again");
        daemon_->require_subcommand(1);
        fall_through(*daemon_);
        completion_ = root_.add_subcommand("completion", "Prints what makes a shell complete natctl's commands");
        completion_->add_subcommand("bash", "For bash");
        completion_->require_subcommand(1);
        for (CLI::App *line_command : {batch_, shell_, watch_, top_}) {
            line_command->fallthrough();
        }
    }

    /** Returns what is wrong with the words, or an outcome that is ok. */
    outcome_t parse(const std::vector<std::string> &words) {
        options.format = format_of(words);
        try {
            command = grammar_.parse(words);
        } catch (const usage_error_t &error) {
            return usage_outcome(error);
        } catch (const help_request_t &help) {
            text = help.text;
        }
        if (completion_->parsed()) text = bash_completion;
        const bool has_lines = (is_serve() || is_watch()) && options.format == format_t::json;
        if (has_lines) options.format = format_t::jsonl;
        if (is_daemon() && !text.has_value() && options.connect.empty()) {
            return usage_outcome({"daemon", "needs --connect"});
        }
        const bool can_look = !options.connect.empty() && !options.dry_run && options.format != format_t::csv;
        if ((is_watch() || is_top()) && !text.has_value() && !can_look) {
            return usage_outcome({is_top() ? "top" : "watch", "needs --connect, and is no table and no dry run"});
        }
        return {};
    }
    /** Answers what may come next behind the words. */
    void complete(const std::vector<std::string> &words) {
        text.emplace();
        for (const std::string &word : completions(root_, words)) {
            *text += word + '\n';
        }
    }
    bool is_batch() const { return batch_->parsed(); }
    bool is_shell() const { return shell_->parsed(); }
    bool is_serve() const { return serve_->parsed(); }
    bool is_watch() const { return watch_->parsed(); }
    bool is_top() const { return top_->parsed(); }
    bool is_daemon() const { return daemon_->parsed(); }
    std::string daemon_verb() const { return daemon_->get_subcommands().front()->get_name(); }
    bool has_many() const { return !text.has_value() && (is_batch() || is_shell()); }

    command_t command; /* as parsed; without a name when it is none of the grammar's */
    options_t options;
    serve_options_t serve;
    top_options_t top;
    std::string file;
    std::optional<std::string> text; /* that is the whole answer */
    bool is_terminal = false;        /* answers go to one, which is standard output */

private:
    void add_top() {
        top_ = root_.add_subcommand("top", "Shows how the server of --connect does, until q or an interrupt");
        const auto read = [this](const std::string &word) { return read_interval(word, top.interval_ms); };
        text_field(*top_, "--interval", read, "time between two looks, 1s without it", "TIME");
        flag_field(*top_, "--once", top.is_once, "looks once");
    }

    /** Options of natctl itself may also follow the command. */
    static void fall_through(CLI::App &app) {
        app.fallthrough();
        for (CLI::App *verb : app.get_subcommands([](CLI::App *) { return true; })) {
            fall_through(*verb);
        }
    }

    CLI::App root_;
    grammar_t grammar_;
    CLI::App *batch_;
    CLI::App *serve_;
    CLI::App *shell_;
    CLI::App *watch_;
    CLI::App *top_;
    CLI::App *daemon_;
    CLI::App *completion_;
};

status_t run_file(const command_line_t &line, std::istream &input, pal_t &pal, output_t &output) {
    const bool is_file = line.file != "-";
    std::ifstream file;
    if (is_file) file.open(line.file);
    const bool is_open = !is_file || file.is_open();
    if (!is_open) return output.report(usage_outcome({"batch", line.file + ": " + std::strerror(errno)}));
    line_parser_t parser;
    const usage_error_t source = {"batch", is_file ? line.file : "standard input"};
    std::istream &stream = is_file ? file : input;
    const next_line_fn_t lines = lines_of(stream, source);
    const next_line_fn_t next = [&](std::string &text) { return wait_for_line(stream, pal) && lines(text); };
    return run_batch(parser, line_source_t::file, next, line.options, pal, output);
}

status_t run_command(const command_line_t &line, std::istream &input, output_t &output) {
    pal_t pal(line.options, [&output](const std::string &text) { output.note(text); });
    if (!line.has_many() && !line.is_watch()) {
        if (const std::optional<outcome_t> outcome = pal.without_server(line.command)) return output.report(*outcome);
    }
    if (line.is_watch()) return output.report(watch(pal, output));
    const bool needs_server = line.has_many() || line.is_watch() || line.command.needs_server;
    const outcome_t bound = needs_server ? pal.bind() : outcome_t{};
    if (bound.status != status_t::ok) return output.report(bound);
    bool streams_rows = line.options.format != format_t::json && line.options.pipeline == 1;
    auto stream = [&output](const outcome_t &of, const wire_message_t &reply, const void *entries, uint32_t count) {
        output.stream_entries(of, reply, entries, count);
    };
    if (streams_rows) pal.stream_rows(stream);
    if (line.is_batch()) pal.name_changes("batch " + line.file);
    if (line.is_batch()) return run_file(line, input, pal, output);
    if (line.is_shell()) {
        line_parser_t parser;
        return run_batch(parser, line_source_t::shell, shell_lines(input), line.options, pal, output);
    }
    outcome_t outcome = pal.finish(pal.start(line.command, 0));
    refuse_unkept(outcome, pal.end_change());
    const status_t status = output.report(outcome);
    return status == status_t::ok && outcome.differs ? status_t::refused : status;
}

status_t run_uncaptured(const command_line_t &line, std::istream &input, output_t &output) {
    if (line.is_top()) return output.report(top(line.top, line.options, line.is_terminal, output));
    return line.is_serve() ? output.report(serve(line.serve, output)) : run_command(line, input, output);
}

/** As run_uncaptured, with the messages captured if the user wants them to be. */
status_t run_captured(const command_line_t &line, std::istream &input, output_t &output) {
    if (!line.options.capture.has_value()) return run_uncaptured(line, input, output);
    const std::string &file = *line.options.capture;
    uint32_t code = fwx_host_capture_open(file.c_str());
    if (code != 0) return output.report(usage_outcome({"", "--capture " + file + ": " + xerr_strerror(code)}));
    status_t status = run_uncaptured(line, input, output);
    code = fwx_host_capture_close();
    if (code == 0) return status;
    output.note("natctl: --capture " + file + ": incomplete: " + xerr_strerror(code));
    return status == status_t::ok ? status_t::usage : status;
}

/** Whether somebody looks at the notes of a batch but not at its answers. */
bool is_progress_seen(const std::ostream &notes) {
    return &notes == &std::cerr && isatty(STDERR_FILENO) != 0 && isatty(STDOUT_FILENO) == 0;
}

status_t run(const command_line_t &line, std::istream &input, output_t &output) {
    if (!line.text.has_value() && line.is_daemon()) {
        return output.report(ask_daemon(line.daemon_verb(), line.options));
    }
    if (!line.text.has_value()) return run_captured(line, input, output);
    output.print(*line.text);
    return status_t::ok;
}

}  // namespace

int run_natctl(const std::vector<std::string> &words, std::istream &input, std::ostream &answers, std::ostream &notes) {
    fwx_nat64_model_t::add_error_texts();
    command_line_t line;
    outcome_t parsed;
    const bool asks_completions = !words.empty() && words.front() == "complete";
    if (asks_completions) {
        line.complete({words.begin() + 1, words.end()});
    } else {
        parsed = line.parse(words);
    }
    line.is_terminal = &answers == &std::cout && isatty(STDOUT_FILENO) != 0;
    output_t output(line.options.format, line.has_many(), answers, notes);
    if (line.options.quiet) output.quiet();
    if (line.is_batch() && is_progress_seen(notes)) output.show_progress();
    return static_cast<int>(
        output.end(parsed.status == status_t::ok ? run(line, input, output) : output.report(parsed)));
}
