/* The connection to the server: opens the channel with flow control, receive buffer and message handlers, reopens it
 * when a send finds it down, and tears it down with the binding. The channel's callbacks (error, throttle, receive
 * buffer) are here too. Relies on the handler table of transport/ and on the context list, which going down empties. */
#include <cstdlib>

#include "client/client.h"
#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"
#include "transport/context.h"
#include "transport/handler_table.h"

namespace {

constexpr size_t initial_rx_size_bytes = 4000;

constexpr char context_pool_name[] = "FWX NAT64 Client CTX Chunk";
constexpr uint32_t context_pool_elements = 256;

constexpr char connect_name[] = "fwx_nat64_client_connect_to_server";

constexpr uint32_t callers_elements = 1; /* list kind: the caller owns the elements, and the list never frees them */

void fwx_nat64_clnt_chan_err_hndlr(void *arg) {
    NAT64_LOG_WARNING("\n%s channel error detected %p", __func__, arg);
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info != nullptr) info->connected = 0;
}

void fwx_nat64_client_throttle_cb(uint32_t on) {
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return;
    if (on != 0) {
        ++info->throttle_on_cnt;
    } else {
        ++info->throttle_off_cnt;
    }
    NAT64_LOG_TRACE("\nFWX NAT64 CL throttle=%s cb=%p ctx=%p on/off=(%d,%d)", on != 0 ? "TRUE" : "FALSE",
                    reinterpret_cast<void *>(info->throttle_cb), info->throttle_ctx, info->throttle_on_cnt,
                    info->throttle_off_cnt);
    if (info->throttle_cb != nullptr) info->throttle_cb(on == 0 ? 1 : 0, info->throttle_ctx);
}

uint32_t fwx_nat64_client_rx_buf_cb(smc_chan_t chan, void *old_buf, size_t size) {
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return 0;
    /* Not below the initial size, because a later connection announces that size for this buffer. */
    const size_t bytes = size < initial_rx_size_bytes ? initial_rx_size_bytes : size;
    void *new_buf = fwx_calloc_named(nat64_client_memory_tag, 1, bytes);
    NAT64_LOG_TRACE("\nFWX NAT64 CL rx buf cb obuf=%pnbuf=%p sz=%zu", old_buf, new_buf, size);
    if (new_buf == nullptr) return 0;
    void *previous = info->rx_buf;
    info->rx_buf = new_buf;
    if (smc_msg_rx_buffer_set(chan, new_buf, size, fwx_nat64_client_rx_buf_cb) != 0) {
        info->rx_buf = previous; /* the channel keeps using it */
        fwx_free_named(new_buf);
        return 0;
    }
    if (old_buf == nullptr) old_buf = previous;
    if (old_buf != nullptr) fwx_free_named(old_buf);
    return 1;
}

/* The two commands that a newly connected server must get before any other. */
uint32_t send_initial_commands(fwx_nat64_client_info_t *info) {
    uint32_t rc = fwx_nat64_client_init_cmd_send_a(info, nullptr, nullptr);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s init cmd send failed %s", connect_name, xerr_strerror(rc));
        return rc;
    }
    rc = fwx_nat64_client_unsol_setup_send_a();
    if (rc != 0) NAT64_LOG_ERROR("\n%s unsol setup send failed %s", connect_name, xerr_strerror(rc));
    return rc;
}

/* Opens the channel. Out of line: the common case, an open channel, stays short. */
__attribute__((noinline)) uint32_t connect(fwx_nat64_client_info_t *info, uint32_t send_init) {
    if (nat64_binding.greeting_generation == nat64_binding.generation) {
        return FWX_NAT64_ERR_AGAIN; /* the channel went down while its initial commands were sent */
    }

    NAT64_LOG_TRACE("\n%s attempting to connect", connect_name);
    const smc_event_t event = *static_cast<const smc_event_t *>(info->smc_ev);
    uint32_t rc = smc_msg_chan_open(FWX_NAT64_CHANNEL_NAME, event, 0, fwx_nat64_clnt_chan_err_hndlr, &info->chan);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s open failed %s", connect_name, xerr_strerror(rc));
        return FWX_NAT64_ERR_AGAIN;
    }

    NAT64_LOG_TRACE("\n%s FC set hi=%d lo=%d", connect_name, FWX_NAT64_FC_HIGH_BYTES, FWX_NAT64_FC_LOW_BYTES);
    rc = smc_msg_chan_fc_set(info->chan, info, FWX_NAT64_FC_HIGH_BYTES, FWX_NAT64_FC_LOW_BYTES,
                             fwx_nat64_client_throttle_cb);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s fc set failed %s", connect_name, xerr_strerror(rc));
        goto close;
    }

    smc_msg_rx_buffer_set(info->chan, info->rx_buf, initial_rx_size_bytes, fwx_nat64_client_rx_buf_cb);
    rc = fwx_nat64_client_attach_msg_handlers(info->chan);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s attach msg handlers failed %s", connect_name, xerr_strerror(rc));
        goto close;
    }

    /* Set before the initial commands, because their sends come back here and must find the channel open. */
    info->connected = 1;
    if (send_init != 0) {
        const binding_watch_t binding;
        nat64_binding.greeting_generation = nat64_binding.generation;
        rc = send_initial_commands(info);
        nat64_binding.greeting_generation = 0;
        if (!binding.is_same()) return FWX_NAT64_ERR_NOT_READY;
        if (rc != 0) goto disconnect;
        if (info->connected == 0) return FWX_NAT64_ERR_AGAIN;
    }
    NAT64_LOG_TRACE("\n%s connected\n", connect_name);
    return 0;

