/* The clients of a server, and the sending of asynchronous replies to them. For tests of clients, replies can be
 * delayed, held until they are released, duplicated or suppressed. */
#ifndef SERVER_OUTBOX_H
#define SERVER_OUTBOX_H

#include <algorithm>
#include <functional>
#include <map>
#include <new>
#include <vector>

#include "fwx_host/smc.h"
#include "server/server.h"

/** Calls `serve`. If it throws std::bad_alloc, drops the client, so that the client does not wait for an answer.
 * Nothing may be thrown through the messaging service and its loop. */
template <typename serve_t>
void serve_or_drop(fwx_host_peer_t *peer, serve_t serve) noexcept {
    try {
        serve();
    } catch (const std::bad_alloc &) {
        fwx_host_peer_drop(peer);
    }
}

/** A connected client. Identifiers are never reused, so that a reply to a client that is gone reaches no other client.
 */
struct client_t {
    uint64_t id;
    fwx_host_peer_t *peer;
    bool wants_notifications;
};

/** The clients that have a channel open now. */
struct clients_t {
    std::vector<client_t> open;
    uint64_t latest_id = 0;

    void add(fwx_host_peer_t *peer) { open.push_back({++latest_id, peer, false}); }
    void remove(const fwx_host_peer_t *peer) {
        std::erase_if(open, [&](const client_t &client) { return client.peer == peer; });
    }
    client_t *find(const fwx_host_peer_t *peer) {
        return find_if([&](const client_t &client) { return client.peer == peer; });
    }
    client_t *find(uint64_t id) {
        return find_if([&](const client_t &client) { return client.id == id; });
    }

private:
    template <typename predicate_t>
    client_t *find_if(predicate_t matches) {
        for (client_t &client : open) {
            if (matches(client)) return &client;
        }
        return nullptr;
    }
};

class outbox_t {
public:
    outbox_t(fwx_host_loop_t *host_loop, clients_t &open_clients) : loop(host_loop), clients(open_clients) {}
    outbox_t(const outbox_t &) = delete;
    outbox_t &operator=(const outbox_t &) = delete;
    ~outbox_t() { fwx_host_timer_cancel(loop, timer); }

    uint64_t delay_ms = 0;
    uint32_t copies = 1;
    uint32_t reply_limit = 65536; /* limit of the entries in one reply, in bytes */
    bool silent = false;
    uint64_t sent = 0;
    /** Called when a page of a paged answer was sent. */
    std::function<void(uint64_t walk)> page_sent;

    /** Calls `serve` by serve_or_drop, if the client is still connected. */
    template <typename serve_t>
    void serve(uint64_t client, serve_t serve) {
        const client_t *waiting = clients.find(client);
        if (waiting != nullptr) serve_or_drop(waiting->peer, serve);
    }
    /** Sends or queues a reply. `walk` is the number of the paged answer that it is a page of, or 0. Returns false when
     * the reply is suppressed. */
    bool post(uint64_t client, const void *msg, size_t size, uint64_t walk = 0);
    /** Holds all replies that are posted from now on. The next one is the answer to the change of this number, from 1.
     */
    void hold_unsaved(size_t change) {
        is_saving = true;
        answered_change = change;
    }
    /** Releases these replies. `codes` are the results of the changes, by number less 1. One other than 0 replaces the
     * result in the answer, and is passed to `refused`. */
    void release_unsaved(const std::vector<uint32_t> &codes, const std::function<void(uint32_t code)> &refused);
    void hold() { holding = true; }
    void release(reply_order_t order);
    void forget(uint64_t client);
    /** Bytes queued for a client that it has not read. */
    uint64_t unread_bytes(uint64_t client) const {
        const client_t *reader = clients.find(client);
        return reader == nullptr ? 0 : fwx_host_peer_waiting_bytes(reader->peer);
    }
    size_t entries_per_reply(size_t entry_size) const { return std::max<size_t>(1, reply_limit / entry_size); }
    uint64_t waiting() const { return unsaved.size() + held.size() + delayed.size(); }

private:
    struct reply_t {
        uint64_t client;
        uint64_t walk;
        std::vector<uint8_t> bytes;
        size_t change = 0; /* number of the change that it answers, or 0 */
    };

    void pass_on(uint64_t client, const void *msg, size_t size, uint64_t walk);
    void deliver(uint64_t client, const void *msg, size_t size, uint64_t walk);
    void deliver(const reply_t &reply) { deliver(reply.client, reply.bytes.data(), reply.bytes.size(), reply.walk); }
    void arm();
    static void deliver_due(void *outbox);

    fwx_host_loop_t *loop;
    clients_t &clients;
    bool is_saving = false;
    size_t answered_change = 0; /* number of the change that the next reply posted is the answer to, or 0 */
    std::vector<reply_t> unsaved;
    bool holding = false;
    std::vector<reply_t> held;
    std::multimap<uint64_t, reply_t> delayed; /* by due time, in ms of the platform's clock */
    uint64_t timer = 0;
};

#endif
