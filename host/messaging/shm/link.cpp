/*
 * The client's end of a link to a server in another process. It copies the channel's untaken messages into the ring to
 * the server. A message stays in the channel's queue until the server has read its copy, so that each message's
 * completion tells whether the server took it. When the link ends, the copies that the server has not read are
 * withdrawn from the ring.
 */
#include "host/messaging/shm/link.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "fwx_host/errors.h"
#include "host/messaging/shm/connection.h"
#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"

namespace {

std::chrono::milliseconds answer_timeout{5000};

/** Polls for a message between two looks at the server's index. Each such look takes the index from the cache of the
 * server, which then waits for it; and what the server has read, its messages tell as well. */
constexpr uint32_t polls_per_look = 512;

/** While the server has messages to take, more of them are committed by so many bytes, or when the loop runs. A server
 * that polls for each message would take its line away from this process twice. */
constexpr uint32_t batch_bytes = 1024;

class shm_link_t final : public link_t, public shm_connection_t::owner_t {
public:
    shm_link_t(std::unique_ptr<shm_connection_t> connection, channel_t &channel);
    ~shm_link_t() override;
    uint32_t start() { return connection_->start(*this); }

    void messages_waiting() override;
    bool wants_each_message() const override { return true; } /* each is copied into the ring at once */
    uint32_t ask(const void *msg, size_t size, void *reply, size_t reply_size) override;
    bool has_message() override { return to_client_.has_record(); }
    void deliver() override { channel_.deliver_from(*this); }
    received_t front();
    using head_t = head_copy_t;
    bool pop_to(uint8_t *buffer, size_t capacity, const received_t &front, head_t *head);
    void pop();
    size_t largest_message() const override { return shm_largest_message; }
    void refresh() override;
    void after_run() override;

    bool has_work(bool is_last) override;
    void woken() override {
        has_to_look_ = !to_client_.has_record();
        channel_.make_ready();
    }
    void hung_up(uint32_t code) override { go_down(code); }

private:
    bool is_down() const { return down_code_ != 0; }
    bool copy_waiting();
    void look_for_taken();
    void report_taken();
    message_t *find_answer(uint32_t number);
    message_t *wait_for_answer(uint32_t number, const void *msg, uint32_t size);
    void check_rings();
    void go_down(uint32_t code);

