/*
 * The listener, and the functions of fwx_host/user_socket.h, which use one for stream sockets. When a client cannot be
 * accepted now, the listener stops watching its socket for a while, because the socket stays readable and would make
 * the loop spin.
 */
#include "host/messaging/user_listener.h"

#include <fcntl.h>

#include <cerrno>
#include <ctime>
#include <memory>

#include "fwx_host/errors.h"
#include "fwx_host/user_socket.h"
#include "host/loop/closer.h"
#include "host/loop/loop.h"
#include "host/runtime/memory.h"
#include "host/runtime/process.h"

namespace {

constexpr uint64_t pause_ms = 100;

descriptor_t spare_make() {
    return descriptor_t(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

}  // namespace

uint32_t user_listener_t::start(user_socket_t kind, const char *name) {
    if (const uint32_t code = user_socket_listen(kind, name, &entrance_)) return code;
    spare_ = spare_make();
    if (!spare_.is_open()) return static_cast<uint32_t>(errno);
    return fwx_host_loop_watch(&loop_, entrance_.socket.get(), on_connect, this);
}

user_listener_t::~user_listener_t() {
    fwx_host_timer_cancel(&loop_, pause_timer_);
    if (entrance_.socket.is_open()) fwx_host_loop_unwatch(&loop_, entrance_.socket.get());
    user_socket_unlisten(entrance_);
}

void user_listener_t::on_connect(void *arg) {
    auto &listener = *static_cast<user_listener_t *>(arg);
    for (;;) {
        if (closer_is_full()) return listener.pause();
        descriptor_t socket;
        switch (user_socket_accept(listener.entrance_.socket, &socket)) {
            case 0:
                listener.let_in_(listener.arg_, std::move(socket));
                break;
            case EAGAIN:
                return;
            case ECONNABORTED:
            case EINTR:
                break;
            default:
                if (!listener.spare_.is_open()) listener.spare_ = spare_make();
                if (!listener.spare_.is_open()) return listener.pause();
                if (!listener.turn_away_one()) return;
                break;
        }
    }
}

/** Turns away the client at the head of the queue, with the spare descriptor. Returns false when no client was waiting:
 * without a free descriptor, accept fails before it looks at the queue, so only this call can tell. */
bool user_listener_t::turn_away_one() {
    spare_ = descriptor_t();
    descriptor_t socket;
    const uint32_t code = user_socket_accept(entrance_.socket, &socket);
    if (code == 0) turn_away_(arg_, std::move(socket));
    spare_ = spare_make();
    if (code != 0 && code != EAGAIN) pause();
    return code == 0;
}

/** Stops watching the socket for pause_ms. */
void user_listener_t::pause() {
    if (pause_timer_ != 0) return;
    pause_timer_ = fwx_host_timer_add(&loop_, pause_ms, on_pause_over, this);
    if (pause_timer_ != 0) fwx_host_loop_unwatch(&loop_, entrance_.socket.get());
}

void user_listener_t::on_pause_over(void *arg) {
    auto &listener = *static_cast<user_listener_t *>(arg);
    listener.pause_timer_ = 0;
    if (fwx_host_loop_watch(&listener.loop_, listener.entrance_.socket.get(), on_connect, arg) != 0) {
        listener.pause();
    }
}

struct fwx_host_user_listener {
    fwx_host_user_listener(fwx_host_loop_t &loop, fwx_host_user_client_fn_t client_fn, void *client_arg)
        : listener(loop, let_in, turn_away, this), fn(client_fn), arg(client_arg) {}

    static void let_in(void *self, descriptor_t socket) {
        const auto &made = *static_cast<fwx_host_user_listener *>(self);
        made.fn(made.arg, socket.release());
    }
    static void turn_away(void *, descriptor_t socket) { user_socket_close(std::move(socket)); }

    user_listener_t listener;
    const fwx_host_user_client_fn_t fn;
    void *const arg;
    const uint32_t process = host_process();
};

extern "C" {

uint32_t fwx_host_user_listen(const char *name, fwx_host_loop_t *loop, fwx_host_user_client_fn_t fn, void *arg,
                              fwx_host_user_listener_t **listener) {
    if (name == nullptr || loop == nullptr || fn == nullptr || listener == nullptr) return FWX_HOST_ERR_BAD_ARG;
    if (loop_is_foreign(*loop)) return FWX_HOST_ERR_FORKED;
    return host_guarded(host_errno_nomem, [&] {
        auto made = std::make_unique<fwx_host_user_listener_t>(*loop, fn, arg);
        const uint32_t code = made->listener.start(user_socket_t::SERVICE, name);
        if (code == 0) *listener = made.release();
        return code;
    });
}

void fwx_host_user_unlisten(fwx_host_user_listener_t *listener) {
    if (listener != nullptr && listener->process == host_process()) delete listener;
}

uint32_t fwx_host_user_connect(const char *name, uint64_t timeout_ms, int *fd) {
    if (name == nullptr || fd == nullptr) return FWX_HOST_ERR_BAD_ARG;
    constexpr uint64_t step_ms = 5; /* polled, because the kernel does not signal that a queue has room */
    const timespec step = {0, step_ms * 1000000};
    descriptor_t socket;
    uint32_t code = user_socket_connect(user_socket_t::SERVICE, name, &socket);
    for (uint64_t waited_ms = 0; code == FWX_HOST_ERR_BUSY && waited_ms < timeout_ms; waited_ms += step_ms) {
        nanosleep(&step, nullptr);
        code = user_socket_connect(user_socket_t::SERVICE, name, &socket);
    }
    if (code == 0) *fd = socket.release();
    return code;
}

}  // extern "C"
