/* Handles SIGINT: the first one sets a flag that the program checks, the second one ends the program. */
#ifndef TOOLS_NATCTL_INTERRUPT_H
#define TOOLS_NATCTL_INTERRUPT_H

#include <csignal>

#include "fwx_host/loop.h"

/** Objects may be nested. The inner one notices only interrupts after its construction. */
class interrupt_t {
public:
    /**
     * From now on an interrupt also ends a wait of `loop`, which must outlive this object.
     * @param last_words written to standard error when the second interrupt ends the program with status 2; a literal.
     *                   Null: the second interrupt kills the program by the signal.
     * @param ends_first treats the first interrupt as the second one until `hold`. It has no effect within another
     *                   interrupt_t, which is the shell's.
     */
    explicit interrupt_t(fwx_host_loop_t *loop, const char *last_words = nullptr, bool ends_first = false);
    ~interrupt_t();
    interrupt_t(const interrupt_t &) = delete;
    interrupt_t &operator=(const interrupt_t &) = delete;

    bool is_raised() const;
    /** From now on the first interrupt only sets the flag, and the second one writes `last_words`. */
    void hold(const char *last_words);

private:
    static void wake(void *interrupt);

    fwx_host_loop_t *loop_;
    const bool is_first_;
    const char *const words_before_;
    const sig_atomic_t count_then_, count_before_;
    struct sigaction before_ {};
};

/** Waits until `fd` is readable; false if an interrupt came first. */
bool interrupt_wait_for(int fd);

#endif
