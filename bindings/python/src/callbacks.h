/* The callbacks that the library and the platform call: replies, unsolicited messages, flow control, and the tap. */
#ifndef FWX_NAT64_PYTHON_CALLBACKS_H
#define FWX_NAT64_PYTHON_CALLBACKS_H

#include "slots.h"

extern const fwx_nat64_reply_cbs_t callbacks_replies;
extern const fwx_nat64_unsol_cbs_t callbacks_unsolicited;

/** Number of the slot whose message is being sent now, or 0. */
extern uint32_t callbacks_starting;
/** Not 0 if the channel was full at the library's last report. */
extern uint32_t callbacks_throttled;

/** Removes an added rule that the server does not have from the library's table, so that it can be added again.
 * Requires: the command is outstanding and its rule is pending. Does nothing for other commands. */
void callbacks_drop_pending(const slot_t *slot);
void callbacks_throttle(uint32_t may_send, void *ctx);
/** The callback of a session walk. */
uint32_t callbacks_walk(void *ctx, uint32_t count, void *data, uint64_t cookie, uint32_t value2, uint32_t status);
/** Sees each message that is sent or received, and notes its context and the server's own result. */
void callbacks_tap(void *arg, fwx_host_direction_t direction, const void *msg, size_t size);

#endif
