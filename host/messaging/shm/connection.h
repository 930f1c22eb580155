/*
 * One process's end of a link between two processes: the shared segment, the socket that shows when the other process
 * ends, and the bells with which the two wake each other. A bell is rung once each time it is armed. A process that has
 * armed its bell checks for work once more before it waits, so that no work is missed.
 */
#ifndef HOST_MESSAGING_SHM_CONNECTION_H
#define HOST_MESSAGING_SHM_CONNECTION_H

#include <chrono>

#include "host/loop/loop.h"
#include "host/messaging/shm/segment.h"
#include "host/messaging/shm/socket.h"

class shm_connection_t final : public loop_bell_t {
public:
    /** The link or the peer that owns the connection. The loop calls woken() and hung_up(). */
    class owner_t {
    public:
        virtual ~owner_t() = default;
        /** Whether the other process has caused work. Calls no callback, because the loop asks while it polls its
         * bells. `is_last`: the loop sleeps when there is none. */
        virtual bool has_work(bool is_last) = 0;
        /** Called when there may be work. */
        virtual void woken() = 0;
        /** Called once when the other process has ended or sent something on the socket. `code` is the reason for which
         * a server turned this client away, or FWX_HOST_ERR_CHANNEL_DOWN. */
        virtual void hung_up(uint32_t code) = 0;
    };

    using made_t = std::unique_ptr<shm_connection_t>;
    /** Client: creates a connection and offers it to the server. Returns 0, an errno value, FWX_HOST_ERR_BUSY, or
     * FWX_HOST_ERR_CHANNEL_DOWN when the server is gone. Throws std::bad_alloc, as accept does. */
    static uint32_t offer(fwx_host_loop_t &loop, descriptor_t socket, made_t *made);
    /** Server: accepts the connection that a client offers. Returns 0, EAGAIN while there is no offer,
     * FWX_HOST_ERR_VERSION, FWX_HOST_ERR_BAD_ARG for an invalid offer, or another errno value. Takes the socket when it
     * returns 0, and closes it when mapping the segment fails. */
    static uint32_t accept(fwx_host_loop_t &loop, descriptor_t &socket, made_t *made);
    ~shm_connection_t() override;

    /** Calls `owner` from now on. Returns 0, or an errno value after which the connection cannot be used. Throws
     * std::bad_alloc. */
    uint32_t start(owner_t &owner);
    shm_segment_t &segment() { return *segment_; }
    void set_armed(bool armed);
    void set_wants_room(bool wants) { own_->wants_room.store(wants ? 1 : 0, std::memory_order_relaxed); }
    /** Rings the other process's bell if that is armed and messages were written for it, or messages of it were read
     * and it waits for room. */
    void wake_other(bool has_written, bool has_read);

    void look() override;
    void arm() override;

    using deadline_t = std::chrono::steady_clock::time_point;
    enum class woken_t : uint8_t { BELL, HUNG_UP, TOO_LATE };
    /** Client: waits for the other process without running the loop. The loop also sees a ring that comes meanwhile. */
    woken_t wait(deadline_t deadline) const;
    /** Server: ends the connection and sends the client the reason. */
    void turn_away(uint32_t code) { shm_turn_away(std::move(socket_), code); }
    /** The code for hung_up(). */
    uint32_t why_hung_up() const { return shm_why_closed(socket_); }

private:
    enum class role_t : uint8_t { CLIENT, SERVER };

    shm_connection_t(fwx_host_loop_t &loop, descriptor_t socket, shm_handles_t &handles, role_t role);
    static void on_bell(void *arg);
    static void on_socket(void *arg);

    fwx_host_loop_t &loop_;
    owner_t *owner_ = nullptr; /* null before start() */
    descriptor_t socket_;
    shm_mapping_t segment_; /* null: mapping it failed */
    descriptor_t own_bell_;
    descriptor_t other_bell_;
    descriptor_t waiting_; /* polls own_bell_ for edges, and the socket; for wait() */
    shm_bell_t *own_ = nullptr;
    shm_bell_t *other_ = nullptr;
    bool is_armed_ = false;
    uint32_t armed_count_ = 0; /* the number of the latest arming, never 0 */
    uint32_t rung_for_ = 0;    /* the number of the other process's latest arming for which its bell was rung */
};

#endif
