/* Asynchronous commands: framing, sending and the completion of a send. Framing takes a context from the pool and puts
 * it on the list of outstanding commands. A message that was not sent, or not taken by the server, releases its context
 * only if the context still belongs to that message: it may have been answered, flushed or reused meanwhile. */
#include "client/client.h"
#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "platform/smc.h"
#include "transport/context.h"

namespace {

/* True if the message was framed under the current binding and its context, if it names one, still belongs to it: not
 * answered, flushed or reused. */
bool framed_under(const fwx_nat64_client_info_t *info, const fwx_nat64_msg_hdr_t *hdr) {
    if (!client_is_up(info) || info->epoch != hdr->epoch) return false;
    const fwx_nat64_clnt_ctx_t *ctx = clnt_ctx_named_by(hdr);
    return ctx == nullptr || ctx->message == clnt_ctx_mark(hdr);
}

void unlist(fwx_nat64_client_info_t *info, fwx_nat64_clnt_ctx_t *ctx, const char *caller) {
    const uint32_t rc = clnt_ctx_take(info, ctx);
    if (rc != 0) NAT64_LOG_ERROR("\n%s fwx_list_remove_element %s failed", caller, xerr_strerror(rc));
}

void release_unsent(fwx_nat64_client_info_t *info, fwx_nat64_msg_hdr_t *hdr, const char *caller) {
    fwx_nat64_clnt_ctx_t *ctx = clnt_ctx_named_by(hdr);
    unlist(info, ctx, caller);
    clnt_ctx_to_pool(info, ctx);
    smc_msg_tx_buffer_free(hdr);
}

constexpr char send_callback_name[] = "fwx_nat64_client_async_send_callback";

/* Cold path. Kept out of line so that the hot path does not spill registers for it. */
[[gnu::noinline]] void end_untaken(void *cookie, uint32_t status) {
    if (cookie == nullptr) {
        NAT64_LOG_ERROR("\n%s NULL msg ptr %s", send_callback_name, xerr_strerror(status));
        return;
    }
    const auto *hdr = static_cast<const fwx_nat64_msg_hdr_t *>(cookie);
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    fwx_nat64_clnt_ctx_t *ctx = clnt_ctx_named_by(hdr);
    if (ctx != nullptr && framed_under(info, hdr)) {
        unlist(info, ctx, send_callback_name);
        fwx_nat64_clnt_cmd_cb(info, ctx);
    }
    smc_msg_tx_buffer_free(cookie);
}

void fwx_nat64_client_async_send_callback(void *cookie, void * /*unused*/, uint32_t status) {
    if (cookie == nullptr || status != 0) return end_untaken(cookie, status);
    smc_msg_tx_buffer_free(cookie);
}

constexpr char send_name[] = "fwx_nat64_client_async_cmd_send";

[[gnu::noinline]] uint32_t end_unsent(fwx_nat64_msg_hdr_t *hdr, uint32_t rc) {
    NAT64_LOG_ERROR("\n%s msg_send failed %s", send_name, xerr_strerror(rc));
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get(); /* a callback during the send may have unbound */
    if (clnt_ctx_named_by(hdr) != nullptr && framed_under(info, hdr)) {
        release_unsent(info, hdr, send_name);
    } else {
        smc_msg_tx_buffer_free(hdr); /* no context, or one that is gone or another command's by now */
    }
    return rc;
}

}  // namespace

uint32_t fwx_nat64_client_async_cmd_init(size_t size, uint32_t msgno, void *pal_ctx, void *cb_func, void **msg) {
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (!client_may_frame(info)) return FWX_NAT64_ERR_NOT_READY;
    if (msg == nullptr) return FWX_NAT64_ERR_BAD_ARG;

    auto *ctx = static_cast<fwx_nat64_clnt_ctx_t *>(chunk_malloc(info->clnt_ctx_chunk));
    if (ctx == nullptr) return FWX_NAT64_ERR_NOMEM;
    void *buffer = nullptr;
    if (smc_msg_tx_buffer_alloc(size, &buffer) != 0) {
        clnt_ctx_to_pool(info, ctx);
        return FWX_NAT64_ERR_NOMEM;
    }
    ctx->cb_func = cb_func;
    ctx->pal_ctx = pal_ctx;
    ctx->cmd = msgno & 0xffffU;
    ctx->message = clnt_ctx_mark(buffer);
    if (fwx_list_insert_tail(info->clnt_ctx_list, ctx) != 0) {
        clnt_ctx_to_pool(info, ctx);
        smc_msg_tx_buffer_free(buffer);
        return FWX_NAT64_ERR_NOMEM;
    }

    auto *hdr = static_cast<fwx_nat64_msg_hdr_t *>(buffer);
    hdr->type = static_cast<uint16_t>(FWX_NAT64_MSG_ASYNC | (msgno & FWX_NAT64_MSG_NUMBER_MASK));
    hdr->domain = FWX_NAT64_MSG_DOMAIN;
    hdr->clnt_ctx = reinterpret_cast<uintptr_t>(ctx);
    hdr->epoch = info->epoch;
    *msg = buffer;
    return 0;
}

uint32_t fwx_nat64_client_async_cmd_send(void *msg, size_t size) {
    if (msg == nullptr) return FWX_NAT64_ERR_BAD_ARG;
    auto *hdr = static_cast<fwx_nat64_msg_hdr_t *>(msg);

    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (!framed_under(info, hdr) || nat64_binding.is_unloading) return end_unsent(hdr, FWX_NAT64_ERR_NOT_READY);
    uint32_t rc = fwx_nat64_client_connect_to_server(&info, 1);
    if (rc == 0) rc = smc_async_msg_sends(info->chan, msg, msg, size, fwx_nat64_client_async_send_callback);
    return rc == 0 ? 0 : end_unsent(hdr, rc);
}

void fwx_nat64_client_async_cmd_abandon(fwx_nat64_client_info_t *info, void *msg) {
    release_unsent(info, static_cast<fwx_nat64_msg_hdr_t *>(msg), __func__);
}
