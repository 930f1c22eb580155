/*
 * Fuzzes a server's state file. Any bytes are read, or refused and left unchanged. A file that was read and written
 * again reads the same. Inputs that begin with `=` are lines of groups, to which the fuzzer adds the checksums.
 */
#include <unistd.h>
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "fwx_host/fwx_host.h"
#include "input.h"
#include "model/model.h"
#include "tools/state_file.h"

namespace {

constexpr const char *format_line = "natctl server state 3\n";

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

std::string content() {
    std::ifstream file(path());
    return {std::istreambuf_iterator<char>(file), {}};
}

/** Makes a state file of groups of lines. A line that begins with `=` ends a group and is replaced by the checksum. */
std::string with_checksums(std::string_view lines) {
    std::string text = format_line;
    std::string group;
    size_t count = 0;
    for (bool is_at_end = false; !is_at_end;) {
        const size_t length = lines.find('\n');
        is_at_end = length == std::string_view::npos;
        const std::string line(lines.substr(0, length));
        if (!is_at_end) lines.remove_prefix(length + 1);
        if (line.substr(0, 1) != "=") {
            group += line + "\n";
            ++count;
        }
        if (line.substr(0, 1) != "=" && !is_at_end) continue;
        char closing[40];
        const auto *bytes = reinterpret_cast<const Bytef *>(group.data());
        snprintf(closing, sizeof closing, "= %zu %08lx\n", count, crc32_z(0, bytes, group.size()));
        text += group + closing;
        group.clear();
        count = 0;
    }
    return text;
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
    std::string text(reinterpret_cast<const char *>(data), size);
    if (text.substr(0, 1) == "=") text = with_checksums(std::string_view(text).substr(1));
    std::ofstream(path(), std::ios::trunc) << text;
    fwx_host_loop_t *loop = fwx_host_loop_create();
    if (open_state(loop)) {
        const std::string written = content();
        FUZZ_CHECK(open_state(loop));
        FUZZ_CHECK(content() == written);
    } else {
        FUZZ_CHECK(content() == text);
    }
    fwx_host_loop_destroy(loop);
    return 0;
}
