/*
 * Implements interrupt.h. The handler is async-signal-safe: it counts the signal and wakes the loop through an eventfd,
 * or ends the program.
 */
#include "tools/natctl/interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/natctl/outcome.h"

namespace {

volatile sig_atomic_t interrupts = 0; /* their number */
volatile sig_atomic_t count_then = 0; /* that number when the innermost interrupt_t was made */
volatile sig_atomic_t ends_first = 0; /* the first interrupt is treated as a second one */
const char *volatile last_words = nullptr;
int bell = -1; /* eventfd; not negative: there is an interrupt_t */

void take(int) {
    const int code = errno;
    const bool is_second = interrupts != count_then || ends_first != 0;
    if (is_second && last_words != nullptr) {
        const ssize_t size = write(STDERR_FILENO, last_words, std::strlen(last_words));
        static_cast<void>(size); /* the program ends even if the write failed */
        _exit(static_cast<int>(status_t::usage));
    }
    if (is_second) {
        std::signal(SIGINT, SIG_DFL);
        raise(SIGINT); /* delivered when the handler has returned */
    }
    interrupts = interrupts + 1;
    eventfd_write(bell, 1);
    errno = code;
}

}  // namespace

interrupt_t::interrupt_t(fwx_host_loop_t *loop, const char *last, bool ends)
    : loop_(loop), is_first_(bell < 0), words_before_(last_words), count_then_(interrupts), count_before_(count_then) {
    last_words = last;
    count_then = count_then_;
    if (!is_first_) return;
    ends_first = ends ? 1 : 0;
    bell = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    fwx_host_loop_watch(loop_, bell, wake, this);
    struct sigaction action {};
    action.sa_handler = take;
    sigaction(SIGINT, &action, &before_);
}

interrupt_t::~interrupt_t() {
    last_words = words_before_;
    count_then = count_before_;
    if (!is_first_) return;
    sigaction(SIGINT, &before_, nullptr);
    ends_first = 0;
    fwx_host_loop_unwatch(loop_, bell);
    close(bell);
    bell = -1;
}

bool interrupt_t::is_raised() const {
    return interrupts != count_then_;
}

void interrupt_t::hold(const char *last) {
    ends_first = 0;
    last_words = last;
}

void interrupt_t::wake(void *) {
    eventfd_t rings = 0;
    eventfd_read(bell, &rings);
}

bool interrupt_wait_for(int fd) {
    pollfd waited[] = {{fd, POLLIN, 0}, {bell, POLLIN, 0}};
    while (interrupts == count_then && poll(waited, bell < 0 ? 1 : 2, -1) < 0 && errno == EINTR) {
    }
    return interrupts == count_then || bell < 0;
}
