/*
 * The messaging functions that clients call. Each checks for an injected fault and invalid arguments, and then calls
 * the channel. Opening a channel connects it to a server in this process, or to a server in another process if
 * fwx_host_connect_set names one for the channel name.
 */
#include <cstring>
#include <memory>
#include <string>
#include <unordered_map>

#include "fwx_host/errors.h"
#include "host/messaging/channel.h"
#include "host/messaging/handle.h"
#include "host/messaging/local/link.h"
#include "host/messaging/message.h"
#include "host/messaging/shm/link.h"
#include "host/runtime/fault.h"
#include "host/runtime/memory.h"
#include "platform/smc.h"

namespace {

using names_t = std::unordered_map<std::string, std::string>;

/* Names of servers in other processes, by channel name. Never destroyed, because static destructors may still call in.
 */
names_t &remote_servers = *new names_t;

uint32_t link_open(const char *name, fwx_host_loop_t &loop, channel_t &channel, std::unique_ptr<link_t> *link) {
    const auto remote = remote_servers.find(name);
    if (remote != remote_servers.end()) return shm_link_open(remote->second.c_str(), loop, channel, link);
    *link = local_link_open(name, channel);
    return *link == nullptr ? FWX_HOST_ERR_NO_SERVER : 0;
}

uint32_t send(channel_t &channel, void *msg, void *cookie, size_t size, smc_send_done_fn_t done_fn) {
    message_t *message = message_of_caller(msg);
    if (message == nullptr || size > message->capacity) return FWX_HOST_ERR_BAD_BUFFER;
    return channel.send(message, size, cookie, done_fn);
}

/* Cold path of smc_async_msg_sends, out of line so that the hot path saves no registers. */
[[gnu::noinline]] uint32_t look_up_and_send(smc_chan_t chan, void *msg, void *cookie, size_t size,
                                            smc_send_done_fn_t done_fn) {
    channel_t *channel = handle_look_up(chan);
    return channel == nullptr ? handle_refusal(chan) : send(*channel, msg, cookie, size, done_fn);
}

}  // namespace

extern "C" {

uint32_t fwx_host_connect_set(const char *channel_name, const char *server_name) {
    if (channel_name == nullptr) return FWX_HOST_ERR_BAD_ARG;
    return host_guarded(host_errno_nomem, [&] {
        if (server_name == nullptr) {
            remote_servers.erase(channel_name);
        } else {
            remote_servers.insert_or_assign(channel_name, server_name);
        }
    });
}

uint32_t smc_msg_chan_open(const char *name, smc_event_t ev, uint32_t, smc_chan_err_fn_t err_fn, smc_chan_t *chan) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_CHAN_OPEN)) return code;
    if (name == nullptr || ev == 0 || chan == nullptr) return FWX_HOST_ERR_BAD_ARG;
    auto &loop = *reinterpret_cast<fwx_host_loop_t *>(ev);
    if (loop_is_foreign(loop)) return FWX_HOST_ERR_FORKED;
    return host_guarded(host_errno_nomem, [&]() -> uint32_t {
        auto channel = std::make_unique<channel_t>(loop, err_fn);
        std::unique_ptr<link_t> link;
        if (const uint32_t code = link_open(name, loop, *channel, &link)) return code;
        channel->connect(std::move(link));
        *chan = channel.release()->handle();
        return 0;
    });
}

uint32_t smc_msg_chan_close(smc_chan_t *chan) {
    const uint32_t code = host_fault_check(FWX_HOST_OP_CHAN_CLOSE);
    channel_t *channel = chan == nullptr ? nullptr : handle_find(*chan);
    if (channel == nullptr) return code != 0 ? code : handle_refusal(chan == nullptr ? 0 : *chan);
    channel->close();
    return code;
}

uint32_t smc_msg_chan_fc_set(smc_chan_t chan, void *, uint32_t high, uint32_t low, smc_throttle_fn_t throttle_fn) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_FC_SET)) return code;
    channel_t *channel = handle_find(chan);
    if (channel == nullptr) return handle_refusal(chan);
    if (low > high) return FWX_HOST_ERR_BAD_ARG;
    channel->marks_set(high, low, throttle_fn);
    return 0;
}

uint32_t fwx_host_smc_is_throttled(uint64_t chan) {
    const channel_t *channel = handle_find(chan);
    return channel != nullptr && channel->is_throttled() ? 1 : 0;
}

uint32_t smc_msg_rx_buffer_set(smc_chan_t chan, void *buf, size_t size, smc_rx_buffer_fn_t rx_fn) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_RX_BUFFER_SET)) return code;
    channel_t *channel = handle_find(chan);
    if (channel == nullptr) return handle_refusal(chan);
    channel->rx_buffer_set(buf, size, rx_fn);
    return 0;
}

uint32_t smc_msg_handler_attach(smc_chan_t chan, const void *key, smc_msg_handler_fn_t handler, uint32_t,
                                uint16_t type_word, uint16_t domain) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_HANDLER_ATTACH)) return code;
    channel_t *channel = handle_find(chan);
    if (channel == nullptr) return handle_refusal(chan);
    if (key == nullptr || handler == nullptr) return FWX_HOST_ERR_BAD_ARG;
    const uint16_t named[] = {type_word, domain};
    if (memcmp(key, named, sizeof(named)) != 0) return FWX_HOST_ERR_BAD_ARG;
    uint32_t word = 0;
    memcpy(&word, key, sizeof(word));
    return host_guarded(host_errno_nomem, [&] { channel->handler_set(word, handler); });
}

uint32_t smc_async_msg_sends(smc_chan_t chan, void *msg, void *cookie, size_t size, smc_send_done_fn_t done_fn) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_ASYNC_SEND)) return code;
    channel_t *channel = handle_find_latest(chan);
    if (channel == nullptr) return look_up_and_send(chan, msg, cookie, size, done_fn);
    return send(*channel, msg, cookie, size, done_fn);
}

uint32_t smc_sync_msg_send(smc_chan_t chan, void *msg, size_t size, void *reply, size_t reply_size) {
    if (const uint32_t code = host_fault_check(FWX_HOST_OP_SYNC_SEND)) return code;
    channel_t *channel = handle_find(chan);
    if (channel == nullptr) return handle_refusal(chan);
    if (reply == nullptr) return FWX_HOST_ERR_BAD_ARG;
    const message_t *message = message_of_caller(msg);
    if (message == nullptr || size > message->capacity) return FWX_HOST_ERR_BAD_BUFFER;
    return channel->ask(message, size, reply, reply_size);
}

}  // extern "C"
