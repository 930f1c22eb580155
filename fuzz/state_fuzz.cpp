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

/** In a memory file system if there is one, because the file is synced for every input. */
struct directory_t {
    directory_t() { FUZZ_CHECK(mkdtemp(path.data()) != nullptr); }
    ~directory_t() { std::filesystem::remove_all(path); }
    std::string path =
        std::string(std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp") + "/state_fuzz.XXXXXX";
};

const std::string &path() {
    static const directory_t directory;
    static const std::string name = directory.path + "/state";
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
