/* natctl's batch: any text, in every output format, ends with a status of its own and gives back what it took. */
#include <algorithm>
#include <cctype>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "fwx_host/inspect.h"
#include "input.h"
#include "tools/cli.h"
#include "tools/outcome.h"

namespace {

constexpr size_t longest_number = 3;
constexpr const char *formats[] = {"--keep-going", "--json", "--jsonl", "--csv", "--dry-run", "--trace"};

/** Numbers of a thousand and more ask the server model for work that takes its time. */
bool asks_for_much(const std::string &line) {
    if (line.find("server") == std::string::npos && line.find("pipeline") == std::string::npos) return false;
    size_t run = 0;
    return std::any_of(line.begin(), line.end(), [&run](unsigned char c) {
        run = std::isalnum(c) != 0 && (run != 0 || std::isdigit(c) != 0) ? run + 1 : 0;
        return run > longest_number;
    });
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
    const std::string format = formats[input.below(std::size(formats))];
    std::string batch;
    std::string line;
    std::istringstream lines(std::string(data + (size == 0 ? 0 : 1), data + size));
    while (std::getline(lines, line)) {
        if (!asks_for_much(line)) batch += line + '\n';
    }
    std::istringstream in(batch);
    std::ostringstream answers;
    std::ostringstream notes;
    const int status = run_natctl({format, "--timeout", "1", "batch", "-"}, in, answers, notes);
    FUZZ_CHECK(status >= 0 && status <= static_cast<int>(status_t::no_server));
    if (format == "--json") FUZZ_CHECK(nlohmann::json::accept(answers.str()));
    check_nothing_is_live();
    return 0;
}
