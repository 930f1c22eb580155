/* Client interface of the classifier group manager: notifications of classifier batches, and their outcome. */
#ifndef FWX_PLATFORM_CGM_H
#define FWX_PLATFORM_CGM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * A notification. `data` depends on `op`. If `async` is non-zero and the handler returns 0, the manager expects the
 * outcome later, through cgm_notification_async_return with the same `ctx`.
 */
typedef uint32_t (*cgm_notification_fn_t)(uint32_t op, void **data, uint32_t batch_id, uint32_t async, void *unused,
                                          void *ctx);

/** Registration record. The manager reads it as long as the client is registered. */
typedef struct {
    cgm_notification_fn_t handler;
    uint32_t client_id;
    uint32_t reserved;
} cgm_client_reg_t;

/** Registers a client; a later registration under the same id replaces it. */
uint32_t cgm_int_register_client(uint32_t client_id, const cgm_client_reg_t *reg);
/** Reports the outcome of an asynchronous notification to the manager. */
void cgm_notification_async_return(uint32_t client_id, void *ctx, uint32_t result);

#ifdef __cplusplus
}
#endif

#endif
