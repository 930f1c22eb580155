/* A forked child process that serves until it is killed. */
#ifndef TESTS_SUPPORT_CHILD_H
#define TESTS_SUPPORT_CHILD_H

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

class child_t {
public:
    child_t() = default;
    ~child_t() { end(SIGKILL); }
    child_t(const child_t &) = delete;
    child_t &operator=(const child_t &) = delete;

    /** Forks a child that calls `serve` with a descriptor, and waits until the child writes a byte to it. Returns false
     * when the child ends without writing. */
    template <typename serve_t>
    bool start(serve_t serve) {
        int ready[2];
        if (pipe2(ready, O_CLOEXEC) != 0) return false;
        pid_ = fork();
        if (pid_ == 0) {
            serve(ready[1]);
            _exit(127);
        }
        close(ready[1]);
        char byte = 0;
        const bool is_ready = pid_ > 0 && read(ready[0], &byte, 1) == 1;
        close(ready[0]);
        return is_ready;
    }
    void signal(int number) const { kill(pid_, number); }
    /** Stops the child, and returns when it has stopped. SIGCONT continues it. */
    void stop() const {
        kill(pid_, SIGSTOP);
        waitpid(pid_, nullptr, WUNTRACED);
    }
    bool has_ended() {
        if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0) return false;
        pid_ = -1;
        return true;
    }
    /** Sends a signal and waits for the child to end. Returns its exit status, or -1 when a signal ended it. */
    int end(int number) {
        if (pid_ <= 0) return -1;
        kill(pid_, number);
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1; /* -1: no child */
};

#endif
