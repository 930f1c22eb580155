/* A server in a process of its own. */
#ifndef TESTS_TOOLS_SERVER_PROCESS_H
#define TESTS_TOOLS_SERVER_PROCESS_H

#include <sys/resource.h>

#include <string>

#include "tests/support/child.h"

/** `natctl serve alpha`, or another name, ready for clients. */
class server_process_t : public child_t {
public:
    /** @param state_file empty: none
     * @param file_bytes limit of the size of files that the server writes
     * @param log where the server writes its log */
    explicit server_process_t(const std::string &state_file = {}, rlim_t file_bytes = RLIM_INFINITY,
                              const std::string &name = "alpha", int log = STDERR_FILENO) {
        is_ready_ = start([&](int ready) {
            dup2(ready, STDOUT_FILENO);
            dup2(log, STDERR_FILENO);
            const rlimit limit = {file_bytes, RLIM_INFINITY};
            setrlimit(RLIMIT_FSIZE, &limit);
            const bool has_state = !state_file.empty();
            execl(NATCTL_PATH, NATCTL_PATH, "serve", name.c_str(), has_state ? "--state" : nullptr, state_file.c_str(),
                  nullptr);
        });
    }
    ~server_process_t() { end(SIGTERM); }

    bool is_ready() const { return is_ready_; }
    void let_files_grow() const {
        const rlimit limit = {RLIM_INFINITY, RLIM_INFINITY};
        prlimit(pid(), RLIMIT_FSIZE, &limit, nullptr);
    }

private:
    bool is_ready_ = false;
};

#endif
