#include "host/smc_server.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "fwx_host/smc.h"
#include "host/internal.h"

namespace {

constexpr uint32_t messages_per_run = 64;
constexpr size_t largest_reply = size_t{64} << 10; /* of a synchronous message */

using servers_t = std::unordered_map<std::string, fwx_host_server_t *>;

servers_t &servers() {
    static servers_t &all = *new servers_t;
    return all;
}

/** The channel's end of a connection within the process. */
class local_link_t final : public smc_link_t {
public:
    explicit local_link_t(smc_channel_t &its_channel) : channel(its_channel) {}
    local_link_t(const local_link_t &) = delete;
    local_link_t &operator=(const local_link_t &) = delete;
    ~local_link_t() override;

    void messages_waiting() override;
    uint32_t ask(const void *msg, size_t size, void *reply, size_t reply_size) override;
    received_t front() override;
    void pop() override { message_free(received.pop()); }

    smc_channel_t &channel;
    fwx_host_peer_t *peer = nullptr; /* null once the server let go */
    message_queue_t received;
};

}  // namespace

struct fwx_host_server final : loop_member_t {
    fwx_host_server(fwx_host_loop_t &loop, const char *server_name, const fwx_host_server_ops_t &server_ops,
                    void *server_ctx)
        : loop_member_t(loop), home(loop), name(server_name), ops(server_ops), ctx(server_ctx) {}

    uint32_t run() override { return 0; } /* its peers do the work */
    bool can_connect() const { return has_loop(); }

    fwx_host_loop_t &home;
    const std::string name;
    const fwx_host_server_ops_t &ops;
    void *ctx;
    bool is_paused = false;
    std::unordered_set<fwx_host_peer_t *> peers;
};

/** The server's end of a connection within the process. Deletes itself when the channel and the server are done with
 * it. */
struct fwx_host_peer final : loop_member_t {
    fwx_host_peer(fwx_host_server_t &its_server, local_link_t &its_link)
        : loop_member_t(its_server.home), server(&its_server), link(&its_link) {}

    uint32_t run() override;
    uint32_t announce();
    uint32_t take(uint32_t limit);
    void detach();
    /** Leaves the server, which is told. */
    uint32_t part();

    bool is_connected() const { return server != nullptr && link != nullptr; }
    bool can_take() const { return is_connected() && !server->is_paused && link->channel.has_untaken(); }

    fwx_host_server_t *server; /* null once it was unregistered */
    local_link_t *link;        /* null once the channel closed or the server dropped it */
    bool is_announced = false;
    uint32_t busy = 0; /* depth of calls into the server that this object must outlive */
};

uint32_t fwx_host_peer::run() {
    if (busy != 0) return 0;
    busy += 1;
    uint32_t calls = announce();
    calls += take(messages_per_run);
    busy -= 1;
    if (is_connected()) {
        if (can_take()) make_ready();
        return calls;
    }
    const uint32_t parting_calls = part();
    delete this;
    return calls + parting_calls;
}

uint32_t fwx_host_peer::announce() {
    if (is_announced || !is_connected()) return 0;
    is_announced = true;
    if (server->ops.connected == nullptr) return 0;
    server->ops.connected(server->ctx, this);
    return 1;
}

uint32_t fwx_host_peer::take(uint32_t limit) {
    uint32_t taken = 0;
    for (; taken < limit && can_take(); ++taken) {
        smc_channel_t &channel = link->channel; /* outlives the server's call, the connection may not */
        message_t *message = channel.begin_take();
        const uint32_t code = host_fault_check(FWX_HOST_OP_SEND_DONE);
        if (code == 0) server->ops.received(server->ctx, this, message->bytes(), message->size);
        channel.end_take(message, code);
    }
    return taken;
}

void fwx_host_peer::detach() {
    if (link == nullptr) return;
    link->peer = nullptr;
    link->channel.link_down();
    link = nullptr;
}

uint32_t fwx_host_peer::part() {
    if (server == nullptr) return 0;
    fwx_host_server_t *from = server;
    server = nullptr;
    from->peers.erase(this);
    if (!is_announced || from->ops.disconnected == nullptr) return 0;
    busy += 1;
    from->ops.disconnected(from->ctx, this);
    busy -= 1;
    return 1;
}

