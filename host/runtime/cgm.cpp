#include "platform/cgm.h"

#include <unordered_map>

#include "fwx_host/cgm.h"
#include "fwx_host/errors.h"
#include "host/runtime/fault.h"
#include "host/runtime/memory.h"

namespace {

using clients_t = std::unordered_map<uint32_t, cgm_client_reg_t>;

clients_t &clients = *new clients_t; /* never destroyed, because a notification may come after static destructors */

struct {
    fwx_host_cgm_return_fn_t fn;
    void *arg;
} observer;

}  // namespace

extern "C" {

uint32_t cgm_int_register_client(uint32_t client_id, const cgm_client_reg_t *reg) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_CGM_REGISTER)) return code;
    if (reg == nullptr || reg->handler == nullptr || reg->client_id != client_id) return FWX_HOST_ERR_BAD_ARG;
    return host_guarded(host_errno_nomem, [&] { clients[client_id] = *reg; });
}

void cgm_notification_async_return(uint32_t client_id, void *ctx, uint32_t result) {
    if (observer.fn != nullptr) observer.fn(observer.arg, client_id, ctx, result);
}

uint32_t fwx_host_cgm_notify(uint32_t client_id, uint32_t op, void **data, uint32_t batch_id, uint32_t async,
                             void *ctx) {
    const auto client = clients.find(client_id);
    if (client == clients.end()) return FWX_HOST_ERR_NO_CLIENT;
    return client->second.handler(op, data, batch_id, async, nullptr, ctx);
}

void fwx_host_cgm_observe(fwx_host_cgm_return_fn_t fn, void *arg) {
    observer = {fn, arg};
}

}  // extern "C"
