#include "tools/natctl/interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>

namespace {

volatile sig_atomic_t raised = 0;
int bell = -1;

void take(int) {
    const int code = errno;
    raised = 1;
    eventfd_write(bell, 1);
    errno = code;
}

}  // namespace

interrupt_t::interrupt_t(fwx_host_loop_t *loop) : loop_(loop) {
    raised = 0;
    bell = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    fwx_host_loop_watch(loop_, bell, wake, this);
    struct sigaction action {};
    action.sa_handler = take;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    sigaction(SIGINT, &action, &before_);
}

interrupt_t::~interrupt_t() {
    sigaction(SIGINT, &before_, nullptr);
    fwx_host_loop_unwatch(loop_, bell);
    close(bell);
    bell = -1;
}

bool interrupt_t::is_raised() const {
    return raised != 0;
}

/** The bell goes on ringing for whoever waits elsewhere. */
void interrupt_t::wake(void *interrupt) {
    fwx_host_loop_unwatch(static_cast<interrupt_t *>(interrupt)->loop_, bell);
}

bool interrupt_wait_for(int fd) {
    pollfd waited[] = {{fd, POLLIN, 0}, {bell, POLLIN, 0}};
    while (raised == 0 && poll(waited, bell < 0 ? 1 : 2, -1) < 0 && errno == EINTR) {
    }
    return raised == 0 || bell < 0;
}