local_link_t::~local_link_t() {
    while (!received.empty()) {
        pop();
    }
    if (peer == nullptr) return;
    peer->link = nullptr;
    peer->make_ready();
}

void local_link_t::messages_waiting() {
    if (peer != nullptr) peer->make_ready();
}

received_t local_link_t::front() {
    const message_t *message = received.front();
    return message == nullptr ? received_t{} : received_t{message->bytes(), message->size};
}

uint32_t local_link_t::ask(const void *msg, size_t size, void *reply, size_t reply_size) {
    fwx_host_peer_t *asked = peer; /* outlives the calls below, the link may not */
    if (asked == nullptr) return FWX_HOST_ERR_CHANNEL_DOWN;
    if (asked->server->is_paused) return FWX_HOST_ERR_NO_ANSWER;
    alignas(16) uint8_t answer[largest_reply];
    size_t length = 0;
    asked->busy += 1;
    asked->announce();
    asked->take(UINT32_MAX);
    if (asked->is_connected() && !asked->server->is_paused) {
        length = asked->server->ops.asked(asked->server->ctx, asked, msg, size, answer, sizeof(answer));
    }
    asked->busy -= 1;
    const bool is_down = !asked->is_connected();
    if (asked->busy == 0 && asked->server == nullptr) {
        delete asked;
    } else {
        asked->make_ready(); /* run() did nothing if the server's loop ran meanwhile */
    }
    if (is_down) return FWX_HOST_ERR_CHANNEL_DOWN;
    if (length == 0) return FWX_HOST_ERR_NO_ANSWER;
    length = std::min(length, sizeof(answer));
    tap_show(FWX_HOST_RECEIVED, answer, length);
    memcpy(reply, answer, std::min(length, reply_size));
    return 0;
}

std::unique_ptr<smc_link_t> local_link_open(const char *name, smc_channel_t &channel) {
    const auto found = servers().find(name);
    if (found == servers().end() || !found->second->can_connect()) return nullptr;
    fwx_host_server_t &server = *found->second;
    auto link = std::make_unique<local_link_t>(channel);
    link->peer = new fwx_host_peer_t(server, *link);
    server.peers.insert(link->peer);
    link->peer->make_ready();
    return link;
}

extern "C" {

uint32_t fwx_host_server_register(const char *name, fwx_host_loop_t *loop, const fwx_host_server_ops_t *ops, void *ctx,
                                  fwx_host_server_t **server) {
    if (name == nullptr || loop == nullptr || ops == nullptr || server == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (ops->received == nullptr || ops->asked == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (servers().count(name) != 0) return FWX_HOST_ERR_NAME_TAKEN;
    *server = servers()[name] = new fwx_host_server_t(*loop, name, *ops, ctx);
    return 0;
}

void fwx_host_server_unregister(fwx_host_server_t *server) {
    if (server == nullptr) return;
    servers().erase(server->name);
    while (!server->peers.empty()) {
        fwx_host_peer_t *peer = *server->peers.begin();
        peer->detach();
        peer->part();
        if (peer->busy == 0) delete peer; /* otherwise the call that is using it does */
    }
    delete server;
}

void fwx_host_server_pause(fwx_host_server_t *server, uint32_t paused) {
    server->is_paused = paused != 0;
    if (server->is_paused) return;
    for (fwx_host_peer_t *peer : server->peers) {
        peer->make_ready();
    }
}

uint32_t fwx_host_peer_send(fwx_host_peer_t *peer, const void *msg, size_t size) {
    if (peer->link == nullptr) return FWX_HOST_ERR_CHANNEL_DOWN;
    if (size > smc_largest_message) return FWX_HOST_ERR_TOO_LONG;
    message_t *message = message_alloc(size);
    if (message == nullptr) return host_errno_nomem;
    if (size != 0) memcpy(message->bytes(), msg, size);
    peer->link->received.push(message);
    peer->link->channel.make_ready();
    return 0;
}

void fwx_host_peer_drop(fwx_host_peer_t *peer) {
    peer->detach();
    peer->make_ready();
}

}  // extern "C"
