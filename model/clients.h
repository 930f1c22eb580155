/* The clients that have a channel open now. */
#ifndef MODEL_CLIENTS_H
#define MODEL_CLIENTS_H

#include <algorithm>
#include <new>
#include <vector>

#include "fwx_host/smc.h"

/** Nothing may be thrown through the messaging service and its loop: a client that cannot be served when memory is out
 * is dropped, so that it does not wait for an answer. */
template <typename serve_t>
void serve_or_drop(fwx_host_peer_t *peer, serve_t serve) noexcept {
    try {
        serve();
    } catch (const std::bad_alloc &) {
        fwx_host_peer_drop(peer);
    }
}

/** Identifiers are never used twice, so that what waits for a client that has gone reaches nobody. */
struct client_t {
    uint64_t id;
    fwx_host_peer_t *peer;
    bool wants_notifications;
};

struct clients_t {
    std::vector<client_t> open;
    uint64_t latest_id = 0;

    void add(fwx_host_peer_t *peer) { open.push_back({++latest_id, peer, false}); }
    void remove(const fwx_host_peer_t *peer) {
        open.erase(
            std::remove_if(open.begin(), open.end(), [&](const client_t &client) { return client.peer == peer; }),
            open.end());
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

#endif
