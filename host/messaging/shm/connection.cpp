#include "host/messaging/shm/connection.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <algorithm>
#include <cerrno>

namespace {

descriptor_t bell_make() {
    return descriptor_t(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
}

}  // namespace

shm_connection_t::shm_connection_t(fwx_host_loop_t &loop, descriptor_t socket, shm_handles_t &handles, role_t role)
    : loop_(loop),
      socket_(std::move(socket)),
      segment_(shm_segment_map(handles[0])),
      own_bell_(std::move(handles[role == role_t::CLIENT ? 1 : 2])),
      other_bell_(std::move(handles[role == role_t::CLIENT ? 2 : 1])) {
    if (segment_ == nullptr) return;
    const bool is_client = role == role_t::CLIENT;
    own_ = is_client ? &segment_->client_bell : &segment_->server_bell;
    other_ = is_client ? &segment_->server_bell : &segment_->client_bell;
}

std::unique_ptr<shm_connection_t> shm_connection_t::offer(fwx_host_loop_t &loop, descriptor_t socket) {
    shm_handles_t handles{shm_segment_make(), bell_make(), bell_make()};
    const auto is_open = [](const descriptor_t &handle) { return handle.is_open(); };
    if (!std::all_of(handles.begin(), handles.end(), is_open)) return nullptr;
    if (!shm_handles_send(socket, handles)) return nullptr;
    std::unique_ptr<shm_connection_t> made(new shm_connection_t(loop, std::move(socket), handles, role_t::CLIENT));
    return made->segment_ == nullptr ? nullptr : std::move(made);
}

std::unique_ptr<shm_connection_t> shm_connection_t::accept(fwx_host_loop_t &loop, descriptor_t socket) {
    shm_handles_t handles;
    if (!shm_handles_receive(socket, &handles)) return nullptr;
    std::unique_ptr<shm_connection_t> made(new shm_connection_t(loop, std::move(socket), handles, role_t::SERVER));
    return made->segment_ == nullptr ? nullptr : std::move(made);
}

shm_connection_t::~shm_connection_t() {
    if (owner_ == nullptr) return;
    fwx_host_loop_unwatch(&loop_, own_bell_.get());
    fwx_host_loop_unwatch(&loop_, socket_.get());
    loop_bell_remove(loop_, *this);
}

bool shm_connection_t::start(owner_t &owner) {
    owner_ = &owner;
    loop_bell_add(loop_, *this);
    return loop_watch_bell(loop_, own_bell_.get(), on_bell, this) == 0 &&
           fwx_host_loop_watch(&loop_, socket_.get(), on_socket, this) == 0;
}

void shm_connection_t::on_bell(void *arg) {
    static_cast<shm_connection_t *>(arg)->owner_->woken();
}

void shm_connection_t::on_socket(void *arg) {
    auto *connection = static_cast<shm_connection_t *>(arg);
    fwx_host_loop_unwatch(&connection->loop_, connection->socket_.get());
    connection->owner_->hung_up();
}

void shm_connection_t::set_armed(bool armed) {
    if (!armed && !is_armed_) return;
    is_armed_ = armed;
    own_->is_armed.store(armed ? 1 : 0, std::memory_order_relaxed);
    if (armed) std::atomic_thread_fence(std::memory_order_seq_cst);
}

void shm_connection_t::look() {
    if (owner_->has_work()) owner_->woken();
}

void shm_connection_t::arm() {
    set_armed(true);
    if (!owner_->has_work()) return;
    set_armed(false);
    owner_->woken();
}

void shm_connection_t::wake_other(bool has_written, bool has_read) {
    if (!has_written && !has_read) return;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    const bool is_worth_it = has_written || other_->wants_room.load(std::memory_order_relaxed) != 0;
    if (!is_worth_it || other_->is_armed.load(std::memory_order_relaxed) == 0) return;
    if (other_->is_armed.exchange(0, std::memory_order_relaxed) == 0) return;
    eventfd_write(other_bell_.get(), 1);
}

shm_connection_t::woken_t shm_connection_t::wait(deadline_t deadline) const {
    using std::chrono::milliseconds;
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left <= milliseconds::zero()) return woken_t::TOO_LATE;
        pollfd watched[] = {{own_bell_.get(), POLLIN, 0}, {socket_.get(), POLLIN, 0}};
        const int timeout_ms = static_cast<int>(std::min<int64_t>(left.count(), INT32_MAX));
        if (poll(watched, 2, timeout_ms) <= 0) continue; /* a signal, or time to see that it is too late */
        if (watched[1].revents != 0) return woken_t::HUNG_UP;
        eventfd_t rings = 0;
        eventfd_read(own_bell_.get(), &rings);
        return woken_t::BELL;
    }
}