disconnect:
    info->connected = 0;
close:
    smc_msg_chan_close(&info->chan);
    return rc;
}

void free_rx_buf(fwx_nat64_client_info_t *info) {
    if (info->rx_buf != nullptr) fwx_free_named(info->rx_buf);
    info->rx_buf = nullptr;
}

void destroy_list_and_pool(fwx_nat64_client_info_t *info) {
    if (info->clnt_ctx_list != nullptr) fwx_list_destroy(info->clnt_ctx_list);
    info->clnt_ctx_list = nullptr;
    if (info->clnt_ctx_chunk != nullptr) chunk_destroy(info->clnt_ctx_chunk);
    info->clnt_ctx_chunk = nullptr;
}

}  // namespace

uint32_t fwx_nat64_client_comingup(fwx_nat64_client_info_t *info) {
    if (info == nullptr) return FWX_NAT64_ERR_COMINGUP_NO_INFO;

    uint32_t rc = fwx_list_init(&info->clnt_ctx_list, callers_elements);
    if (rc != 0) {
        info->clnt_ctx_list = nullptr; /* the facility may have written to it */
        return rc;
    }
    info->clnt_ctx_chunk = nullptr;
    info->rx_buf = fwx_calloc_named(nat64_client_memory_tag, 1, initial_rx_size_bytes);
    if (info->rx_buf != nullptr) {
        info->clnt_ctx_chunk =
            chunk_create(context_pool_name, sizeof(fwx_nat64_clnt_ctx_t), context_pool_elements, 1, 4, 0);
    }
    if (info->clnt_ctx_chunk != nullptr) {
        info->epoch = static_cast<uint32_t>(random());
        fwx_nat64_client_info_t *connected_info = nullptr;
        rc = fwx_nat64_client_connect_to_server(&connected_info, 0);
    } else {
        rc = FWX_NAT64_ERR_COMINGUP_NOMEM;
    }
    if (rc != 0) {
        destroy_list_and_pool(info);
        free_rx_buf(info);
    }
    return rc;
}

uint32_t fwx_nat64_client_connect_to_server(fwx_nat64_client_info_t **out, uint32_t send_init) {
    fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
    if (info == nullptr) return FWX_NAT64_ERR_NOT_READY;
    *out = info;
    return info->connected != 0 ? 0 : connect(info, send_init);
}

uint32_t fwx_nat64_client_attach_msg_handlers(smc_chan_t chan) {
    for (const fwx_nat64_msg_hndlr_t *entry = fwx_nat64_msg_hndlr_tbl; entry->msgno < FWX_NAT64_MSG_MAX; ++entry) {
        const struct {
            uint32_t form;
            smc_msg_handler_fn_t handler;
        } forms[] = {{FWX_NAT64_MSG_ASYNC, entry->async_hndlr}, {FWX_NAT64_MSG_SYNC, entry->sync_hndlr}};
        for (const auto &form : forms) {
            if (form.handler == nullptr) continue;
            const auto type_word = static_cast<uint16_t>(form.form | (entry->msgno & FWX_NAT64_MSG_NUMBER_MASK));
            const uint16_t key[2] = {type_word, FWX_NAT64_MSG_DOMAIN};
            const uint32_t rc = smc_msg_handler_attach(chan, key, form.handler, 0, type_word, FWX_NAT64_MSG_DOMAIN);
            if (rc != 0) return rc;
        }
    }
    return 0;
}

uint32_t fwx_nat64_client_init_cmd_send_a(fwx_nat64_client_info_t *info, void *pal_ctx, void *cb_func) {
    void *msg = nullptr;
    const uint32_t rc =
        fwx_nat64_client_async_cmd_init(sizeof(fwx_nat64_init_msg_t), FWX_NAT64_MSG_INIT, pal_ctx, cb_func, &msg);
    if (rc != 0) return rc;
    auto *init = static_cast<fwx_nat64_init_msg_t *>(msg);
    init->init_code = FWX_NAT64_INIT_CODE;
    fwx_memcpy(init->client_id, info->client_id, sizeof(init->client_id));
    return fwx_nat64_client_async_cmd_send(msg, sizeof(*init));
}

void fwx_nat64_client_goingdown(fwx_nat64_client_info_t *info) {
    if (info == nullptr) return;
    ++nat64_binding.generation;
    if (info->connected != 0) {
        info->connected = 0;
        smc_msg_chan_close(&info->chan);
    }
    free_rx_buf(info);
    if (info->clnt_ctx_list != nullptr) clnt_ctx_drain(info, clnt_ctx_release);
    if (info->clnt_ctx_chunk != nullptr) delivery_t::release_all(info);
    destroy_list_and_pool(info);
}
