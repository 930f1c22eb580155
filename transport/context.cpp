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

delivery_t *delivery_t::innermost;

uint32_t delivery_t::put_back(fwx_nat64_client_info_t *info) {
    const uint32_t rc = fwx_list_insert_tail(info->clnt_ctx_list, ctx_);
    if (rc != 0) return rc;
    ctx_->message = ~ctx_->message;
    ctx_ = nullptr;
    return 0;
}

void delivery_t::release_all(fwx_nat64_client_info_t *info) {
    for (delivery_t *delivery = innermost; delivery != nullptr; delivery = delivery->outer_) {
        if (delivery->ctx_ != nullptr) clnt_ctx_release(info, delivery->ctx_);
        delivery->ctx_ = nullptr;
    }
}

uint32_t clnt_ctx_drain(fwx_nat64_client_info_t *info,
                        void (*end)(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx)) {
    const binding_watch_t binding;
    while (binding.is_same()) {
        void *head = nullptr;
        uint32_t rc = fwx_list_head(info->clnt_ctx_list, &head);
        if (rc != 0 || head == nullptr) return rc;
        auto *ctx = static_cast<fwx_nat64_clnt_ctx_t *>(head);
        rc = clnt_ctx_take(info, ctx);
        if (rc != 0) return rc;
        end(info, ctx);
    }
    return 0;
}

void fwx_nat64_clnt_cmd_cb(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx) {
    delivery_t delivery(ctx);
    deliver_failure(ctx);
    if (delivery.ctx() != nullptr) clnt_ctx_release(info, ctx);
}