    std::unique_ptr<shm_connection_t> connection_;
    channel_t &channel_;
    shm_writer_t to_server_;
    shm_reader_t to_client_;
    shm_reader_t answers_;
    message_t *last_copied_ = nullptr; /* the youngest of the channel's untaken messages with a copy in the ring */
    shm_record_t oldest_ = {};         /* the record that front() read; the server may change the ring's at any time */
    uint32_t last_ask_ = 0;
    uint32_t polls_ = 0;
    bool has_to_look_ = false; /* how far the server has come */
    uint32_t down_code_ = 0;   /* not 0: the link is down */
    bool has_written_ = false; /* since the last call of wake_other(), like has_read_ */
    bool has_read_ = false;
};

shm_link_t::shm_link_t(std::unique_ptr<shm_connection_t> connection, channel_t &channel)
    : connection_(std::move(connection)),
      channel_(channel),
      to_server_(connection_->segment().to_server, connection_->segment().to_server_bytes, shm_ring_bytes),
      to_client_(connection_->segment().to_client, connection_->segment().to_client_bytes, shm_ring_bytes),
      answers_(connection_->segment().answers, connection_->segment().answer_bytes, shm_answer_bytes) {
    connection_->set_wants_room(true); /* a message is completed when the server has read it */
}

shm_link_t::~shm_link_t() {
    if (!is_down()) {
        to_server_.withdraw();
        report_taken();
    }
}

void shm_link_t::messages_waiting() {
    if (is_down()) return;
    channel_.make_ready(); /* after_run() wakes the server */
    const bool is_idle = last_copied_ == nullptr;
    copy_waiting();
    if (is_idle || to_server_.uncommitted_bytes() >= batch_bytes) to_server_.commit();
}

/** Copies untaken messages into the ring while it has room. Returns true when all are copied. */
bool shm_link_t::copy_waiting() {
    message_t *next = last_copied_ != nullptr ? last_copied_->next : channel_.oldest_untaken();
    for (; next != nullptr; next = next->next) {
        if (!to_server_.has_room(next->size)) return false;
        next->status = host_fault_check(FWX_HOST_OP_SEND_DONE);
        if (next->status == 0) {
            to_server_.put(0, next->bytes(), next->size);
            has_written_ = true;
        }
        next->ring_end = to_server_.position();
        last_copied_ = next;
    }
    return true;
}

void shm_link_t::look_for_taken() {
    if (last_copied_ == nullptr) return;
    to_server_.refresh();
    report_taken();
}

void shm_link_t::report_taken() {
    while (last_copied_ != nullptr && to_server_.is_read(channel_.oldest_untaken()->ring_end)) {
        message_t *message = channel_.begin_take();
        if (message == last_copied_) last_copied_ = nullptr;
        channel_.end_take(message, message->status);
    }
}

void shm_link_t::refresh() {
    if (is_down()) return;
    connection_->set_armed(false);
    to_client_.check();
    if (std::exchange(has_to_look_, false)) look_for_taken();
    copy_waiting();
    check_rings();
}

void shm_link_t::after_run() {
    if (!is_down()) {
        to_server_.commit();
        connection_->wake_other(has_written_, has_read_);
    }
    has_written_ = has_read_ = false;
}

/** A broken ring has no messages; refresh() handles it. A message tells how far the server has read. What is completed
 * by that is dispatched first, so a reply is never delivered before the completion of its command. */
received_t shm_link_t::front() {
    if (!to_client_.has_record()) return {};
    oldest_ = to_client_.front();
    if (to_client_.is_broken()) return {};
    if (to_server_.note_read(oldest_.tag)) {
        if (to_server_.is_broken()) to_client_.give_up();
        report_taken();
        return {};
    }
    return {true, oldest_.size, oldest_.size < sizeof(uint32_t) ? short_key : to_client_.first_word()};
}

bool shm_link_t::pop_to(uint8_t *buffer, size_t capacity, const received_t &front, head_t *head) {
    to_client_.copy_to(buffer, oldest_);
    pop();
    if (key_of(buffer, front.size) != front.key) {
        host_errors.dropped_malformed += 1;
        return false;
    }
    head->take(buffer, front.size, capacity);
    return true;
}

void shm_link_t::pop() {
    has_read_ = true;
    is_down() ? to_client_.advance(oldest_) : to_client_.skip(oldest_); /* one ring full at most from a dead server */
}

uint32_t shm_link_t::ask(const void *msg, size_t size, void *reply, size_t reply_size) {
    if (++last_ask_ == 0) ++last_ask_;
    message_t *answer = wait_for_answer(last_ask_, msg, static_cast<uint32_t>(size));
    connection_->set_armed(false);
    channel_.make_ready(); /* the loop may have missed rings that came while this waited */
    if (answer == nullptr) return down_code_ != 0 ? down_code_ : FWX_HOST_ERR_NO_ANSWER;
    const uint32_t code = answer_give(msg, size, answer->bytes(), answer->size, reply, reply_size);
    message_free(answer);
    return code;
}

/** Returns null when the time is up or the link is down. */
message_t *shm_link_t::wait_for_answer(uint32_t number, const void *msg, uint32_t size) {
    const auto deadline = std::chrono::steady_clock::now() + answer_timeout;
    bool is_sent = false;
    bool is_armed = false;
    for (;;) {
        look_for_taken();
        if (!is_sent && copy_waiting() && to_server_.write(number, msg, size)) is_sent = has_written_ = true;
        if (message_t *answer = find_answer(number)) return answer;
        check_rings();
        if (is_down()) return nullptr;
        after_run(); /* commits and wakes */
        if (!is_armed) {
            connection_->set_armed(true);
            is_armed = true;
            continue;
        }
        const shm_connection_t::woken_t woken = connection_->wait(deadline);
        is_armed = false;
        if (woken == shm_connection_t::woken_t::TOO_LATE) return nullptr;
        if (woken == shm_connection_t::woken_t::HUNG_UP) go_down(connection_->why_hung_up());
    }
}

/** Returns the answer with this number, or null. Drops answers to earlier messages, which came too late. */
message_t *shm_link_t::find_answer(uint32_t number) {
    message_t *answer = nullptr;
    answers_.check();
    while (answer == nullptr && answers_.has_record()) {
        const shm_record_t record = answers_.front();
        if (answers_.is_broken()) break;
        const bool is_wanted = record.tag == number;
        if (is_wanted) answer = message_alloc(record.size);
        if (answer != nullptr) answers_.copy_to(answer->bytes(), record);
        if (is_wanted && answer == nullptr) host_errors.dropped_no_buffer += 1;
        answers_.advance(record);
    }
    answers_.publish();
    return answer;
}

bool shm_link_t::has_work(bool is_last) {
    if (is_down() || channel_.is_running()) return false;
    if (to_client_.has_record()) return true;
    const bool looks = is_last || ++polls_ % polls_per_look == 0;
    return looks && last_copied_ != nullptr && to_server_.has_update();
}

void shm_link_t::check_rings() {
    if (is_down()) return;
    if (!to_server_.is_broken() && !to_client_.is_broken() && !answers_.is_broken()) return;
    host_errors.dropped_malformed += 1;
    go_down(FWX_HOST_ERR_CHANNEL_DOWN);
}

void shm_link_t::go_down(uint32_t code) {
    if (is_down()) return;
    down_code_ = code;
    to_server_.withdraw();
    report_taken();
    channel_.link_down(code);
}

}  // namespace

uint32_t shm_link_open(const char *server_name, fwx_host_loop_t &loop, channel_t &channel,
                       std::unique_ptr<link_t> *link) {
    descriptor_t socket;
    if (const uint32_t code = shm_connect(server_name, &socket)) return code;
    shm_connection_t::made_t connection;
    if (const uint32_t code = shm_connection_t::offer(loop, std::move(socket), &connection)) return code;
    auto made = std::make_unique<shm_link_t>(std::move(connection), channel);
    if (const uint32_t code = made->start()) return code;
    *link = std::move(made);
    return 0;
}

extern "C" void fwx_host_sync_timeout_set_ms(uint64_t timeout_ms) {
    constexpr uint64_t longest_ms = uint64_t{86400} * 365 * 1000; /* 365 days, so that no deadline overflows */
    answer_timeout = std::chrono::milliseconds(std::min(timeout_ms, longest_ms));
}
