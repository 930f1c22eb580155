/* Signals as a readable descriptor, for an event loop. */
#ifndef TOOLS_SIGNALS_H
#define TOOLS_SIGNALS_H

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <initializer_list>

/** Blocks signals during its lifetime. Its descriptor is readable when one of them is pending. The destructor drops
 * pending signals. */
class signals_t {
public:
    signals_t(std::initializer_list<int> numbers) {
        sigset_t set;
        sigemptyset(&set);
        for (const int number : numbers) {
            sigaddset(&set, number);
        }
        sigprocmask(SIG_BLOCK, &set, &before_);
        fd_ = signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~signals_t() {
        while (take() != 0) {
        }
        if (fd_ >= 0) close(fd_);
        sigprocmask(SIG_SETMASK, &before_, nullptr);
    }
    signals_t(const signals_t &) = delete;
    signals_t &operator=(const signals_t &) = delete;

    /** -1 if the process had no descriptor left. */
    int fd() const { return fd_; }
    /** Takes the next pending signal; 0 if there is none. */
    int take() const {
        signalfd_siginfo taken{};
        return read(fd_, &taken, sizeof taken) == sizeof taken ? static_cast<int>(taken.ssi_signo) : 0;
    }

private:
    sigset_t before_{};
    int fd_ = -1;
};

#endif
