/* Fuzzes natctl's batches. Any text, with any of the options, must end with a status and release all resources. A
 * quarter of the inputs run over a connection to a server whose answers are chosen by the first line of the input. */
#include <cctype>
#include <nlohmann/json.hpp>

#include "tests/support/platform_watch.h"
#include "tools/natctl/batch.h"
#include "wild_server.h"

namespace {

constexpr size_t longest_number = 3;

options_t options_of(uint32_t choice) {
    options_t options;
    options.format = static_cast<format_t>(choice % 4);
    options.keep_going = (choice & 4) != 0;
    options.dry_run = (choice & 8) != 0;
    options.trace = (choice & 16) != 0;
    options.pipeline = (choice & 32) != 0 ? 8 : 1;
    options.timeout_ms = 1;
    if (choice / 64 == 1) options.connect = "fuzzed";
    return options;
}

/** Whether a line has a number of more than three digits for the server model, which could then run for long. */
bool asks_for_much(const std::string &line) {
    if (line.find("server") == std::string::npos) return false;
    size_t run = 0;
    return std::any_of(line.begin(), line.end(), [&run](unsigned char c) {
        run = std::isalnum(c) != 0 && (run != 0 || std::isdigit(c) != 0) ? run + 1 : 0;
        return run > longest_number;
    });
}

/** Checks that the separate reader for configuration lines gives the same result as the grammar. */
void check_both_read_alike(const std::string &line) {
    static command_spec_t root;
    static grammar_t grammar(root);
    line_words_t words;
    record_reader_t reader(show_verb);
    const bool cuts_errors = line.find('\0') != std::string::npos; /* those of the grammar end there */
    if (words.split(line) != 0 || cuts_errors) return;
    const record_reader_t::result_t result = reader.read(words.words());
    if (result == record_reader_t::result_t::other) return;
    std::string command;
    std::string error;
    try {
        command = grammar.parse({words.words().begin(), words.words().end()}).name;
    } catch (const usage_error_t &usage) {
        command = usage.command;
        error = usage.text;
    }
    FUZZ_CHECK(command == reader.command());
    FUZZ_CHECK(error == (result == record_reader_t::result_t::record ? "" : reader.error()));
}

/** The server behind a connection, on natctl's loop, so that an input is reproducible. */
struct remote_server_t {
    remote_server_t(const std::string &answers, fwx_host_loop_t *loop)
        : input(reinterpret_cast<const uint8_t *>(answers.data()), answers.size()), server(input, loop) {
        server.answers_at_once = true;
        server.next_answer.result = input.flag() ? input.byte() : 0;
        if (input.below(8) == 2) server.next_answer.length = 0;
    }
    ~remote_server_t() { server.end(); }

    input_t input;
    wild_server_t server;
};

std::unique_ptr<remote_server_t> remote_server;
std::string remote_answers;
fwx_host_loop_t *natctl_loop;

}  // namespace

/* natctl calls these instead of the platform's functions, by the linker's option --wrap. */
fwx_host_loop_t *real_loop_create() asm("__real_fwx_host_loop_create");
fwx_host_loop_t *wrapped_loop_create() asm("__wrap_fwx_host_loop_create");
fwx_host_loop_t *wrapped_loop_create() {
    return natctl_loop = real_loop_create();
}

uint32_t wrapped_connect_set(const char *channel_name, const char *server_name) asm("__wrap_fwx_host_connect_set");
uint32_t wrapped_connect_set(const char * /*channel_name*/, const char *server_name) {
    remote_server.reset(server_name == nullptr ? nullptr : new remote_server_t(remote_answers, natctl_loop));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {  // NOLINT(readability-identifier-naming)
    const platform_watch_t watch;
    input_t input(data, size);
    const options_t options = options_of(input.byte());
    std::string batch;
    std::string line;
    std::istringstream lines(std::string(data + (size == 0 ? 0 : 1), data + size));
    if (!options.connect.empty()) std::getline(lines, remote_answers);
    while (std::getline(lines, line)) {
        check_both_read_alike(line);
        if (!asks_for_much(line)) batch += line + '\n';
    }
    std::istringstream in(batch);
    std::ostringstream answers;
    std::ostringstream notes;
    status_t bound = status_t::ok;
    {
        static line_parser_t parser;
        output_t output(options.format, true, answers, notes);
        pal_t pal(options, [&output](const std::string &text) { output.note(text); });
        bound = pal.bind().status;
        FUZZ_CHECK(bound == status_t::ok || !options.connect.empty());
        if (bound == status_t::ok) {
            const line_source_t source = {{"batch", "input"}};
            output.end(run_batch(parser, source, lines_of(in, source.name), options, pal, output));
        }
    }
    const bool is_document = options.format == format_t::json && bound == status_t::ok;
    if (is_document) FUZZ_CHECK(nlohmann::json::accept(answers.str()));
    FUZZ_CHECK(watch.left().empty() && watch.errors().bad_frees == 0);
    return 0;
}
