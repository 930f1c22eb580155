#include "tests/drill/process.h"

#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <ctime>

namespace {

volatile pid_t condemned; /* for the signal handler */

timer_t executioner() {
    static const timer_t timer = [] {
        struct sigaction action {};
        action.sa_handler = [](int) { kill(condemned, SIGKILL); };
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

}  // namespace

bool process_t::start() {
    int ready[2];
    if (pipe(ready) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ready[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ready[0]);
    posix_spawn_file_actions_addclose(&actions, ready[1]);
    std::vector<char *> arguments;
    for (const std::string &word : command_) {
        arguments.push_back(const_cast<char *>(word.c_str()));
    }
    arguments.push_back(nullptr);
    const bool is_spawned = posix_spawn(&pid_, arguments[0], &actions, nullptr, arguments.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    close(ready[1]);
    char byte = 0;
    const bool is_ready = is_spawned && read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    if (!is_spawned) pid_ = 0;
    return is_ready;
}

void process_t::kill_in(uint32_t microseconds) const {
    condemned = pid_;
    itimerspec at{};
    at.it_value.tv_nsec = long{microseconds} * 1000 + 1;
    timer_settime(executioner(), 0, &at, nullptr);
}

bool process_t::is_dead() {
    if (pid_ != 0 && waitpid(pid_, nullptr, WNOHANG) == 0) return false;
    pid_ = 0;
    return true;
}

void process_t::end() {
    if (pid_ == 0) return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
    pid_ = 0;
}
