/* A test's own directory for the sockets of servers. */
#ifndef TESTS_SUPPORT_RUNTIME_DIRECTORY_H
#define TESTS_SUPPORT_RUNTIME_DIRECTORY_H

#include <string>

/** Creates a directory and sets XDG_RUNTIME_DIR and XDG_STATE_HOME to it. The destructor deletes it with its content.
 */
class runtime_directory_t {
public:
    runtime_directory_t();
    ~runtime_directory_t();
    runtime_directory_t(const runtime_directory_t &) = delete;
    runtime_directory_t &operator=(const runtime_directory_t &) = delete;

    const std::string &path() const { return path_; }
    /** The directory in which the platform creates sockets. */
    std::string sockets() const { return path_ + "/fwx_host"; }
    /** Whether the directory of sockets is empty or missing. */
    bool is_clean() const;

private:
    std::string path_;
};

#endif
