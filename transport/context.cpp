#include "transport/context.h"

#include "client/client.h"
#include "transport/handler_table.h"
#include "transport/walk.h"

void clnt_ctx_free_owned(fwx_nat64_clnt_ctx_t *ctx) {
    if (!msg_row(ctx->cmd).owns_walk || ctx->cb_func == nullptr) return;
    walk_free(static_cast<fwx_nat64_sess_walk_cb_t *>(ctx->cb_func));
    ctx->cb_func = nullptr;
}

void clnt_ctx_release(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx) {
    clnt_ctx_free_owned(ctx);
    clnt_ctx_to_pool(info, ctx);
}

uint32_t clnt_ctx_drain(fwx_nat64_client_info_t *info,
                        void (*end)(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx)) {
    const binding_watch_t binding;
    while (binding.is_same()) {
        void *head = nullptr;
        uint32_t rc = fwx_list_head(info->clnt_ctx_list, &head);
        if (rc != 0 || head == nullptr) return rc;
        rc = fwx_list_remove_element(info->clnt_ctx_list, head);
        if (rc != 0) return rc;
        end(info, static_cast<fwx_nat64_clnt_ctx_t *>(head));
    }
    return 0;
}

void fwx_nat64_clnt_cmd_cb(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx) {
    ctx->message = 0; /* its completion may fail inside the callback, and must not tell it again */
    if (deliver_failure(ctx)) clnt_ctx_release(info, ctx);
}
