/* Tells which process an object belongs to, because a forked child has copies of its parent's objects. */
#ifndef HOST_RUNTIME_PROCESS_H
#define HOST_RUNTIME_PROCESS_H

#include <cstdint>

/* This process's number. 0 right after a fork, because the kernel clears its page in the child. */
[[gnu::visibility("hidden")]] extern uint32_t *const host_process_word;
[[gnu::visibility("hidden")]] uint32_t host_process_enter();

/** This process's number, which differs from that of every process it descends from by fork. */
inline uint32_t host_process() {
    const uint32_t number = *host_process_word;
    return number != 0 ? number : host_process_enter();
}

/** Whether `number`, which host_process() once returned, is this process's: one comparison, except after a fork. */
inline bool host_process_is(uint32_t number) {
    return number == *host_process_word || number == host_process();
}

#endif
