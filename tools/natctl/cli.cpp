/*
 * Implements cli.h: parses natctl's own options and runs one of its modes: a single command, batch, shell, serve,
 * watch, top, daemon or completion. The grammar (grammar.h) has all commands that go to the library.
 */
#include "tools/natctl/cli.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>

#include "fwx_host/capture.h"
#include "fwx_host/errors.h"
#include "model/model.h"
#include "state/read_file.h"
#include "tools/natctl/batch.h"
#include "tools/natctl/completion.h"
#include "tools/natctl/daemon_command.h"
#include "tools/natctl/grammar.h"
#include "tools/natctl/interrupt.h"
#include "tools/natctl/pal.h"
#include "tools/natctl/serve.h"
#include "tools/natctl/server_place.h"
#include "tools/natctl/shell.h"
#include "tools/natctl/top_command.h"
#include "tools/natctl/watch.h"

namespace {

/** Waits for the lines of a batch. */
class line_waiter_t {
public:
    /** Opens the file of `input` once more, because a stream does not tell its descriptor. */
    line_waiter_t(std::istream &input, const std::string &file)
        : input_(input),
          fd_(&input == &std::cin ? STDIN_FILENO : open(file.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)) {}
    ~line_waiter_t() {
        if (fd_ > STDERR_FILENO) close(fd_);
    }
    line_waiter_t(const line_waiter_t &) = delete;
    line_waiter_t &operator=(const line_waiter_t &) = delete;

    /** False if an interrupt came first. Sends the started commands before it waits. */
    bool wait(const pal_t &pal) const {
        const bool must_wait = fd_ >= 0 && input_.rdbuf()->in_avail() <= 0;
        if (!must_wait) return true;
        fwx_host_loop_run_until_idle(pal.loop());
        return interrupt_wait_for(fd_);
    }

private:
    std::istream &input_;
    const int fd_;
};

/** The format that the words ask for. Works on invalid command lines too, because their errors are shown in that
 * format.
 */
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

option_spec_t &format_flag(command_spec_t &root, const char *option, const char *meaning) {
    option_spec_t spec;
    spec.names = option;
    spec.meaning = meaning;
    return root.add(std::move(spec)); /* only for the help and for errors; format_of reads it */
}

void add_output_options(command_spec_t &root, options_t &options) {
    const option_spec_t &json = format_flag(root, "--json", "One JSON document: an object, or an array for a batch");
    const option_spec_t &jsonl =
        format_flag(root, "--jsonl", "One JSON object a line, rows of sessions as they arrive").excludes(json);
    format_flag(root, "--csv", "One table of comma-separated values; a batch with a second is refused")
        .excludes(json)
        .excludes(jsonl);
    flag_field(root, "--quiet", options.quiet, "Omits messages that only say that all is well");
}

void add_client_options(command_spec_t &root, options_t &options) {
    flag_field(root, "--trace", options.trace, "Shows each message sent and received");
    const auto capture = [&options](const std::string &file) {
        options.capture = file;
        return std::string();
    };
    text_field(root, "--capture", capture, "Writes each message sent and received to a pcap file", "FILE");
    flag_field(root, "--dry-run", options.dry_run, "Checks and encodes, and shows the message instead of sending it");
    flag_field(root, "--keep-going", options.keep_going, "Continues a batch after a failure");
    number_field(root, "--pipeline", options.pipeline, "the most outstanding commands of a batch", 1);
    milliseconds_field(root, "--timeout", options.timeout_ms, "time to wait for an answer, 5s without it", 1,
                       INT32_MAX);
    const auto connect = [&options](const std::string &name) {
        options.connect = name;
        return name.empty() ? record_field_error("--connect", name, "the name of a server") : "";
    };
    text_field(root, "--connect", connect, "The name of a server process, by default NATCTL_CONNECT", "SERVER");
    number_field(root, "--debug-level", options.debug_level, "debug level of the library: 0 silent to 4 trace", 0, 4);
}

outcome_t usage_outcome(const usage_error_t &error) {
    outcome_t outcome;
    outcome.command = error.command;
    outcome.status = status_t::usage;
    outcome.error = error.text;
    return outcome;
}

/** A parsed command line: a command of the grammar or one of natctl's own modes. */
class command_line_t {
public:
    command_line_t() : grammar_(root_) {
        root_.name = "natctl";
        root_.version = "natctl " NATCTL_VERSION "\n";
        root_.summary = "Drives the NAT64 service through the client library";
        add_client_options(root_, options);
        command_spec_t &batch =
            add(mode_t::batch, "batch",
                "Runs the commands of a file, one a line; a backslash at the end of a line joins the next");
        word_field(batch, "file", file, "the file, - for standard input", "FILE").required();
        command_spec_t &served =
            add(mode_t::serve, "serve", "Runs the server model as a process of its own, until a signal ends it");
        word_field(served, "name", serve.name, "the name that --connect takes", "NAME").required();
        word_field(served, "--state", serve.state_file, "file that keeps the configuration over restarts", "FILE");
        served.takes_root_options = false;
        for (const option_spec_t &option : root_.options) {
            if (option.names != "--capture") served.others.push_back(option.names);
        }
        add_output_options(root_, options);
        add(mode_t::shell, "shell", "Runs commands typed at a prompt");
        add(mode_t::watch, "watch", "Shows the notifications of the server of --connect, until an interrupt");
        add_top();
        command_spec_t &daemon = root_.command("daemon", "Asks the nat64d of the server of --connect");
        for (const auto &[verb, summary] :
             {std::pair("status", "Shows the document in force, and whether the server is in sync with it"),
              std::pair("replay", "Reads the server, and sends what it lacks of the document in force"),
              std::pair("reload", "Reads the document's file again")}) {
            daemon.command(verb, summary, [this, verb = std::string(verb)](const std::string &) {
                mode_ = mode_t::daemon;
                daemon_verb_ = verb;
            });
        }
        command_spec_t &completion =
            root_.command("completion", "Prints a script that makes a shell complete natctl's commands");
        completion.takes_root_options = false;
        for (const shell_completion_t &of : shell_completions) {
            completion.command(of.shell, of.summary, [this, &of](const std::string &) { text = of.script; })
                .takes_root_options = false;
        }
    }

