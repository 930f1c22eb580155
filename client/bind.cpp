/* Binding and unbinding: creates the client info, connects, initialises the rule table, registers with the classifier
 * manager and sends the initial commands. It also flushes outstanding commands, on request and when the library is
 * unloaded while bound. The state of the one binding of the process lives here: its client info and `nat64_binding`. */
#include <cerrno>

#include "client/client.h"
#include "client/log.h"
#include "fwx_nat64/mapt.h"
#include "fwx_nat64/wire.h"
#include "notify/notify.h"
#include "platform/cgm.h"
#include "platform/runtime.h"
#include "transport/context.h"

namespace {

fwx_nat64_client_info_t *client_info = nullptr; /* owned; not null exactly while bound */
uint32_t initialised = 0;

static_assert(sizeof(fwx_nat64_client_info_t) == 168 && offsetof(fwx_nat64_client_info_t, reply_cb) == 64 &&
                  offsetof(fwx_nat64_client_info_t, throttle_on_cnt) == 164,
              "the PAL reads and writes the client info by this layout");
static_assert(sizeof(cgm_client_reg_t) == 16 && offsetof(cgm_client_reg_t, client_id) == 8,
              "the classifier manager reads the registration by this layout");

const cgm_client_reg_t cgm_registration = {fwx_nat64_cgm_notification_handler, FWX_NAT64_CGM_CLIENT_ID, 0};

fwx_nat64_client_info_t *client_info_create(const void *client_id, const fwx_nat64_unsol_cbs_t *unsol_cbs,
                                            const fwx_nat64_reply_cbs_t *reply_cbs) {
    auto *info = static_cast<fwx_nat64_client_info_t *>(
        fwx_calloc_named(nat64_client_memory_tag, 1, sizeof(fwx_nat64_client_info_t)));
    if (info == nullptr) return nullptr;
    if (client_id != nullptr) fwx_memcpy(info->client_id, client_id, sizeof(info->client_id));
    info->reply_cb = *reply_cbs;
    if (unsol_cbs != nullptr) info->unsol_cb = *unsol_cbs;
    info->unsol_hndlr = fwx_nat64_unsol_cmd;
    info->throttle_cb = nullptr;
    info->throttle_ctx = nullptr;
    return info;
}

uint32_t fwx_nat64_bind_cmn(const void *client_id, void *ev_arg, const fwx_nat64_unsol_cbs_t *unsol_cbs,
                            const fwx_nat64_reply_cbs_t *reply_cbs) {
    if (ev_arg == nullptr || reply_cbs == nullptr) return EINVAL;
    if (nat64_binding.is_unloading) return FWX_NAT64_ERR_NOT_READY;
    if (client_info != nullptr) return EEXIST;

    fwx_nat64_client_info_t *info = client_info_create(client_id, unsol_cbs, reply_cbs);
    if (info == nullptr) return ENOMEM;
    uint32_t rc = fwx_nat64_client_ev_setup(ev_arg, info);
    if (rc == 0) {
        client_info = info;
        ++nat64_binding.generation;
        rc = fwx_nat64_client_comingup(info);
    }
    if (rc != 0) {
        fwx_nat64_client_ev_teardown(info);
        client_info = nullptr;
        fwx_free_named(info);
        return rc;
    }

    /* From here on a failure leaves the library bound: the PAL must unbind before it binds again. */
    rc = fwx_mapt_plu_init();
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: PLU initialization failed: %s", __func__, xerr_strerror(rc));
        return rc;
    }
    rc = cgm_int_register_client(FWX_NAT64_CGM_CLIENT_ID, &cgm_registration);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: failed to register with CGM: %s", __func__, xerr_strerror(rc));
        return rc;
    }
    return 0;
}

uint32_t fwx_nat64_client_bind_init_send(fwx_nat64_client_info_t *info) {
    void *msg = nullptr;
    const uint32_t rc = fwx_nat64_client_sync_cmd_init(sizeof(fwx_nat64_sync_init_msg_t), FWX_NAT64_MSG_INIT, &msg);
    if (rc != 0) return rc;
    auto *init = static_cast<fwx_nat64_sync_init_msg_t *>(msg);
    init->init_code = FWX_NAT64_INIT_CODE;
    fwx_memcpy(init->client_id, info->client_id, sizeof(init->client_id));
    return fwx_nat64_client_sync_cmd_send(msg, sizeof(*init));
}

void flush(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx) {
    NAT64_LOG_WARNING("\n%s cmd=%d ctx=%p cb_func=%p", "fwx_nat64_clnt_cleanup", ctx->cmd, ctx->pal_ctx, ctx->cb_func);
    fwx_nat64_clnt_cmd_cb(info, ctx);
}

/* Runs at unload. If the library is still bound, every command that will get no answer is reported to the PAL. */
__attribute__((destructor)) void fwx_nat64_client_unload(void) {
    nat64_binding.is_unloading = true;
    fwx_nat64_clnt_cleanup();
    nat64_binding.flushed_generation = nat64_binding.generation; /* keeps later commands from being framed */
}

}  // namespace

nat64_binding_t nat64_binding;

uint32_t fwx_nat64_bind(const void *client_id, void *ev_arg, const fwx_nat64_unsol_cbs_t *unsol_cbs,
                        const fwx_nat64_reply_cbs_t *reply_cbs) {
    fwx_nat64_clnt_init();
    uint32_t rc = fwx_nat64_bind_cmn(client_id, ev_arg, unsol_cbs, reply_cbs);
    if (rc != 0) return rc;
    const binding_watch_t binding; /* a callback during the synchronous command may end the binding */
    rc = fwx_nat64_client_bind_init_send(client_info);
    if (rc == 0 && binding.is_same()) rc = fwx_nat64_client_unsol_setup_send_a();
    if (!binding.is_same()) return FWX_NAT64_ERR_NOT_READY;
    if (rc != 0) fwx_nat64_unbind();
    return rc;
}

void fwx_nat64_unbind(void) {
    fwx_nat64_client_info_t *info = client_info;
    if (info == nullptr) return;
    client_info = nullptr;
    fwx_nat64_client_goingdown(info);
    fwx_nat64_client_ev_teardown(info);
    fwx_free_named(info);
}

fwx_nat64_client_info_t *fwx_nat64_client_info_get(void) {
    return client_info;
}

void fwx_nat64_clnt_init(void) {
    if (initialised != 0) return;
    fwx_nat64_dbg_init();
    initialised = 1;
}

uint32_t fwx_nat64_client_unsol_setup_send_a(void) {
    void *msg = nullptr;
    const uint32_t rc =
        fwx_nat64_client_async_cmd_init(sizeof(fwx_nat64_msg_hdr_t), FWX_NAT64_MSG_UNSOL_SETUP, nullptr, nullptr, &msg);
    if (rc != 0) return rc;
    return fwx_nat64_client_async_cmd_send(msg, sizeof(fwx_nat64_msg_hdr_t));
}

uint32_t fwx_nat64_clnt_cleanup(void) {
    if (client_info == nullptr || client_info->clnt_ctx_list == nullptr) return 0;
    const uint32_t outer_flush = nat64_binding.flushed_generation;
    nat64_binding.flushed_generation = nat64_binding.generation;
    const uint32_t rc = clnt_ctx_drain(client_info, flush);
    nat64_binding.flushed_generation = outer_flush;
    return rc;
}
