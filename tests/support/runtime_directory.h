/* A directory for the sockets of servers, of the test's own. */
#ifndef TESTS_SUPPORT_RUNTIME_DIRECTORY_H
#define TESTS_SUPPORT_RUNTIME_DIRECTORY_H

#include <string>

/** A new XDG_RUNTIME_DIR, for as long as it lives; it goes with all that is in it. */
class runtime_directory_t {
public:
    runtime_directory_t();
    ~runtime_directory_t();
    runtime_directory_t(const runtime_directory_t &) = delete;
    runtime_directory_t &operator=(const runtime_directory_t &) = delete;

    const std::string &path() const { return path_; }
    /** Where the platform puts sockets. */
    std::string sockets() const { return path_ + "/fwx_host"; }
    /** Whether there is no socket, nor anything else, in its place. */
    bool is_clean() const;

private:
    std::string path_;
};

#endif
