#include "tests/support/runtime_directory.h"

#include <cstdlib>
#include <filesystem>

runtime_directory_t::runtime_directory_t() {
    char path[] = "/tmp/fwx_test.XXXXXX";
    path_ = mkdtemp(path);
    setenv("XDG_RUNTIME_DIR", path, 1);
    setenv("XDG_STATE_HOME", (path_ + "/state").c_str(), 1);
    unsetenv("FWX_HOST_DIR");
}

runtime_directory_t::~runtime_directory_t() {
    unsetenv("XDG_RUNTIME_DIR");
    unsetenv("XDG_STATE_HOME");
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

bool runtime_directory_t::is_clean() const {
    std::error_code missing;
    return std::filesystem::is_empty(sockets(), missing) || missing;
}
