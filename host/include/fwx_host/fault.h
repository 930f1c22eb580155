/*
 * Fault injection: makes a chosen call of a platform operation fail, and counts the calls of every operation.
 *
 * One fault can be armed per operation at a time. Not thread-safe, like the rest of the host platform.
 */
#ifndef FWX_HOST_FAULT_H
#define FWX_HOST_FAULT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** The operations that can fail. FWX_HOST_OP_SEND_DONE completes a message with an error; the server then never gets
 * the message. */
typedef enum {
    FWX_HOST_OP_CALLOC,
    FWX_HOST_OP_LIST_INIT,
    FWX_HOST_OP_LIST_HEAD,
    FWX_HOST_OP_LIST_INSERT_TAIL,
    FWX_HOST_OP_LIST_REMOVE,
    FWX_HOST_OP_LIST_DESTROY,
    FWX_HOST_OP_HASH_CREATE,
    FWX_HOST_OP_HASH_ADD,
    FWX_HOST_OP_HASH_DELETE,
    FWX_HOST_OP_HASH_DESTROY,
    FWX_HOST_OP_CHUNK_CREATE,
    FWX_HOST_OP_FWX_CHUNK_CREATE,
    FWX_HOST_OP_CHUNK_MALLOC,
    FWX_HOST_OP_EVENT_TO_SMC,
    FWX_HOST_OP_EVENT_CREATE,
    FWX_HOST_OP_CHAN_OPEN,
    FWX_HOST_OP_CHAN_CLOSE,
    FWX_HOST_OP_FC_SET,
    FWX_HOST_OP_RX_BUFFER_SET,
    FWX_HOST_OP_HANDLER_ATTACH,
    FWX_HOST_OP_TX_ALLOC,
    FWX_HOST_OP_ASYNC_SEND,
    FWX_HOST_OP_SEND_DONE,
    FWX_HOST_OP_SYNC_SEND,
    FWX_HOST_OP_CGM_REGISTER,
    FWX_HOST_OP_TBM_INIT,
    FWX_HOST_OP_TBM_LEAF_SIZE,
    FWX_HOST_OP_TBM_EXACT_MATCH,
    FWX_HOST_OP_TBM_LEAF_INIT,
    FWX_HOST_OP_TBM_LEAF_INSERT,
    FWX_HOST_OP_TBM_LEAF_DELETE,
    FWX_HOST_OP_TBM_FIRST_LEAF,
    FWX_HOST_OP_COUNT
} fwx_host_op_t;

/**
 * Arms a fault: the `nth` next call of `op` (1 is the very next one) fails with `code` (FWX_HOST_ERR_FAULT when 0), or
 * returns null where the operation returns a pointer. The fault strikes once. `nth` 0 disarms it.
 */
void fwx_host_fault_arm(fwx_host_op_t op, uint32_t nth, uint32_t code);
/** Disarms every fault and sets every call count to 0. */
void fwx_host_fault_reset(void);
/** Number of calls of `op` since the last reset, failed ones included. */
uint64_t fwx_host_fault_calls(fwx_host_op_t op);
/**
 * Adds a transmit buffer of 64 bytes to the free list; the next message of at most 64 bytes uses it. For tests of how a
 * program handles buffer addresses, because another platform's shared segment may begin anywhere.
 * @param buffer an address that is a multiple of 16, with 64 bytes of memory before it and 64 bytes at it. This memory
 * must stay valid until the process ends.
 */
void fwx_host_tx_buffer_offer(void *buffer);
/** Name of an operation, for use in messages. Never null. */
const char *fwx_host_op_name(fwx_host_op_t op);

#ifdef __cplusplus
}
#endif

#endif
