/* A test's own directory for the sockets of servers. */
#ifndef TESTS_SUPPORT_RUNTIME_DIRECTORY_H
#define TESTS_SUPPORT_RUNTIME_DIRECTORY_H

#include <string>

/** A directory that XDG_RUNTIME_DIR and XDG_STATE_HOME name, as long as the object lives. */
class runtime_directory_t {
public:
    runtime_directory_t();
    ~runtime_directory_t();
    runtime_directory_t(const runtime_directory_t &) = delete;
    runtime_directory_t &operator=(const runtime_directory_t &) = delete;

    const std::string &path() const { return path_; }
    std::string sockets() const { return path_ + "/fwx_host"; }
    bool is_clean() const;

private:
    std::string path_;
};

#endif
