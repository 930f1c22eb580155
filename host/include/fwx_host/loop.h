/*
 * The event loop of a program on the host platform. A loop is what a program gives to fwx_nat64_bind as its event
 * argument; everything that a channel delivers (messages, completions, flow control, errors) is dispatched by it.
 *
 * A program with a loop of its own polls fwx_host_loop_fd for reading and then calls fwx_host_loop_process; it needs no
 * more, and may send at any moment. A program without one calls fwx_host_loop_run_once. Nothing here is thread-safe.
 *
 * A loop serves the process that made it. In a child that was forked, and on null, which a program that could not make
 * one has, calls do nothing: they return 0 where they return numbers, and a code where they return codes.
 */
#ifndef FWX_HOST_LOOP_H
#define FWX_HOST_LOOP_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct fwx_host_loop fwx_host_loop_t;
typedef void (*fwx_host_fn_t)(void *arg);

/** Makes a loop; null when the system has no descriptors or memory left. */
fwx_host_loop_t *fwx_host_loop_create(void);
/**
 * Destroys a loop with the timers, watches and channels that are still on it; channels end silently, no callback is
 * called. Requires: no loop callback is running.
 */
void fwx_host_loop_destroy(fwx_host_loop_t *loop);
/**
 * Descriptor that is readable while the loop has something to do: a message, a command that was sent, a timer that is
 * due, a watched descriptor. It stays the loop's. A callback that runs the loop itself leaves it as it should be. -1
 * when the system has no descriptors left. With a clock that a test has stopped, timers do not make it readable.
 */
int fwx_host_loop_fd(fwx_host_loop_t *loop);
/** Milliseconds until the loop has something to do by itself: 0 now, -1 never. For a program that cannot poll a
 * descriptor. */
int fwx_host_loop_next_timeout_ms(const fwx_host_loop_t *loop);
/** Dispatches what is ready, without waiting; returns how many callbacks were called. */
uint32_t fwx_host_loop_process(fwx_host_loop_t *loop);
/** Waits at most `timeout_ms` (-1: without limit) for something to do and dispatches it; returns as process. */
uint32_t fwx_host_loop_run_once(fwx_host_loop_t *loop, int timeout_ms);
/** How long run_once of any loop polls its channels to other processes before it waits: 0 at the start, which is best
 * unless both sides have a processor for themselves. */
void fwx_host_spin_set_us(uint32_t microseconds);
/** Dispatches until nothing is ready at this moment; timers that are not due stay. Returns as process. */
uint32_t fwx_host_loop_run_until_idle(fwx_host_loop_t *loop);

/** Calls `fn` once, `delay_ms` from now; returns the timer's id, or 0 when memory is out. */
uint64_t fwx_host_timer_add(fwx_host_loop_t *loop, uint64_t delay_ms, fwx_host_fn_t fn, void *arg);
/** Takes a timer back that has not run; an id that is gone is ignored. */
void fwx_host_timer_cancel(fwx_host_loop_t *loop, uint64_t id);
/** Calls `fn` whenever `fd` is readable; returns 0, an errno value, FWX_HOST_ERR_BAD_ARG or FWX_HOST_ERR_FORKED. The
 * descriptor stays the caller's. */
uint32_t fwx_host_loop_watch(fwx_host_loop_t *loop, int fd, fwx_host_fn_t fn, void *arg);
/** Ends a watch; also allowed from within its own callback. */
void fwx_host_loop_unwatch(fwx_host_loop_t *loop, int fd);

/** The event context that was made current last, null before; it may have been freed since. */
void *fwx_host_event_context_get(void);

/** Milliseconds of the platform's clock. */
uint64_t fwx_host_clock_ms(void);
/** Stops the clock (first call) and turns it on by `ms`; for tests. */
void fwx_host_clock_turn(uint64_t ms);
/** Lets the clock run by itself again. */
void fwx_host_clock_run(void);

#ifdef __cplusplus
}
#endif

#endif
