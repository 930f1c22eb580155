/* A test's own directory for the sockets of servers. */
#ifndef TESTS_SUPPORT_RUNTIME_DIRECTORY_H
#define TESTS_SUPPORT_RUNTIME_DIRECTORY_H

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

/** A directory that XDG_RUNTIME_DIR and XDG_STATE_HOME name, as long as the object lives. */
class runtime_directory_t {
public:
    runtime_directory_t() {
        char path[] = "/tmp/fwx_test.XXXXXX";
        path_ = mkdtemp(path);
        setenv("XDG_RUNTIME_DIR", path, 1);
        setenv("XDG_STATE_HOME", (path_ + "/state").c_str(), 1);
        unsetenv("FWX_HOST_DIR");
    }
    ~runtime_directory_t() {
        unsetenv("XDG_RUNTIME_DIR");
        unsetenv("XDG_STATE_HOME");
        std::error_code unused;
        std::filesystem::remove_all(path_, unused);
    }
    runtime_directory_t(const runtime_directory_t &) = delete;
    runtime_directory_t &operator=(const runtime_directory_t &) = delete;

    const std::string &path() const { return path_; }
    std::string sockets() const { return path_ + "/fwx_host"; }
    /** Writes a file of the directory, and returns its path. */
    std::string file(const std::string &name, const std::string &text) const {
        std::ofstream(path_ + '/' + name) << text;
        return path_ + '/' + name;
    }
    /** True also without a directory of sockets. */
    bool is_clean() const {
        std::error_code missing;
        return std::filesystem::is_empty(sockets(), missing) || missing;
    }

private:
    std::string path_;
};

#endif
