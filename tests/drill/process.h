/* A process of the drill that is killed at a moment that it does not choose. */
#ifndef TESTS_DRILL_PROCESS_H
#define TESTS_DRILL_PROCESS_H

#include <sys/types.h>

#include <string>
#include <vector>

class process_t {
public:
    /** `command` is the program and its arguments. */
    explicit process_t(std::vector<std::string> command) : command_(std::move(command)) {}
    ~process_t() { end(); }
    process_t(const process_t &) = delete;
    process_t &operator=(const process_t &) = delete;

    /** Returns when it has written a line. */
    bool start();
    /** Kills it by a signal to this process, which comes wherever this one is then. One process at a time. */
    void kill_in(uint32_t microseconds) const;
    /** Whether it has ended; it must have been started. */
    bool is_dead();
    void end();

private:
    const std::vector<std::string> command_;
    pid_t pid_ = 0; /* 0 when it does not run */
};

#endif
