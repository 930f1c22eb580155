/* natctl's batch: any text, in every way of running it, ends with a status of its own and gives back what it took. */
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "fwx_host/inspect.h"
#include "input.h"
#include "tools/natctl/batch.h"

namespace {

constexpr size_t longest_number = 3;

/** The lowest bits of `choice` choose. */
options_t options_of(uint32_t choice) {
    options_t options;
    options.format = static_cast<format_t>(choice % 4);
    options.keep_going = (choice & 4) != 0;
    options.dry_run = (choice & 8) != 0;
    options.trace = (choice & 16) != 0;
    options.pipeline = (choice & 32) != 0 ? 8 : 1;
    options.timeout_ms = 1;
    return options;
}

/** Numbers of a thousand and more ask the server model for work that takes its time. */
bool asks_for_much(const std::string &line) {
    if (line.find("server") == std::string::npos) return false;
    size_t run = 0;
    return std::any_of(line.begin(), line.end(), [&run](unsigned char c) {
        run = std::isalnum(c) != 0 && (run != 0 || std::isdigit(c) != 0) ? run + 1 : 0;
        return run > longest_number;
    });
}

/** Configuration has a reader of its own, which must answer as the grammar does. */
void check_both_read_alike(const std::string &line) {
    static CLI::App root;
    static grammar_t grammar(root);
    line_words_t words;
    record_reader_t reader;
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

void check_nothing_is_live() {
    fwx_host_live_t live;
    fwx_host_live_get(&live);
    FUZZ_CHECK(live.memory_blocks == 0 && live.pools == 0 && live.lists == 0 && live.hash_tables == 0);
    FUZZ_CHECK(live.channels == 0 && live.tx_buffers == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {  // NOLINT(readability-identifier-naming)
    input_t input(data, size);
    const options_t options = options_of(input.below(64));
    std::string batch;
    std::string line;
    std::istringstream lines(std::string(data + (size == 0 ? 0 : 1), data + size));
    while (std::getline(lines, line)) {
        check_both_read_alike(line);
        if (!asks_for_much(line)) batch += line + '\n';
    }
    std::istringstream in(batch);
    std::ostringstream answers;
    std::ostringstream notes;
    {
        static line_parser_t parser;
        output_t output(options.format, true, answers, notes);
        pal_t pal(options, [&output](const std::string &text) { output.note(text); });
        FUZZ_CHECK(pal.bind().status == status_t::ok);
        output.end(run_batch(parser, line_source_t::file, lines_of(in, {"batch", "input"}), options, pal, output));
    }
    if (options.format == format_t::json) FUZZ_CHECK(nlohmann::json::accept(answers.str()));
    check_nothing_is_live();
    return 0;
}
