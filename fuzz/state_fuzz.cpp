/* Fuzzes a server's state file. Any bytes are read, or refused and left unchanged. A file that was read and written
 * again reads the same. Inputs that begin with `=` are lines of groups, to which the fuzzer adds the checksums. */
#include <filesystem>

#include "fwx_host/fwx_host.h"
#include "input.h"
#include "model/model.h"
#include "state/journal.h"
#include "tests/support/eventually.h"
#include "tools/state_file.h"

namespace {

/** The file's path, in a memory file system if there is one, because the file is synced for every input. */
const std::string &path() {
    static const std::string name = [] {
        const bool has_memory = std::filesystem::is_directory("/dev/shm");
        std::string directory = std::string(has_memory ? "/dev/shm" : "/tmp") + "/state_fuzz.XXXXXX";
        FUZZ_CHECK(mkdtemp(directory.data()) != nullptr);
        return directory + "/state";
    }();
    static const bool is_removed_at_exit =
        atexit([] { std::filesystem::remove_all(std::filesystem::path(path()).parent_path()); }) == 0;
    FUZZ_CHECK(is_removed_at_exit);
    return name;
}

/** Writes a state file of groups of lines. A line that begins with `=` ends a group. */
void write_groups(std::istringstream lines) {
    std::filesystem::remove(path());
    journal_t journal(path(), {"natctl server state 3"}, [](const auto &) {});
    FUZZ_CHECK(journal.open([](std::string_view) { return ""; }).empty());
    for (std::string line; std::getline(lines, line);) {
        if (line.substr(0, 1) != "=") journal.append(line);
        if (line.substr(0, 1) == "=") FUZZ_CHECK(journal.commit().empty());
    }
    FUZZ_CHECK(journal.commit().empty());
}

/** Opens the file for a new model; returns whether that succeeded. */
bool open_state(fwx_host_loop_t *loop) {
    const auto model = fwx_nat64_model_t::create(loop, "fuzzed");
    FUZZ_CHECK(model != nullptr);
    state_file_t state(path(), "natctl", model->server(), [](const std::string &) {});
    const std::string error = state.open();
    FUZZ_CHECK(error.empty() || error.find(path() + ": ") == 0);
    return error.empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string input(reinterpret_cast<const char *>(data), size);
    if (input.substr(0, 1) == "=") {
        write_groups(std::istringstream(input.substr(1)));
    } else {
        std::ofstream(path(), std::ios::trunc) << input;
    }
    const std::string text = text_of(path());
    fwx_host_loop_t *loop = fwx_host_loop_create();
    if (open_state(loop)) {
        const std::string written = text_of(path());
        FUZZ_CHECK(open_state(loop));
        FUZZ_CHECK(text_of(path()) == written);
    } else {
        FUZZ_CHECK(text_of(path()) == text);
    }
    fwx_host_loop_destroy(loop);
    return 0;
}
