/*
 * What a process holds of a link between two: the shared segment, the socket that tells when the other process is gone,
 * and the bells with which the two wake each other. A bell is rung only when it is armed; a process arms its own and
 * looks once more before it waits, so that nothing is missed.
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
        /** The other process is gone, or said what it may not; called once. */
        virtual void hung_up() = 0;
    };

    /** Makes a connection and offers it to the server; null when that is gone, or no memory or descriptors are left.
     * Throws std::bad_alloc, as accept does. */
    static std::unique_ptr<shm_connection_t> offer(fwx_host_loop_t &loop, descriptor_t socket);
    /** Takes the connection that a client offers; null when the offer is not sound. */
    static std::unique_ptr<shm_connection_t> accept(fwx_host_loop_t &loop, descriptor_t socket);
    ~shm_connection_t() override;

    /** Has `owner` called from now on. False when the system cannot watch more descriptors; the connection is of no use
     * then. Throws std::bad_alloc. */
    bool start(owner_t &owner);
    shm_segment_t &segment() { return *segment_; }
    void set_armed(bool armed);
    void set_wants_room(bool wants) { own_->wants_room.store(wants ? 1 : 0, std::memory_order_relaxed); }
    /** Rings the other process's bell if that is armed and this is worth it: messages were written for it, or read of
     * its.
     */
    void wake_other(bool has_written, bool has_read);

    void look() override;
    void arm() override;

    using deadline_t = std::chrono::steady_clock::time_point;
    enum class woken_t : uint8_t { BELL, HUNG_UP, TOO_LATE };
    /** Waits for the other process outside of the loop. What is rung meanwhile is not told to the loop any more. */
    woken_t wait(deadline_t deadline) const;

private:
    enum class role_t : uint8_t { CLIENT, SERVER };

    shm_connection_t(fwx_host_loop_t &loop, descriptor_t socket, shm_handles_t &handles, role_t role);
    static void on_bell(void *arg);
    static void on_socket(void *arg);

    fwx_host_loop_t &loop_;
    owner_t *owner_ = nullptr; /* null before start() */
    descriptor_t socket_;
    shm_mapping_t segment_; /* null: it is not sound */
    descriptor_t own_bell_; /* readable when the bell was rung */
    descriptor_t other_bell_;
    shm_bell_t *own_ = nullptr;
    shm_bell_t *other_ = nullptr;
    bool is_armed_ = false;
};

#endif
