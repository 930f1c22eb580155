/* What a server has of each channel to it. */
#ifndef HOST_MESSAGING_PEER_H
#define HOST_MESSAGING_PEER_H

#include "fwx_host/smc.h"
#include "host/messaging/server.h"

/**
 * A peer ends in two steps, whoever wants it to. It is cut off from its channel: because that closed, its process is
 * gone or sent what it may not, or the server dropped it or went away. Then it is released, which tells the server and
 * deletes the peer: from the loop, or at once when the server goes away.
 */
struct fwx_host_peer : loop_task_t {
    /** Throws std::bad_alloc. */
    explicit fwx_host_peer(fwx_host_server_t &its_server);

    uint32_t run() override;
    /** Cuts the channel off, if it is not; the loop then releases the peer. */
    void cut_off();
    /** Tells the server, if that is to be told, and deletes the peer, or leaves that to the call that uses it now.
     * Returns the number of callbacks. */
    uint32_t release();

    virtual bool is_linked() const = 0;
    virtual bool has_message() = 0;
    /** Gives the server as many messages, or all that there are. Returns their number. */
    virtual uint32_t take(uint32_t limit) = 0;
    virtual void after_run() {}
    /** Also when it is not linked any more, which is FWX_HOST_ERR_CHANNEL_DOWN. */
    virtual uint32_t send(const void *msg, size_t size) = 0;
    /** Memory of messages that wait for the client to read. */
    virtual uint64_t waiting_bytes() const { return 0; }
    /** A message was malformed; a peer in another process does not get away with any number of them. */
    virtual void malformed() {}

    bool is_connected() const { return server != nullptr && is_linked(); }

    fwx_host_server_t *server; /* null once released */

protected:
    /** A call into the server, which the peer must outlive. */
    class use_t {
    public:
        explicit use_t(fwx_host_peer &peer) : peer_(peer) { ++peer_.uses_; }
        ~use_t() { --peer_.uses_; }
        use_t(const use_t &) = delete;
        use_t &operator=(const use_t &) = delete;

    private:
        fwx_host_peer &peer_;
    };

    /** Gives up the link. Requires is_linked(). */
    virtual void unlink() = 0;
    /** Tells the server of the peer, if it was not told. Returns the number of callbacks. */
    uint32_t announce();
    /** take() of a peer whose kind is known, so that nothing asked for each message is a virtual call; take_one() gives
     * its oldest message to the server. */
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
        return peer.server != nullptr && peer.is_linked() && !peer.server->is_paused && peer.has_message();
    }

    bool is_announced_ = false;
    uint32_t uses_ = 0;
};

#endif
