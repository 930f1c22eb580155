/* A server that is a process of its own. */
#ifndef TESTS_TOOLS_SERVER_PROCESS_H
#define TESTS_TOOLS_SERVER_PROCESS_H

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <string>

/** `natctl serve alpha`, ready for clients. */
class server_process_t {
public:
    /** With a state file, unless it is empty, and files of at most so many bytes. */
    explicit server_process_t(const std::string &state_file = {}, rlim_t file_bytes = RLIM_INFINITY) {
        int out[2];
        if (pipe(out) != 0) return;
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], STDOUT_FILENO);
            close(out[0]);
            close(out[1]);
            const rlimit limit = {file_bytes, RLIM_INFINITY};
            setrlimit(RLIMIT_FSIZE, &limit);
            const bool has_state = !state_file.empty();
            execl(NATCTL_PATH, NATCTL_PATH, "serve", "alpha", has_state ? "--state" : nullptr, state_file.c_str(),
                  nullptr);
            _exit(127);
        }
        close(out[1]);
        char ready = 0;
        is_ready_ = read(out[0], &ready, 1) == 1;
        close(out[0]);
    }
    ~server_process_t() { end(SIGTERM); }
    server_process_t(const server_process_t &) = delete;
    server_process_t &operator=(const server_process_t &) = delete;

    bool is_ready() const { return is_ready_; }
    void stand_still() const { kill(pid_, SIGSTOP); }
    void go_on() const { kill(pid_, SIGCONT); }
    void let_files_grow() const {
        const rlimit limit = {RLIM_INFINITY, RLIM_INFINITY};
        prlimit(pid_, RLIMIT_FSIZE, &limit, nullptr);
    }
    void end(int signal) {
        if (pid_ <= 0) return;
        kill(pid_, signal);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

private:
    pid_t pid_ = -1;
    bool is_ready_ = false;
};

#endif
