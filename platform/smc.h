/*
 * Shared-memory messaging service: a channel to a server that is known by name.
 *
 * Conventions: results are 0 for success and a code of the service otherwise. All callbacks of a channel are delivered
 * on the messaging handle that it was opened on, never from inside an asynchronous send; a synchronous one may deliver.
 * Times and sizes: bytes.
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

/** The channel failed; it carries nothing from here on. `arg` is the service's. */
typedef void (*smc_chan_err_fn_t)(void *arg);
/** Flow control: non-zero when the high mark was reached, 0 when the low mark was reached again. */
typedef void (*smc_throttle_fn_t)(uint32_t on);
/** A message of `size` bytes does not fit `old_buf`; returns 1 after giving the channel a larger buffer, else 0. */
typedef uint32_t (*smc_rx_buffer_fn_t)(smc_chan_t chan, void *old_buf, size_t size);
/** A received message, 8-byte aligned; it stays the service's and may be written into during the call. The first two
 * arguments are the service's. */
typedef void (*smc_msg_handler_fn_t)(void *arg1, void *arg2, void *msg, size_t size);
/** A message that was handed over is done with: `status` 0 when the server took it, else it never got it. */
typedef void (*smc_send_done_fn_t)(void *cookie, void *unused, uint32_t status);

/** Opens a channel to the server of that name; `*chan` is set on success. `arg3` is 0. */
uint32_t smc_msg_chan_open(const char *name, smc_event_t ev, uint32_t arg3, smc_chan_err_fn_t err_fn, smc_chan_t *chan);
/** Closes a channel; its handlers are not called again. */
uint32_t smc_msg_chan_close(smc_chan_t *chan);
/** Sets the flow-control marks and their callback. */
uint32_t smc_msg_chan_fc_set(smc_chan_t chan, void *ctx, uint32_t high, uint32_t low, smc_throttle_fn_t throttle_fn);
/** Gives the channel its receive buffer, which stays the caller's. */
uint32_t smc_msg_rx_buffer_set(smc_chan_t chan, void *buf, size_t size, smc_rx_buffer_fn_t rx_fn);
/** Attaches a handler for messages whose first four bytes are `key` (type word, then domain). `arg4` is 0. */
uint32_t smc_msg_handler_attach(smc_chan_t chan, const void *key, smc_msg_handler_fn_t handler, uint32_t arg4,
                                uint16_t type_word, uint16_t domain);
/** Transmit buffer of `size` bytes, at least 8-byte aligned. */
uint32_t smc_msg_tx_buffer_alloc(size_t size, void **msg);
/** Gives a transmit buffer back. */
void smc_msg_tx_buffer_free(void *msg);
/** Hands a message over; on 0 it is the channel's until `done_fn` is called with `cookie`, otherwise it stays the
 * caller's. */
uint32_t smc_async_msg_sends(smc_chan_t chan, void *msg, void *cookie, size_t size, smc_send_done_fn_t done_fn);
/** Sends and waits for the answer, of which at most `reply_size` bytes are written; an answer shorter than a result is
 * a failure. The message stays the caller's. */
uint32_t smc_sync_msg_send(smc_chan_t chan, void *msg, size_t size, void *reply, size_t reply_size);

#ifdef __cplusplus
}
#endif

#endif
