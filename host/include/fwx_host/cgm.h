/* The classifier manager's side: sends notifications to a client and observes its asynchronous returns. */
#ifndef FWX_HOST_CGM_H
#define FWX_HOST_CGM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Delivers a notification to the client registered under `client_id`.
 * @return the handler's return value, or FWX_HOST_ERR_NO_CLIENT. */
uint32_t fwx_host_cgm_notify(uint32_t client_id, uint32_t op, void **data, uint32_t batch_id, uint32_t async,
                             void *ctx);

typedef void (*fwx_host_cgm_return_fn_t)(void *arg, uint32_t client_id, void *ctx, uint32_t result);
/** Sets the observer of asynchronous returns; null removes it. */
void fwx_host_cgm_observe(fwx_host_cgm_return_fn_t fn, void *arg);

#ifdef __cplusplus
}
#endif

#endif