    /** Parses the words. Returns the error, or an outcome that is ok. */
    outcome_t parse(const std::vector<std::string> &words) {
        options.format = format_of(words);
        try {
            command = grammar_.parse(words);
        } catch (const usage_error_t &error) {
            return usage_outcome(error);
        } catch (const help_request_t &help) {
            text = help.text;
        }
        const char *server = std::getenv("NATCTL_CONNECT");
        const bool has_default = options.connect.empty() && server != nullptr;
        if (has_default) options.connect = server;
        const bool has_lines = (is_serve() || is_watch()) && options.format == format_t::json;
        if (has_lines) options.format = format_t::jsonl;
        if (is_daemon() && !text.has_value() && (options.connect.empty() || options.dry_run)) {
            return usage_outcome({"daemon", "needs --connect or NATCTL_CONNECT, and takes no --dry-run"});
        }
        const bool can_look = !options.connect.empty() && !options.dry_run && options.format != format_t::csv;
        if ((is_watch() || is_top()) && !text.has_value() && !can_look) {
            return usage_outcome({is_top() ? "top" : "watch",
                                  "needs --connect or NATCTL_CONNECT, and takes neither --csv nor --dry-run"});
        }
        return {};
    }
    /** Answers with the completions of the last word. */
    void complete(const std::vector<std::string> &words) {
        text.emplace();
        for (const std::string &word : completions(root_, words)) {
            *text += word + '\n';
        }
    }
    bool is_batch() const { return mode_ == mode_t::batch; }
    bool is_shell() const { return mode_ == mode_t::shell; }
    bool is_serve() const { return mode_ == mode_t::serve; }
    bool is_watch() const { return mode_ == mode_t::watch; }
    bool is_top() const { return mode_ == mode_t::top; }
    bool is_daemon() const { return mode_ == mode_t::daemon; }
    const std::string &daemon_verb() const { return daemon_verb_; }
    bool has_many() const { return !text.has_value() && (is_batch() || is_shell()); }

