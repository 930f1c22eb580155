/* SIGINT as something that a program notices, once: the second one kills, as it would have. */
#ifndef TOOLS_NATCTL_INTERRUPT_H
#define TOOLS_NATCTL_INTERRUPT_H

#include <csignal>

#include "fwx_host/loop.h"

/** One at a time. */
class interrupt_t {
public:
    /** From now on an interrupt also ends a wait of `loop`, which must outlive this. */
    explicit interrupt_t(fwx_host_loop_t *loop);
    ~interrupt_t();
    interrupt_t(const interrupt_t &) = delete;
    interrupt_t &operator=(const interrupt_t &) = delete;

    bool is_raised() const;

private:
    static void wake(void *interrupt);

    fwx_host_loop_t *loop_;
    struct sigaction before_ {};
};

/** Waits until `fd` is readable; false when an interrupt came before that. */
bool interrupt_wait_for(int fd);

#endif
