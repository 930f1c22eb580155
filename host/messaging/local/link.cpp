/*
 * The link and the peer of a channel whose server is in this process. They point at each other, and each clears the
 * other's pointer when it ends. The server takes messages from the channel's queue without a copy. A synchronous
 * message calls the server directly.
 */
#include "host/messaging/local/link.h"

#include <algorithm>

#include "fwx_host/errors.h"
#include "host/messaging/peer.h"
#include "host/runtime/bytes.h"
#include "host/runtime/fault.h"
#include "host/runtime/memory.h"

namespace {

struct local_peer_t;

class local_link_t final : public link_t {
public:
    explicit local_link_t(channel_t &its_channel) : channel(its_channel) {}
    local_link_t(const local_link_t &) = delete;
    local_link_t &operator=(const local_link_t &) = delete;
    ~local_link_t() override;

    void messages_waiting() override;
    bool wants_each_message() const override { return false; } /* the peer takes all that are in the queue */
    uint32_t ask(const void *msg, size_t size, void *reply, size_t reply_size) override;
    bool has_message() override { return !received.empty(); }
    void deliver() override { channel.deliver_from(*this); }
    received_t front() {
        const message_t *message = received.front();
        if (message == nullptr) return {};
        return {true, message->size, key_of(message->bytes(), message->size)};
    }
    /** Owns the message during its delivery, because the message itself has its first bytes. */
    class head_t {
    public:
        head_t() = default;
        ~head_t() {
            if (message_ != nullptr) message_free(message_);
        }
        head_t(const head_t &) = delete;
        head_t &operator=(const head_t &) = delete;
        void own(message_t *message) { message_ = message; }
        const uint8_t *bytes() const { return message_->bytes(); }

    private:
        message_t *message_ = nullptr;
    };
    bool pop_to(uint8_t *buffer, size_t /*capacity*/, const received_t &front, head_t *head) {
        message_t *message = received.pop();
        bytes_copy(buffer, message->bytes(), front.size);
        head->own(message);
        return true;
    }
    void pop() { message_free(received.pop()); }
    size_t largest_message() const override { return message_limit; }

    channel_t &channel;
    local_peer_t *peer = nullptr; /* null once cut off */
    message_queue_t received;
};

struct local_peer_t final : fwx_host_peer {
    local_peer_t(fwx_host_server_t &its_server, local_link_t &its_link) : fwx_host_peer(its_server), link(&its_link) {}

    bool is_linked() const override { return link != nullptr; }
    bool has_message() override { return link->channel.has_untaken(); }
    uint32_t take(uint32_t limit) override { return take_from(*this, limit); }
    void take_one() {
        channel_t &channel = link->channel; /* the server's call may delete the link, but not the channel */
        message_t *message = channel.begin_take();
        const uint32_t code = host_fault_check(FWX_HOST_OP_SEND_DONE);
        if (code == 0) server->ops.received(server->ctx, this, message->bytes(), message->size);
        channel.end_take(message, code);
    }
    uint32_t send(const void *msg, size_t size) override {
        if (link == nullptr) return FWX_HOST_ERR_CHANNEL_DOWN;
        message_t *message = message_copy_at_hand(msg, size);
        return message == nullptr ? send_any(msg, size) : queue(message);
    }
    uint32_t ask(const void *msg, size_t size, void *reply, size_t reply_size);

    local_link_t *link; /* null once cut off */

private:
    [[gnu::noinline]] uint32_t send_any(const void *msg, size_t size);
    uint32_t queue(message_t *message) {
        link->received.push(message);
        return link->channel.is_ready() ? 0 : wake_channel();
    }
    [[gnu::noinline]] uint32_t wake_channel() {
        link->channel.make_ready();
        return 0;
    }
    void unlink() override;
};

void local_peer_t::unlink() {
    link->peer = nullptr;
    link->channel.link_down(FWX_HOST_ERR_CHANNEL_DOWN);
    link = nullptr;
}

/** Cold path of send(): sends a message of any size, and allocates memory for it. */
uint32_t local_peer_t::send_any(const void *msg, size_t size) {
    if (size > message_limit) return FWX_HOST_ERR_TOO_LONG;
    message_t *message = message_copy(msg, size);
    return message == nullptr ? host_errno_nomem : queue(message);
}

local_link_t::~local_link_t() {
    while (!received.empty()) {
        pop();
    }
    if (peer == nullptr) return;
    peer->link = nullptr;
    peer->cut_off();
}

void local_link_t::messages_waiting() {
    if (peer != nullptr) peer->make_ready();
}

uint32_t local_link_t::ask(const void *msg, size_t size, void *reply, size_t reply_size) {
    return peer == nullptr ? FWX_HOST_ERR_CHANNEL_DOWN : peer->ask(msg, size, reply, reply_size);
}

/* The calls into the server may delete the link. `use` keeps the peer. */
uint32_t local_peer_t::ask(const void *msg, size_t size, void *reply, size_t reply_size) {
    if (server->is_paused) return FWX_HOST_ERR_NO_ANSWER;
    alignas(16) uint8_t answer[answer_limit];
    size_t length = 0;
    {
        const use_t use(*this);
        announce();
        take(UINT32_MAX);
        if (is_connected() && !server->is_paused) {
            length = server->ops.asked(server->ctx, this, msg, size, answer, sizeof(answer));
        }
    }
    const bool is_down = !is_connected();
    if (server == nullptr) {
        release();
    } else {
        make_ready(); /* because run() does nothing while the peer is in use */
    }
    if (is_down) return FWX_HOST_ERR_CHANNEL_DOWN;
    return answer_give(msg, size, answer, std::min(length, sizeof(answer)), reply, reply_size);
}

}  // namespace

std::unique_ptr<link_t> local_link_open(const char *name, channel_t &channel) {
    fwx_host_server_t *server = fwx_host_server_find(name);
    if (server == nullptr || !server->can_connect()) return nullptr;
    auto link = std::make_unique<local_link_t>(channel);
    link->peer = new local_peer_t(*server, *link); /* owned by the server from here on */
    return link;
}
