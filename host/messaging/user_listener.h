/* A listening socket on a loop. It accepts clients, and turns them away when the process has no descriptors left. */
#ifndef HOST_MESSAGING_USER_LISTENER_H
#define HOST_MESSAGING_USER_LISTENER_H

#include "fwx_host/loop.h"
#include "host/messaging/user_socket.h"

class user_listener_t {
public:
    using client_fn_t = void (*)(void *arg, descriptor_t socket);

    /** `let_in` takes each client. `turn_away` takes a client that must be closed because no descriptors are left.
     * Neither may destroy the listener. */
    user_listener_t(fwx_host_loop_t &loop, client_fn_t let_in, client_fn_t turn_away, void *arg)
        : loop_(loop), let_in_(let_in), turn_away_(turn_away), arg_(arg) {}
    user_listener_t(const user_listener_t &) = delete;
    user_listener_t &operator=(const user_listener_t &) = delete;
    ~user_listener_t();

    /** Starts to listen. Returns 0, a code of user_socket_listen, or an errno value. Must be called once. */
    uint32_t start(user_socket_t kind, const char *name);

private:
    static void on_connect(void *arg);
    static void on_pause_over(void *arg);
    bool turn_away_one();
    void pause();

    fwx_host_loop_t &loop_;
    const client_fn_t let_in_;
    const client_fn_t turn_away_;
    void *const arg_;
    user_entrance_t entrance_;
    descriptor_t spare_; /* closed to accept and turn away a client when no other descriptors are left */
    uint64_t pause_timer_ = 0;
};

#endif
