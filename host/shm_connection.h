/*
 * An end of a connection between two processes: the shared segment, the socket that tells when the other end is gone,
 * and the bells with which the ends wake each other. An end rings only when the other says that it sleeps; an end says
 * so first and looks once more before it does, so that no bell is missed.
 */
#ifndef HOST_SHM_CONNECTION_H
#define HOST_SHM_CONNECTION_H

#include <chrono>

#include "host/loop_member.h"
#include "host/shm_segment.h"
#include "host/shm_socket.h"

enum class shm_role_t : uint8_t { CLIENT, SERVER };

/** What a connection calls, from its loop. */
class shm_end_t : public loop_sleeper_t {
public:
    virtual void rung() = 0;
    /** The other end is gone, or said what it may not; called once. */
    virtual void hung_up() = 0;
};

class shm_connection_t {
public:
    /** The client's end of a new connection; null when the server is gone, or no memory or descriptors are left. */
    static std::unique_ptr<shm_connection_t> offer(fwx_host_loop_t &loop, descriptor_t socket);
    /** The server's end of a connection that a client offers; null when the offer is not sound. */
    static std::unique_ptr<shm_connection_t> accept(fwx_host_loop_t &loop, descriptor_t socket);
    shm_connection_t(const shm_connection_t &) = delete;
    shm_connection_t &operator=(const shm_connection_t &) = delete;
    ~shm_connection_t();

    /** Has `end` called from now on. False when the system cannot watch more descriptors; the connection is of no use
     * then. */
    bool start(shm_end_t &end);
    shm_segment_t &segment() { return *segment_; }
    void set_asleep(bool asleep);
    void set_wants_room(bool wants) { own_->wants_room.store(wants ? 1 : 0, std::memory_order_relaxed); }
    /** Rings if the other end sleeps and this is worth it: messages were written for it, or read of its. */
    void wake_other(bool has_written, bool has_read);

    using deadline_t = std::chrono::steady_clock::time_point;
    enum class woken_t : uint8_t { BELL, HUNG_UP, TOO_LATE };
    /** Waits for the other end outside of the loop. What is rung meanwhile is not told to the loop any more. */
    woken_t wait(deadline_t deadline) const;

private:
    shm_connection_t(fwx_host_loop_t &loop, descriptor_t socket, shm_handles_t &handles, shm_role_t role);
    static void on_bell(void *arg);
    static void on_socket(void *arg);

    fwx_host_loop_t &loop_;
    shm_end_t *end_ = nullptr;
    descriptor_t socket_;
    shm_mapping_t segment_; /* null: it is not sound */
    descriptor_t own_bell_;
    descriptor_t other_bell_;
    shm_side_t *own_ = nullptr;
    shm_side_t *other_ = nullptr;
    bool is_asleep_ = false;
};

#endif
