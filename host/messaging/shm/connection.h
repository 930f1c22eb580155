/*
 * What a process holds of a link between two: the shared segment, the socket that tells when the other process is gone,
 * and the bells with which the two wake each other. A bell is rung once for each time that it is armed; who arms his
 * looks once more before he waits, so that no ring is missed.
 */
#ifndef HOST_MESSAGING_SHM_CONNECTION_H
#define HOST_MESSAGING_SHM_CONNECTION_H

#include <chrono>

#include "host/loop/loop.h"
#include "host/messaging/shm/segment.h"
#include "host/messaging/shm/socket.h"

class shm_connection_t final : public loop_bell_t {
public:
    /** The link or the peer that the connection belongs to. All but has_work() is called from the loop. */
    class owner_t {
    public:
        virtual ~owner_t() = default;
        /** Whether the other process has left something to do. Only looks: the loop asks among its bells. */
        virtual bool has_work() = 0;
        /** There may be something to do. */
        virtual void woken() = 0;
        /** The other process is gone, or said what it may not; called once, with FWX_HOST_ERR_CHANNEL_DOWN or why it
         * did not let this one in. */
        virtual void hung_up(uint32_t code) = 0;
    };

    using made_t = std::unique_ptr<shm_connection_t>;
    /** Makes a connection and offers it to the server. 0, an errno value, FWX_HOST_ERR_BUSY, or
     * FWX_HOST_ERR_CHANNEL_DOWN: the server is gone. Throws std::bad_alloc, as accept does. */
    static uint32_t offer(fwx_host_loop_t &loop, descriptor_t socket, made_t *made);
    /** Takes the connection that a client offers. 0, EAGAIN while there is no offer, FWX_HOST_ERR_VERSION, or
     * FWX_HOST_ERR_BAD_ARG: the offer is not sound. The socket is the connection's after 0 alone. */
    static uint32_t accept(fwx_host_loop_t &loop, descriptor_t &socket, made_t *made);
    ~shm_connection_t() override;

    /** Has `owner` called from now on. 0, or an errno value: the connection is of no use then. Throws std::bad_alloc.
     */
    uint32_t start(owner_t &owner);
    shm_segment_t &segment() { return *segment_; }
    void set_armed(bool armed);
    void set_wants_room(bool wants) { own_->wants_room.store(wants ? 1 : 0, std::memory_order_relaxed); }
    /** Rings if the other process's bell is armed and this is worth it: messages were written for it, or read of its.
     */
    void wake_other(bool has_written, bool has_read);

    void look() override;
    void arm() override;

    using deadline_t = std::chrono::steady_clock::time_point;
    enum class woken_t : uint8_t { BELL, HUNG_UP, TOO_LATE };
    /** Waits for the other process outside of the loop, which hears of what is rung meanwhile, too. For the client. */
    woken_t wait(deadline_t deadline) const;
    /** Ends the connection; the client hears why. */
    void turn_away(uint32_t code) { shm_turn_away(std::move(socket_), code); }
    /** Why the other process hung up, as hung_up tells. */
    uint32_t why_hung_up() const { return shm_why_closed(socket_); }

private:
    enum class role_t : uint8_t { CLIENT, SERVER };

    shm_connection_t(fwx_host_loop_t &loop, descriptor_t socket, shm_handles_t &handles, role_t role);
    static void on_bell(void *arg);
    static void on_socket(void *arg);

    fwx_host_loop_t &loop_;
    owner_t *owner_ = nullptr; /* null before start() */
    descriptor_t socket_;
    shm_mapping_t segment_; /* null: it is not sound */
    descriptor_t own_bell_;
    descriptor_t other_bell_;
    descriptor_t waiting_; /* polls own_bell_ for edges, and the socket; for wait() */
    shm_bell_t *own_ = nullptr;
    shm_bell_t *other_ = nullptr;
    bool is_armed_ = false;
    uint32_t armed_count_ = 0; /* the number of the latest arming, never 0 */
    uint32_t rung_for_ = 0;    /* the latest arming of the other process that it was rung for */
};

#endif
