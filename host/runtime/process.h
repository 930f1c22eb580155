/* Which process a thing belongs to: after a fork the child holds copies of what is its parent's. */
#ifndef HOST_RUNTIME_PROCESS_H
#define HOST_RUNTIME_PROCESS_H

#include <cstdint>

/* This process's number; 0 right after a fork, because the kernel wipes the page on which it stands. */
[[gnu::visibility("hidden")]] extern uint32_t *const host_process_word;
[[gnu::visibility("hidden")]] uint32_t host_process_enter();

/** A number that no process has had from which this one descends. */
inline uint32_t host_process() {
    const uint32_t number = *host_process_word;
    return number != 0 ? number : host_process_enter();
}

#endif
