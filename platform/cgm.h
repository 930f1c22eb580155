/*
 * Classifier group manager client: notifications of classifier batches and their outcome.
 */
#ifndef FWX_PLATFORM_CGM_H
#define FWX_PLATFORM_CGM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * A notification. `data` depends on `op`; with `async` non-zero the outcome is expected later through
 * cgm_notification_async_return with the same `ctx`, unless the handler returns non-zero.
 */
typedef uint32_t (*cgm_notification_fn_t)(uint32_t op, void **data, uint32_t batch_id, uint32_t async, void *unused,
                                          void *ctx);

/** Registration record; read by the manager for as long as the client is registered. */
typedef struct {
    cgm_notification_fn_t handler;
    uint32_t client_id;
    uint32_t reserved;
} cgm_client_reg_t;

/** Registers a client; a later registration under the same id replaces it. */
uint32_t cgm_int_register_client(uint32_t client_id, const cgm_client_reg_t *reg);
/** Tells the manager the outcome of an asynchronous notification. */
void cgm_notification_async_return(uint32_t client_id, void *ctx, uint32_t result);

#ifdef __cplusplus
}
#endif

#endif
