#include "host/shm_server.h"

#include <algorithm>
#include <cstring>

#include "host/internal.h"
#include "host/shm_connection.h"
#include "host/smc_buffer.h"

namespace {

constexpr uint64_t limit_of_unsent = uint64_t{64} << 20; /* bytes for a client that reads too slowly */

/** The server's end of a connection to another process. */
class shm_peer_t final : public fwx_host_peer, public shm_end_t {
public:
    shm_peer_t(fwx_host_server_t &its_server, std::unique_ptr<shm_connection_t> connection);
    ~shm_peer_t() override;

    bool is_linked() const override { return connection_ != nullptr; }
    bool has_message() override;
    void take_one() override;
    void after_run() override;
    void detach() override;
    uint32_t send(const void *msg, size_t size) override;
    void loop_gone() override { detach(); }

    void rung() override { make_ready(); }
    void hung_up() override;
    void look() override;
    void fall_asleep() override;

private:
    bool has_work();
    void answer(uint32_t number, const message_t &question);
    void send_unsent();

    std::unique_ptr<shm_connection_t> connection_; /* null once the client is gone or was cut off */
    shm_reader_t requests_;
    shm_writer_t messages_;
    shm_writer_t answers_;
    message_queue_t unsent_;
    uint64_t unsent_bytes_ = 0;
    bool has_written_ = false; /* since the client was last woken */
    bool has_read_ = false;
};

shm_peer_t::shm_peer_t(fwx_host_server_t &its_server, std::unique_ptr<shm_connection_t> connection)
    : fwx_host_peer(its_server),
      connection_(std::move(connection)),
      requests_(connection_->segment().to_server, connection_->segment().to_server_bytes, shm_ring_bytes),
      messages_(connection_->segment().to_client, connection_->segment().to_client_bytes, shm_ring_bytes),
      answers_(connection_->segment().answers, connection_->segment().answer_bytes, shm_answer_bytes) {
    if (!connection_->start(*this)) connection_.reset();
}

shm_peer_t::~shm_peer_t() {
    while (!unsent_.empty()) {
        message_free(unsent_.pop());
    }
}

bool shm_peer_t::has_message() {
    connection_->set_asleep(false);
    if (!requests_.has_record()) requests_.refresh();
    if (requests_.is_broken()) detach();
    return requests_.has_record();
}

/* The message counts as taken before the server sees it: what the server answers is then never ahead of that. */
void shm_peer_t::take_one() {
    const shm_record_t record = requests_.front();
    message_t *message = requests_.is_broken() ? nullptr : message_alloc(record.size);
    if (message == nullptr) return detach();
    requests_.copy_to(message->bytes(), record);
    has_read_ = requests_.pop(record);
    if (!has_read_) {
        detach();
    } else if (record.tag == 0) {
        server->ops.received(server->ctx, this, message->bytes(), message->size);
    } else {
        answer(record.tag, *message);
    }
    message_free(message);
}

/* An answer that does not fit is one that its client gave up waiting for, behind others such. */
void shm_peer_t::answer(uint32_t number, const message_t &question) {
    alignas(16) uint8_t bytes[smc_largest_reply];
    const size_t length = server->ops.asked(server->ctx, this, question.bytes(), question.size, bytes, sizeof(bytes));
    if (!is_connected()) return;
    answers_.write(number, bytes, static_cast<uint32_t>(std::min(length, sizeof(bytes))));
    has_written_ = true;
}

void shm_peer_t::after_run() {
    send_unsent();
    connection_->wake_other(has_written_, has_read_);
    has_written_ = has_read_ = false;
    if (messages_.is_broken() || answers_.is_broken()) detach();
}

void shm_peer_t::detach() {
    if (connection_ == nullptr) return;
    connection_.reset();
    make_ready();
}

uint32_t shm_peer_t::send(const void *msg, size_t size) {
    if (size > shm_largest_message) return FWX_HOST_ERR_TOO_LONG;
    make_ready(); /* the client is woken when the server has done what there is to do */
    if (unsent_.empty() && messages_.write(0, msg, static_cast<uint32_t>(size))) {
        has_written_ = true;
        return 0;
    }
    if (unsent_bytes_ + size > limit_of_unsent) return FWX_HOST_ERR_FULL;
    message_t *message = message_alloc(size);
    if (message == nullptr) return host_errno_nomem;
    if (size != 0) memcpy(message->bytes(), msg, size);
    unsent_.push(message);
    unsent_bytes_ += size;
    connection_->set_wants_room(true);
    return 0;
}

void shm_peer_t::send_unsent() {
    if (unsent_.empty()) return;
    while (!unsent_.empty() && messages_.write(0, unsent_.front()->bytes(), unsent_.front()->size)) {
        has_written_ = true;
        unsent_bytes_ -= unsent_.front()->size;
        message_free(unsent_.pop());
    }
    connection_->set_wants_room(!unsent_.empty());
}

void shm_peer_t::hung_up() {
    detach();
}

/* Only looks: the loop asks for it in the middle of its sleepers. */
bool shm_peer_t::has_work() {
    if (!requests_.has_record()) requests_.refresh();
    if (!server->is_paused && (requests_.has_record() || requests_.is_broken())) return true;
    return !unsent_.empty() && (messages_.has_room(unsent_.front()->size) || messages_.is_broken());
}

void shm_peer_t::look() {
    if (is_connected() && has_work()) make_ready();
}

void shm_peer_t::fall_asleep() {
    if (!is_connected()) return;
    connection_->set_asleep(true);
    if (!has_work()) return;
    connection_->set_asleep(false);
    make_ready();
}

}  // namespace

shm_listener_t::shm_listener_t(fwx_host_server_t &server, const char *name, descriptor_t listening)
    : server_(server), name_(name), listening_(std::move(listening)) {
    fwx_host_loop_watch(&server_.home, listening_.get(), on_connect, this);
}

shm_listener_t::~shm_listener_t() {
    for (const auto &[fd, guest] : guests_) {
        fwx_host_loop_unwatch(&server_.home, fd);
    }
    fwx_host_loop_unwatch(&server_.home, listening_.get());
    shm_unlisten(name_.c_str());
}

void shm_listener_t::on_connect(void *arg) {
    auto &listener = *static_cast<shm_listener_t *>(arg);
    for (descriptor_t socket = shm_accept(listener.listening_); socket.is_open();
         socket = shm_accept(listener.listening_)) {
        const int fd = socket.get();
        guest_t &guest = listener.guests_.emplace(fd, guest_t{listener, std::move(socket)}).first->second;
        fwx_host_loop_watch(&listener.server_.home, fd, on_offer, &guest);
    }
}

void shm_listener_t::on_offer(void *arg) {
    auto &guest = *static_cast<guest_t *>(arg);
    guest.listener.admit(guest);
}

void shm_listener_t::admit(guest_t &guest) {
    const int fd = guest.socket.get();
    fwx_host_loop_unwatch(&server_.home, fd);
    auto connection = shm_connection_t::accept(server_.home, std::move(guest.socket));
    guests_.erase(fd);
    if (connection != nullptr) new shm_peer_t(server_, std::move(connection)); /* it is its server's from here on */
}

uint32_t shm_listener_open(fwx_host_server_t &server, const char *name, std::unique_ptr<shm_listener_t> *listener) {
    descriptor_t listening;
    if (const uint32_t code = shm_listen(name, &listening)) return code;
    *listener = std::make_unique<shm_listener_t>(server, name, std::move(listening));
    return 0;
}
