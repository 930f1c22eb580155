/* The two notification handlers that bind registers: one for the classifier manager, one for the server. */
#ifndef NOTIFY_NOTIFY_H
#define NOTIFY_NOTIFY_H

#include <stddef.h>
#include <stdint.h>

/**
 * Handler of the classifier manager's notifications.
 * @param op       FWX_NAT64_CGM_OP_END_BATCH, _CLASSIFIER_UPDATE or _IGNORED.
 * @param data     for an update: its first word is the address of 24 bytes of classifier data.
 * @param batch_id passed on to the server.
 * @param async    non-zero: the outcome is reported through cgm_notification_async_return.
 * @param ctx      the manager's context of an asynchronous notification.
 * @return the server's result or a code for the manager; FWX_NAT64_ERR_CGM_INVALID for any other operation, or when the
 *         data or context is missing.
 */
uint32_t fwx_nat64_cgm_notification_handler(uint32_t op, void **data, uint32_t batch_id, uint32_t async, void *unused,
                                            void *ctx);

/** Handles the server's unsolicited commands, except for the wakeup of the command queue. `msg` is only read. */
void fwx_nat64_unsol_cmd(void *msg, size_t size);

#endif
