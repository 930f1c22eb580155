/* Debug output of the platform: levels by module, and where the lines go. */
#ifndef FWX_HOST_DEBUG_H
#define FWX_HOST_DEBUG_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum { FWX_HOST_DEBUG_FLAGS, FWX_HOST_DEBUG_LEVEL, FWX_HOST_DEBUG_CONSOLE } fwx_host_debug_channel_t;

/** A piece of output. `level` is 1 error to 4 trace, 0 on the console channel; `text` is formatted and lives for the
 * call. */
typedef void (*fwx_host_debug_sink_t)(void *arg, fwx_host_debug_channel_t channel, uint32_t level, const char *text);
/** Sends all output to `sink` instead of standard error; null goes back to standard error, which is never waited for,
 * and takes 1000 lines of errors and warnings a second: how many it did not get stands in a line of its own. */
void fwx_host_debug_sink_set(fwx_host_debug_sink_t sink, void *arg);
/** Writes a text to standard error as far as that takes it without waiting; 0 when it did not take all. */
uint32_t fwx_host_stderr_write(const char *text, size_t size);
/** Sets the debug level of a module, 0 at the start; the first time may find no memory and change nothing. */
void fwx_host_debug_level_set(uint32_t module, uint32_t level);

#ifdef __cplusplus
}
#endif

#endif
