/*
 * A server's end of a link to a client in another process. In each turn of the loop it takes up to 64 messages from the
 * client's ring. Once it has read a message, the client sees what was read and written only at the end of the turn,
 * reads first. So the client sees each message's completion before the reply, and a server that dies in a turn has
 * neither taken nor answered the turn's messages. Messages that do not fit into the client's ring go to a backlog.
 */
#include "host/messaging/shm/peer.h"

#include <algorithm>

#include "fwx_host/errors.h"
#include "host/messaging/capture.h"
#include "host/messaging/message.h"
#include "host/messaging/peer.h"
#include "host/messaging/shm/backlog.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"

namespace {

constexpr uint64_t most_clients = 256;
constexpr uint32_t most_malformed = 1000; /* messages of one client */

/* The direction is seen from the client. `tag` is 0 for an asynchronous message. */
void capture(fwx_host_direction_t direction, uint32_t tag, const void *msg, size_t size) {
    capture_write(direction, tag == 0 ? exchange_t::async : exchange_t::sync, msg, size);
}

class shm_peer_t final : public fwx_host_peer, public shm_connection_t::owner_t {
public:
    shm_peer_t(fwx_host_server_t &its_server, std::unique_ptr<shm_connection_t> connection);
    uint32_t start() { return connection_->start(*this); }

    bool is_linked() const override { return connection_ != nullptr; }
    bool has_message() override;
    uint32_t take(uint32_t limit) override;
    void take_one();
    void after_run() override;
    uint32_t send(const void *msg, size_t size) override;
    uint64_t waiting_bytes() const override { return unsent_.bytes(); }
    void malformed() override;
    void loop_gone() override { cut_off(); }

    bool has_work(bool is_last) override;
    void woken() override { make_ready(); }
    void hung_up(uint32_t) override { cut_off(); }

private:
    void unlink() override;
    bool end_turn();
    [[gnu::cold]] void end_broken();
    void answer(uint32_t number, const message_t &question);
    void send_unsent();

