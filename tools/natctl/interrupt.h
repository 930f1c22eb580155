/* SIGINT as something that a program notices, once. The second one ends it. */
#ifndef TOOLS_NATCTL_INTERRUPT_H
#define TOOLS_NATCTL_INTERRUPT_H

#include <csignal>

#include "fwx_host/loop.h"

/** One may be made during the life of another, and hears of interrupts that come after that. */
class interrupt_t {
public:
    /**
     * From now on an interrupt also ends a wait of `loop`, which must outlive this.
     * @param last_words are written to standard error when a second interrupt ends the program, with status 2; a
     *                   literal. Null: the second one kills it, as the first would have.
     * @param ends_first   the first interrupt is treated as the second one until `hold`, unless there is another
     *                     interrupt_t, which is a shell's.
     */
    explicit interrupt_t(fwx_host_loop_t *loop, const char *last_words = nullptr, bool ends_first = false);
    ~interrupt_t();
    interrupt_t(const interrupt_t &) = delete;
    interrupt_t &operator=(const interrupt_t &) = delete;

    bool is_raised() const;
    /** From now on the first interrupt is noted, and these are the words of the second. */
    void hold(const char *last_words);

private:
    static void wake(void *interrupt);

    fwx_host_loop_t *loop_;
    const bool is_first_;
    const char *const words_before_;
    const sig_atomic_t count_then_, count_before_;
    struct sigaction before_ {};
};

/** Waits until `fd` is readable; false when an interrupt came before that. */
bool interrupt_wait_for(int fd);

#endif
