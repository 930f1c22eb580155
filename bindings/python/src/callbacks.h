/* What the library and the platform call. */
#ifndef FWX_NAT64_PYTHON_CALLBACKS_H
#define FWX_NAT64_PYTHON_CALLBACKS_H

#include "slots.h"

extern const fwx_nat64_reply_cbs_t callbacks_replies;
extern const fwx_nat64_unsol_cbs_t callbacks_unsolicited;

/** Slot whose message goes out now, or 0. */
extern uint32_t callbacks_starting;
/** Whether the channel was full when the library said so last. */
extern uint32_t callbacks_throttled;

/** Has the library forget an added rule that the server does not have, so that it can be added again. Requires: its
 * command is under way; the rule is pending. */
void callbacks_drop_pending(const slot_t *slot);
void callbacks_throttle(uint32_t may_send, void *ctx);
uint32_t callbacks_walk(void *ctx, uint32_t count, void *data, uint64_t cookie, uint32_t value2, uint32_t status);
void callbacks_tap(void *arg, fwx_host_direction_t direction, const void *msg, size_t size);

#endif