    std::unique_ptr<shm_connection_t> connection_; /* null once cut off */
    shm_reader_t requests_;
    shm_writer_t messages_;
    shm_writer_t answers_;
    backlog_t unsent_;
    uint32_t malformed_ = 0;
    bool has_written_ = false; /* since the last call of wake_other() */
    bool has_read_ = false;    /* in this turn of the loop */
};

shm_peer_t::shm_peer_t(fwx_host_server_t &its_server, std::unique_ptr<shm_connection_t> connection)
    : fwx_host_peer(its_server),
      connection_(std::move(connection)),
      requests_(connection_->segment().to_server, connection_->segment().to_server_bytes, shm_ring_bytes),
      messages_(connection_->segment().to_client, connection_->segment().to_client_bytes, shm_ring_bytes),
      answers_(connection_->segment().answers, connection_->segment().answer_bytes, shm_answer_bytes) {
    host_peers.clients += 1;
}

bool shm_peer_t::has_message() {
    if (requests_.is_broken()) end_broken();
    return requests_.has_record();
}

uint32_t shm_peer_t::take(uint32_t limit) {
    if (is_linked()) {
        connection_->set_armed(false);
        requests_.check();
    }
    return take_from(*this, limit);
}

void shm_peer_t::take_one() {
    const shm_record_t record = requests_.front();
    if (requests_.is_broken()) return end_broken();
    message_t *message = message_alloc(record.size);
    if (message == nullptr) return cut_off();
    requests_.copy_to(message->bytes(), record);
    requests_.advance(record);
    has_read_ = true;
    if (capture_is_open()) capture(FWX_HOST_SENT, record.tag, message->bytes(), message->size);
    if (record.tag == 0) {
        server->ops.received(server->ctx, this, message->bytes(), message->size);
    } else {
        answer(record.tag, *message);
    }
    message_free(message);
}

/* If the answer does not fit, the client has stopped waiting for it: the ring is full of earlier answers that the
 * client does not read. */
void shm_peer_t::answer(uint32_t number, const message_t &question) {
    alignas(16) uint8_t bytes[answer_limit];
    const size_t length = server->ops.asked(server->ctx, this, question.bytes(), question.size, bytes, sizeof(bytes));
    if (!is_connected()) return;
    if (capture_is_open()) capture(FWX_HOST_RECEIVED, number, bytes, std::min(length, sizeof bytes));
    answers_.write(number, bytes, static_cast<uint32_t>(std::min(length, sizeof(bytes))));
    has_written_ = true;
}

void shm_peer_t::after_run() {
    send_unsent();
    if (!end_turn()) return end_broken();
    connection_->wake_other(has_written_, has_read_);
    has_written_ = has_read_ = false;
    if (messages_.is_broken() || answers_.is_broken()) end_broken();
}

/** A client that withdraws its messages has only closed its channel. Everything else that breaks a ring is counted. */
void shm_peer_t::end_broken() {
    if (is_linked() && !requests_.is_withdrawn()) host_errors.dropped_malformed += 1;
    cut_off();
}

/** Publishes what was read, and then what was written. Returns false, and publishes no answers, when the client has
 * withdrawn messages, because it has completed them with an error. */
bool shm_peer_t::end_turn() {
    if (!requests_.publish()) return false;
    messages_.commit_with(requests_.position());
    answers_.commit();
    return true;
}

void shm_peer_t::unlink() {
    end_turn();
    connection_.reset();
    host_peers.clients -= 1;
}

uint32_t shm_peer_t::send(const void *msg, size_t size) {
    if (!is_linked()) return FWX_HOST_ERR_CHANNEL_DOWN;
    if (size > shm_largest_message) return FWX_HOST_ERR_TOO_LONG;
    if (capture_is_open()) capture(FWX_HOST_RECEIVED, 0, msg, size);
    if (!is_in_use()) make_ready(); /* after_run() wakes the client */
    if (unsent_.empty() && messages_.write(0, msg, static_cast<uint32_t>(size))) {
        has_written_ = true;
        if (!has_read_) messages_.commit_with(requests_.position()); /* else end_turn() does, after what was read */
        return 0;
    }
    const backlog_room_t room = unsent_.push(msg, static_cast<uint32_t>(size));
    if (room == backlog_room_t::NO_MEMORY) return host_errno_nomem;
    if (room == backlog_room_t::FULL) {
        host_peers.dropped += unsent_.count() + 1;
        host_peers.ended += 1;
        cut_off();
        return FWX_HOST_ERR_FULL;
    }
    connection_->set_wants_room(true);
    return 0;
}

void shm_peer_t::send_unsent() {
    if (unsent_.empty()) return;
    while (!unsent_.empty() && messages_.write(0, unsent_.front().bytes, unsent_.front().size)) {
        has_written_ = true;
        unsent_.pop();
    }
    connection_->set_wants_room(!unsent_.empty());
}

void shm_peer_t::malformed() {
    if (++malformed_ <= most_malformed || !is_linked()) return;
    host_peers.ended += 1;
    cut_off();
}

bool shm_peer_t::has_work(bool) {
    if (!is_connected()) return false;
    requests_.check();
    if (!server->is_paused && (requests_.has_record() || requests_.is_broken())) return true;
    return !unsent_.empty() && (messages_.has_room(unsent_.front().size) || messages_.is_broken());
}

}  // namespace

uint32_t shm_peer_make(fwx_host_server_t &server, std::unique_ptr<shm_connection_t> connection) {
    if (host_peers.clients >= most_clients) {
        connection->turn_away(FWX_HOST_ERR_BUSY);
        return FWX_HOST_ERR_BUSY;
    }
    auto *peer = new shm_peer_t(server, std::move(connection)); /* owned by the server from here on */
    const uint32_t code = host_guarded(host_errno_nomem, [peer] { return peer->start(); });
    if (code != 0) peer->cut_off();
    return code;
}
