/* Signals as something that a loop dispatches. */
#ifndef TOOLS_NAT64D_SIGNALS_H
#define TOOLS_NAT64D_SIGNALS_H

#include <sys/signalfd.h>

#include <csignal>
#include <functional>
#include <initializer_list>

#include "net/descriptor.h"

/** Blocks signals, from its making to the end of the program, and calls `on_signal` with each that comes. */
class signals_t {
public:
    signals_t(fwx_host_loop_t *loop, std::initializer_list<int> numbers, std::function<void(int)> on_signal)
        : on_signal_(std::move(on_signal)), descriptor_(loop, make(numbers), [this] { take(); }) {}

    bool is_watching() const { return descriptor_.is_watched(); }

private:
    static int make(std::initializer_list<int> numbers) {
        sigset_t set;
        sigemptyset(&set);
        for (const int number : numbers) {
            sigaddset(&set, number);
        }
        sigprocmask(SIG_BLOCK, &set, nullptr);
        return signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    void take() {
        signalfd_siginfo taken{};
        while (read(descriptor_.fd(), &taken, sizeof taken) == sizeof taken) {
            on_signal_(static_cast<int>(taken.ssi_signo));
        }
    }

    std::function<void(int)> on_signal_;
    watched_descriptor_t descriptor_;
};

#endif