    command_t command; /* of the grammar; without a name if it is a mode of natctl */
    options_t options;
    serve_options_t serve;
    top_options_t top;
    std::string file;
    std::optional<std::string> text; /* the whole answer, if parsing already gave it */
    bool is_terminal = false;        /* answers go to standard output, which is a terminal */

private:
    enum class mode_t : uint8_t { command, batch, shell, serve, watch, top, daemon };

    command_spec_t &add(mode_t mode, const char *word, const char *summary) {
        return root_.command(word, summary, [this, mode](const std::string &) { mode_ = mode; });
    }

    void add_top() {
        command_spec_t &top_spec =
            add(mode_t::top, "top", "Shows the state of the server of --connect, until q or an interrupt");
        milliseconds_field(top_spec, "--interval", top.interval_ms, "time between two refreshes, 1s without it", 100,
                           86400000);
        flag_field(top_spec, "--once", top.is_once, "shows one page and ends");
    }

    command_spec_t root_;
    grammar_t grammar_;
    mode_t mode_ = mode_t::command;
    std::string daemon_verb_;
};

status_t run_file(const command_line_t &line, std::istream &input, pal_t &pal, output_t &output) {
    const bool is_file = line.file != "-";
    std::string fault;
    if (is_file) fault = line_input_fault(line.file);
    if (&input == &std::cin && !is_file) fault = line_input_fault(STDIN_FILENO, "standard input");
    if (!fault.empty()) return output.report(usage_outcome({"batch", fault}));
    std::ifstream file;
    if (is_file) file.open(line.file);
    const bool is_open = !is_file || file.is_open();
    if (!is_open) return output.report(usage_outcome({"batch", line.file + ": " + std::strerror(errno)}));
    line_parser_t parser;
    const line_source_t source = {{"batch", is_file ? line.file : "standard input"}};
    std::istream &stream = is_file ? file : input;
    const next_line_fn_t lines = lines_of(stream, source.name);
    const line_waiter_t waiter(stream, is_file ? line.file : "");
    const next_line_fn_t next = [&](std::string &text) { return waiter.wait(pal) && lines(text); };
    return run_batch(parser, source, next, line.options, pal, output);
}

/** Notes that a change was made to the embedded model, because the user may have meant a running server. */
void note_lost_change(const outcome_t &outcome, output_t &output) {
    if (servers_there().empty()) return;
    output.note("natctl: " + outcome.command + ": done by natctl's own server model, which has ended; " +
                servers_text() + "; choose one with --connect or NATCTL_CONNECT");
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
        const line_source_t source = {{"shell", "standard input"}, true};
        return run_batch(parser, source, shell_lines(input, line.options.connect), line.options, pal, output);
    }
    outcome_t outcome = pal.finish(pal.start(line.command, 0));
    refuse_unkept(outcome, pal.end_change());
    status_t status = output.report(outcome);
    if (!output.flush()) status = status_t::usage; /* now, because freeing a large table of rules takes a while */
    const bool is_lost = outcome.changes && pal.model() != nullptr && !line.options.quiet;
    if (is_lost) note_lost_change(outcome, output);
    return status == status_t::ok && outcome.differs ? status_t::refused : status;
}

status_t run_uncaptured(const command_line_t &line, std::istream &input, output_t &output) {
    if (line.is_top()) return output.report(top(line.top, line.options, line.is_terminal, output));
    return line.is_serve() ? output.report(serve(line.serve, output)) : run_command(line, input, output);
}

/** As run_uncaptured, with a capture of the messages if the user wants one. */
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

/** True if a terminal shows the notes of a batch but not its answers. */
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
