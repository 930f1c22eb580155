/* A server process of the drill, which a timer kills at a random time. */
#ifndef TESTS_DRILL_PROCESS_H
#define TESTS_DRILL_PROCESS_H

#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/child.h"

class process_t {
public:
    /** `command` is the program and its arguments. */
    explicit process_t(std::vector<std::string> command) : command_(std::move(command)) {}

    /** Starts the program, and returns when it has written to standard output. */
    bool start() {
        std::vector<char *> arguments;
        for (std::string &word : command_) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        return child_.start([&arguments](int fd) {
            dup2(fd, STDOUT_FILENO);
            execv(arguments[0], arguments.data());
        });
    }
    /** Kills the process after a delay, from a signal handler in this process, so that the kill can come at any point
     * of this process's code. Works for one process at a time. */
    void kill_in(uint32_t microseconds) const {
        kill_target = child_.pid();
        itimerspec at{};
        at.it_value.tv_nsec = long{microseconds} * 1000 + 1;
        timer_settime(kill_timer(), 0, &at, nullptr);
    }
    /** Whether the process has ended. It must have been started. */
    bool is_dead() { return child_.has_ended(); }

private:
    static inline volatile pid_t kill_target; /* for the signal handler */

    static timer_t kill_timer() {
        static const timer_t timer = [] {
            struct sigaction action {};
            action.sa_handler = [](int) { kill(kill_target, SIGKILL); };
            sigaction(SIGUSR1, &action, nullptr);
            sigevent event{};
            event.sigev_notify = SIGEV_SIGNAL;
            event.sigev_signo = SIGUSR1;
            timer_t made{};
            timer_create(CLOCK_MONOTONIC, &event, &made);
            return made;
        }();
        return timer;
    }

    std::vector<std::string> command_;
    child_t child_;
};

#endif
