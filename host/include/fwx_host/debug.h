/* Debug output of the platform: the level of each module, and the destination of the lines. */
#ifndef FWX_HOST_DEBUG_H
#define FWX_HOST_DEBUG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum { FWX_HOST_DEBUG_FLAGS, FWX_HOST_DEBUG_LEVEL, FWX_HOST_DEBUG_CONSOLE } fwx_host_debug_channel_t;

/** Receives one piece of output. `level` is 1 (error) to 4 (trace), and 0 on the console channel. `text` is formatted
 * and valid during the call only. */
typedef void (*fwx_host_debug_sink_t)(void *arg, fwx_host_debug_channel_t channel, uint32_t level, const char *text);
/** Sends all output to `sink` instead of standard error; null goes back to standard error. Writing to standard error
 * never blocks and is limited to 1000 lines of errors and warnings a second. A line of its own tells how many lines
 * were left out. */
void fwx_host_debug_sink_set(fwx_host_debug_sink_t sink, void *arg);
/** Writes as much of a text to standard error as can be written without blocking; returns 0 when that was not all. */
uint32_t fwx_host_stderr_write(const char *text, size_t size);
/** Sets the debug level of a module, which is 0 at the start. The first call for a module allocates, and changes
 * nothing when memory is exhausted. */
void fwx_host_debug_level_set(uint32_t module, uint32_t level);

#ifdef __cplusplus
}
#endif

#endif
