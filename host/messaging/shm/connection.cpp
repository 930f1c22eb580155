/*
 * Sets up a connection and does the waking. Each process publishes in the segment whether its bell is armed. To miss no
 * work, a process arms its bell and then checks for work, while the other process publishes work and then checks
 * whether the bell is armed. A full memory barrier stands between the two steps on both sides.
 */
#include "host/messaging/shm/connection.h"

#include <sys/epoll.h>

#include <algorithm>
#include <cerrno>

#include "fwx_host/errors.h"
#include "host/loop/closer.h"
#include "host/messaging/shm/bell.h"

namespace {

/** errno, for a call that has just failed. */
uint32_t failure() {
    return static_cast<uint32_t>(errno);
}

int add(const descriptor_t &poll, const descriptor_t &polled, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = polled.get();
    return epoll_ctl(poll.get(), EPOLL_CTL_ADD, polled.get(), &event);
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

uint32_t shm_connection_t::offer(fwx_host_loop_t &loop, descriptor_t socket, made_t *made) {
    shm_handles_t handles;
    for (descriptor_t &handle : handles) {
        handle = &handle == &handles[0] ? shm_segment_make() : shm_bell_make();
        if (!handle.is_open()) return failure();
    }
    if (!shm_handles_send(socket, handles)) return shm_why_closed(socket);
    made_t offered(new shm_connection_t(loop, std::move(socket), handles, role_t::CLIENT));
    if (offered->segment_ == nullptr) return failure();
    offered->waiting_ = descriptor_t(epoll_create1(EPOLL_CLOEXEC));
    if (!offered->waiting_.is_open()) return failure();
    if (add(offered->waiting_, offered->own_bell_, EPOLLIN | EPOLLET) != 0) return failure();
    if (add(offered->waiting_, offered->socket_, EPOLLIN) != 0) return failure();
    *made = std::move(offered);
    return 0;
}

uint32_t shm_connection_t::accept(fwx_host_loop_t &loop, descriptor_t &socket, made_t *made) {
    shm_handles_t handles;
    if (const uint32_t code = shm_handles_receive(socket, &handles)) return code;
    if (shm_bell_is_sound(handles[1]) && shm_bell_is_sound(handles[2]) && shm_segment_is_sound(handles[0])) {
        made_t accepted(new shm_connection_t(loop, std::move(socket), handles, role_t::SERVER));
        if (accepted->segment_ == nullptr) return failure();
        *made = std::move(accepted);
        return 0;
    }
    for (descriptor_t &handle : handles) {
        closer_take(std::move(handle));
    }
    return FWX_HOST_ERR_BAD_ARG;
}

shm_connection_t::~shm_connection_t() {
    if (owner_ != nullptr) {
        fwx_host_loop_unwatch(&loop_, own_bell_.get());
        fwx_host_loop_unwatch(&loop_, socket_.get());
        loop_bell_remove(loop_, *this);
    }
    user_socket_close(std::move(socket_));
}

uint32_t shm_connection_t::start(owner_t &owner) {
    loop_bell_add(loop_, *this);
    owner_ = &owner;
    const uint32_t code = loop_watch_bell(loop_, own_bell_.get(), on_bell, this);
    return code != 0 ? code : fwx_host_loop_watch(&loop_, socket_.get(), on_socket, this);
}

void shm_connection_t::on_bell(void *arg) {
    static_cast<shm_connection_t *>(arg)->owner_->woken();
}

void shm_connection_t::on_socket(void *arg) {
    auto *connection = static_cast<shm_connection_t *>(arg);
    fwx_host_loop_unwatch(&connection->loop_, connection->socket_.get());
    connection->owner_->hung_up(connection->why_hung_up());
}

/* A process arms its bell, and then looks for work once more; the other one publishes its index, and then looks whether
 * the bell is armed. Each has a full fence between its store and its load, so at least one of them sees the store of
 * the other: work is never left without a ring. */
void shm_connection_t::set_armed(bool armed) {
    if (!armed && !is_armed_) return;
    is_armed_ = armed;
    if (armed && ++armed_count_ == 0) ++armed_count_;
    own_->armed.store(armed ? armed_count_ : 0, std::memory_order_relaxed);
    if (armed) std::atomic_thread_fence(std::memory_order_seq_cst);
}

void shm_connection_t::look() {
    if (owner_->has_work(false)) owner_->woken();
}

void shm_connection_t::arm() {
    set_armed(true);
    if (!owner_->has_work(true)) return;
    set_armed(false);
    owner_->woken();
}

void shm_connection_t::wake_other(bool has_written, bool has_read) {
    if (!has_written && !has_read) return;
    std::atomic_thread_fence(std::memory_order_seq_cst);
    const bool is_worth_it = has_written || other_->wants_room.load(std::memory_order_relaxed) != 0;
    const uint32_t armed = is_worth_it ? other_->armed.load(std::memory_order_relaxed) : 0;
    if (armed == 0 || armed == rung_for_) return;
    rung_for_ = armed;
    shm_bell_ring(other_bell_);
}

shm_connection_t::woken_t shm_connection_t::wait(deadline_t deadline) const {
    using std::chrono::milliseconds;
    for (;;) {
        const auto left = std::chrono::ceil<milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left <= milliseconds::zero()) return woken_t::TOO_LATE;
        epoll_event events[2];
        const int timeout_ms = static_cast<int>(std::min<int64_t>(left.count(), INT32_MAX));
        const int count = epoll_wait(waiting_.get(), events, 2, timeout_ms);
        if (count <= 0) continue; /* a signal or the time-out */
        const auto is_socket = [this](const epoll_event &event) { return event.data.fd == socket_.get(); };
        return std::any_of(events, events + count, is_socket) ? woken_t::HUNG_UP : woken_t::BELL;
    }
}
