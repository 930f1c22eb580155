/*
 * The event loop of a program on the host platform. A program passes a loop to fwx_nat64_bind as the event argument.
 * The loop dispatches everything that a channel delivers: messages, completions, flow control and errors.
 *
 * A program that has an event loop of another kind polls fwx_host_loop_fd for reading and then calls
 * fwx_host_loop_process. It may send at any time. A program without another loop calls fwx_host_loop_run_once. Nothing
 * here is thread-safe.
 *
 * A loop serves the process that created it. In a forked child, and on a null loop, calls do nothing: a function that
 * returns a number returns 0, and a function that returns a code returns an error code.
 */
#ifndef FWX_HOST_LOOP_H
#define FWX_HOST_LOOP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct fwx_host_loop fwx_host_loop_t;
typedef void (*fwx_host_fn_t)(void *arg);

/** Creates a loop; null when the system has no descriptors or no memory left. */
fwx_host_loop_t *fwx_host_loop_create(void);
/**
 * Destroys a loop with its remaining timers, watches and channels. Calls no callback, also not for the channels that
 * end. Requires that no callback of the loop is running.
 */
void fwx_host_loop_destroy(fwx_host_loop_t *loop);
/**
 * Returns a descriptor that is readable while the loop has something to do: a message, a sent command, a due timer or a
 * readable watched descriptor. The loop keeps owning it. It stays correct when a callback runs the loop. Returns -1
 * when the system has no descriptors left. While a test has stopped the clock, timers do not make it readable.
 */
int fwx_host_loop_fd(fwx_host_loop_t *loop);
/** Milliseconds until the next timer is due; 0 when messages or completions are ready, -1 when there is neither. Does
 * not consider watched descriptors. For a program that cannot poll a descriptor. */
int fwx_host_loop_next_timeout_ms(const fwx_host_loop_t *loop);
/** Dispatches ready events without waiting; returns the number of callbacks called. */
uint32_t fwx_host_loop_process(fwx_host_loop_t *loop);
/** Waits at most `timeout_ms` (-1: without limit) for an event and dispatches it. Returns the number of callbacks
 * called.
 */
uint32_t fwx_host_loop_run_once(fwx_host_loop_t *loop, int timeout_ms);
/** Sets how long run_once of any loop busy-polls its channels to other processes before it waits. The default 0 is best
 * unless each side has a processor of its own. */
void fwx_host_spin_set_us(uint32_t microseconds);
/** Dispatches until nothing is ready; timers that are not due stay. Returns the number of callbacks called. */
uint32_t fwx_host_loop_run_until_idle(fwx_host_loop_t *loop);

/** Calls `fn` once, `delay_ms` from now; returns the timer's id, or 0 when memory is exhausted. */
uint64_t fwx_host_timer_add(fwx_host_loop_t *loop, uint64_t delay_ms, fwx_host_fn_t fn, void *arg);
/** Cancels a timer that has not run; an unknown id is ignored. */
void fwx_host_timer_cancel(fwx_host_loop_t *loop, uint64_t id);
/** Calls `fn` whenever `fd` is readable; returns 0, an errno value, FWX_HOST_ERR_BAD_ARG or FWX_HOST_ERR_FORKED. The
 * descriptor stays the caller's. */
uint32_t fwx_host_loop_watch(fwx_host_loop_t *loop, int fd, fwx_host_fn_t fn, void *arg);
/** Ends a watch; also allowed from within its own callback. */
void fwx_host_loop_unwatch(fwx_host_loop_t *loop, int fd);

/** The event context that was made current last, or null when none was. It may have been freed since. */
void *fwx_host_event_context_get(void);

/** The platform's monotonic clock, in milliseconds. */
uint64_t fwx_host_clock_ms(void);
/** Stops the clock, if it runs, and advances it by `ms`; for tests. */
void fwx_host_clock_turn(uint64_t ms);
/** Lets a stopped clock run again. */
void fwx_host_clock_run(void);

#ifdef __cplusplus
}
#endif

#endif
