/* The server's end of a channel. local/ and shm/ derive a peer from it for each kind of link. */
#ifndef HOST_MESSAGING_PEER_H
#define HOST_MESSAGING_PEER_H

#include "fwx_host/smc.h"
#include "host/messaging/server.h"

/**
 * A peer ends in two steps. First it is cut off from its channel: because the channel closed, the client's process
 * ended or damaged a ring, or the server dropped the peer or was unregistered. Then it is released, which calls
 * `disconnected` and deletes the peer. The loop releases it, or fwx_host_server_unregister at once.
 */
struct fwx_host_peer : loop_task_t {
    /** Throws std::bad_alloc. */
    explicit fwx_host_peer(fwx_host_server_t &its_server);

    uint32_t run() override;
    /** Cuts the peer off from its channel, unless that has happened. The loop then releases the peer. */
    void cut_off();
    /** Calls `disconnected` if the server knows the peer, and deletes the peer. If the peer is in use, the caller that
     * uses it deletes it later. Returns the number of callbacks called. */
    uint32_t release();

    virtual bool is_linked() const = 0;
    virtual bool has_message() = 0;
    /** Gives the server up to `limit` messages and returns their number. */
    virtual uint32_t take(uint32_t limit) = 0;
    virtual void after_run() {}
    /** May be called after the peer was cut off, and then returns FWX_HOST_ERR_CHANNEL_DOWN. */
    virtual uint32_t send(const void *msg, size_t size) = 0;
    /** Memory, in bytes, of the messages queued for the client. */
    virtual uint64_t waiting_bytes() const { return 0; }
    /** Counts a malformed message. A peer in another process is dropped when there are too many. */
    virtual void malformed() {}

    bool is_connected() const { return server != nullptr && is_linked(); }

    fwx_host_server_t *server; /* null once released, which needs that the peer is cut off: is_linked() is false */

protected:
    /** Keeps the peer from being deleted during a call into the server. */
    class use_t {
    public:
        explicit use_t(fwx_host_peer &peer) : peer_(peer) { ++peer_.uses_; }
        ~use_t() { --peer_.uses_; }
        use_t(const use_t &) = delete;
        use_t &operator=(const use_t &) = delete;

    private:
        fwx_host_peer &peer_;
    };

    /** Whether a call into the server is active. */
    bool is_in_use() const { return uses_ != 0; }
    /** Gives up the link. Requires is_linked(). */
    virtual void unlink() = 0;
    /** Calls `connected`, unless that has happened. Returns the number of callbacks called. */
    uint32_t announce();
    /** Implements take() for a derived class, whose take_one() gives its oldest message to the server. It is a template
     * so that no call for a message is virtual. */
    template <typename peer_t>
    static uint32_t take_from(peer_t &peer, uint32_t limit) {
        uint32_t taken = 0;
        for (; taken < limit && can_take_from(peer); ++taken) {
            peer.take_one();
        }
        return taken;
    }

private:
    template <typename peer_t>
    static bool can_take_from(peer_t &peer) {
        return peer.is_linked() && !peer.server->is_paused && peer.has_message();
    }

    bool is_announced_ = false;
    uint32_t uses_ = 0;
};

#endif
