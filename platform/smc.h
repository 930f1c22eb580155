/*
 * Shared-memory messaging service: a channel to a server that is found by name. A platform implements these functions;
 * the library calls them.
 *
 * Conventions: results are 0 for success and a code of the service otherwise. All callbacks of a channel arrive on the
 * messaging handle with which it was opened. An asynchronous send never calls them; a synchronous one may. Sizes are in
 * bytes.
 */
#ifndef FWX_PLATFORM_SMC_H
#define FWX_PLATFORM_SMC_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint64_t smc_chan_t;
typedef uint64_t smc_event_t;

/** The channel failed and carries no further message. The service defines `arg`. */
typedef void (*smc_chan_err_fn_t)(void *arg);
/** Flow control: `on` is non-zero when the high watermark was reached, 0 when the low watermark was reached again. */
typedef void (*smc_throttle_fn_t)(uint32_t on);
/** A message of `size` bytes does not fit `old_buf`. Returns 1 after giving the channel a larger buffer, else 0. */
typedef uint32_t (*smc_rx_buffer_fn_t)(smc_chan_t chan, void *old_buf, size_t size);
/** A received message, 8-byte aligned. The service owns it, but the handler may write into it during the call. The
 * service defines the first two arguments. */
typedef void (*smc_msg_handler_fn_t)(void *arg1, void *arg2, void *msg, size_t size);
/** The send of a message has ended: `status` 0 when the server took it; otherwise the server never got it. */
typedef void (*smc_send_done_fn_t)(void *cookie, void *unused, uint32_t status);

/** Opens a channel to the server of that name; sets `*chan` on success. `arg3` is 0. */
uint32_t smc_msg_chan_open(const char *name, smc_event_t ev, uint32_t arg3, smc_chan_err_fn_t err_fn, smc_chan_t *chan);
/** Closes a channel; its handlers are not called any more. */
uint32_t smc_msg_chan_close(smc_chan_t *chan);
/** Sets the flow-control watermarks and their callback. */
uint32_t smc_msg_chan_fc_set(smc_chan_t chan, void *ctx, uint32_t high, uint32_t low, smc_throttle_fn_t throttle_fn);
/** Gives the channel its receive buffer; the caller keeps owning it. */
uint32_t smc_msg_rx_buffer_set(smc_chan_t chan, void *buf, size_t size, smc_rx_buffer_fn_t rx_fn);
/** Attaches a handler for messages whose first four bytes are `key` (type word, then domain). `arg4` is 0. */
uint32_t smc_msg_handler_attach(smc_chan_t chan, const void *key, smc_msg_handler_fn_t handler, uint32_t arg4,
                                uint16_t type_word, uint16_t domain);
/** Allocates a transmit buffer of `size` bytes, at least 8-byte aligned. */
uint32_t smc_msg_tx_buffer_alloc(size_t size, void **msg);
/** Frees a transmit buffer. */
void smc_msg_tx_buffer_free(void *msg);
/** Sends a message without waiting. After 0 the channel owns the message until it calls `done_fn` with `cookie`; after
 * any other result the caller still owns it. */
uint32_t smc_async_msg_sends(smc_chan_t chan, void *msg, void *cookie, size_t size, smc_send_done_fn_t done_fn);
/** Sends a message and waits for the answer, of which it writes at most `reply_size` bytes. An answer too short to hold
 * a result is a failure. The caller keeps owning the message. */
uint32_t smc_sync_msg_send(smc_chan_t chan, void *msg, size_t size, void *reply, size_t reply_size);

#ifdef __cplusplus
}
#endif

#endif
