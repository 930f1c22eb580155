/*
 * The messaging service consists of these parts:
 *
 *     client --- channel --- link --- peer --- server
 *
 * A client opens channels, and a server is registered under a channel name. A channel is the client's end of a
 * connection, and a peer is the server's end. There is one peer for each channel. The link connects the two and belongs
 * to the channel. In local/ it is a pair of pointers. In shm/ the channel and the peer are in two processes, and each
 * process has a shm_connection_t: the segment with its rings of messages, the socket that is closed when the other
 * process ends, and the bells with which the processes wake each other. A server that listens has a listener, which
 * accepts such segments from clients.
 *
 * A channel holds messages until the server takes them, and their completions until the loop delivers them. It delivers
 * the server's messages through the client's receive buffer.
 *
 * Closing releases the handle at once. The channel object stays until its completions are delivered. It deletes itself
 * only at the end of run(), so that every callback may close the channel.
 */
#ifndef HOST_MESSAGING_CHANNEL_H
#define HOST_MESSAGING_CHANNEL_H

#include <memory>
#include <vector>

#include "fwx_host/smc.h"
#include "host/loop/loop.h"
#include "host/messaging/delivery.h"
#include "host/messaging/link.h"
#include "host/messaging/message.h"
#include "host/messaging/tap.h"
#include "platform/smc.h"

class channel_t final : public loop_task_t {
public:
    channel_t(fwx_host_loop_t &loop, smc_chan_err_fn_t err_fn);
    ~channel_t() override;

    /* For the client. */
    smc_chan_t handle() const { return handle_; }
    void connect(std::unique_ptr<link_t> link) {
        link_ = std::move(link);
        tells_each_message_ = link_->wants_each_message();
        if (!is_down()) size_limit_ = link_->largest_message() + 1;
    }
    void close();
    uint32_t send(message_t *message, size_t size, void *cookie, smc_send_done_fn_t done_fn) {
        const bool is_usual = size < size_limit_ && untaken_bytes_ + size < watched_from_ && !tap_is_on();
        if (!is_usual) return send_any(message, size, cookie, done_fn);
        const bool is_first = untaken_.empty();
        queue(message, size, cookie, done_fn);
        return is_first || tells_each_message_ ? tell_link() : 0;
    }
    uint32_t ask(const message_t *message, size_t size, void *reply, size_t reply_size);
    void marks_set(uint32_t high, uint32_t low, smc_throttle_fn_t throttle_fn);
    void rx_buffer_set(void *buf, size_t size, smc_rx_buffer_fn_t rx_fn);
    void handler_set(uint32_t key, smc_msg_handler_fn_t handler);

    /* For the link. */
    /** Whether run() is active. Messages that arrive meanwhile wait until the running callback returns. */
    bool is_running() const { return is_running_; }
    bool is_throttled() const { return is_throttled_; }
    bool has_untaken() const { return !untaken_.empty(); }
    /** The oldest untaken message, from which `next` leads to the younger ones; null if there is none. */
    message_t *oldest_untaken() { return untaken_.front(); }
    /** Takes the oldest untaken message, which end_take() must give back. The channel exists at least until then. */
    message_t *begin_take() {
        message_t *message = untaken_.pop();
        untaken_bytes_ -= message->size;
        in_flight_ += 1;
        if (is_throttled_) update_throttle();
        return message;
    }
    /** Queues the message's completion. `status` is 0 when the server took the message. */
    void end_take(message_t *message, uint32_t status) {
        in_flight_ -= 1;
        message->status = status;
        done_.push(message);
        if (!is_ready() && !is_running_) make_ready(); /* a run that is active finds it */
    }
    /**
     * Delivers messages from a link until the run's budget is spent, or a completion or a change of flow control has to
     * be dispatched first. The link has three functions for its oldest message: front() describes it, if there is one.
     * pop() removes it. pop_to() copies it to a buffer and removes it; it counts the message as malformed and returns
     * false if it is no longer what front() returned. The link's type head_t keeps the first bytes of a message that
     * pop_to() removed. A message's handler may close the channel, which deletes the link.
     */
    template <typename link_kind_t>
    void deliver_from(link_kind_t &link) {
        while (may_deliver()) {
            const received_t received = link.front();
            if (!received.is_there) return;
            budget_ -= 1;
            smc_msg_handler_fn_t handler = latest_.fn;
            const bool is_usual = received.key == latest_.key && received.size <= rx_size_;
            if (!is_usual) {
                handler = prepare_any(received.key, received.size);
                if (is_closed()) return;
                if (handler == nullptr) {
                    link.pop();
                    continue;
                }
            }
            typename link_kind_t::head_t head;
            uint8_t *const buffer = rx_buf_;
            if (!link.pop_to(buffer, rx_size_, received, &head)) continue;
            hand_over(handler, buffer, received.size, head.bytes());
        }
    }
    /** The peer has ended, for the reason `code`. The link stays for the messages that it holds, but the channel sends
     * nothing through it any more. */
    void link_down(uint32_t code);

    uint32_t run() override;
    void loop_gone() override;

private:
    struct handler_t {
        message_key_t key;
        smc_msg_handler_fn_t fn;
    };

    bool is_down() const { return down_code_ != 0; }
    bool is_closed() const { return link_ == nullptr; }
    uint32_t refusal(size_t size) const;
    [[gnu::noinline]] uint32_t send_any(message_t *message, size_t size, void *cookie, smc_send_done_fn_t done_fn);
    [[gnu::noinline]] uint32_t tell_link();
    void queue(message_t *message, size_t size, void *cookie, smc_send_done_fn_t done_fn) {
        message->size = static_cast<uint32_t>(size);
        message->cookie = cookie;
        message->done_fn = done_fn;
        message->owner = message_owner_t::CHANNEL;
        untaken_.push(message);
        untaken_bytes_ += size;
    }
    bool has_reports() const { return edges_ != 0 || !done_.empty(); }
    bool may_deliver() const { return budget_ != 0 && !has_reports() && !is_closed(); }
    void dispatch_known();
    bool dispatch_more();
    void report_edge();
    void complete(message_t *message);
    /** Returns the handler of a message after making sure that the receive buffer can hold the message. Returns null
     * when the message is dropped, which this function counts. */
    [[gnu::noinline]] smc_msg_handler_fn_t prepare_any(message_key_t key, size_t size);
    /** Calls a handler with the message in the receive buffer. Its first bytes also stand at `head`. */
    void hand_over(smc_msg_handler_fn_t handler, uint8_t *buffer, size_t size, const uint8_t *head) {
        tap_show(FWX_HOST_RECEIVED, exchange_t::async, buffer, size);
        const delivery_t delivery(this, buffer, size, head);
        calls_ += 1;
        handler(reinterpret_cast<void *>(handle_), nullptr, buffer, size);
    }
    handler_t *find_handler(message_key_t key);
    bool ask_for_buffer(size_t size);
    void fail();
    void update_throttle();

    smc_chan_t handle_;
    smc_chan_err_fn_t err_fn_;
    std::unique_ptr<link_t> link_;    /* null once closed */
    size_t size_limit_ = 0;           /* messages of this size on are refused; 0 when the link is down */
    bool tells_each_message_ = false; /* to the link; else only the first one in the queue */
    uint32_t down_code_ = 0;          /* not 0: the link is down */
    bool is_running_ = false;
    uint32_t budget_ = 0; /* dispatches left to this run */
    uint32_t calls_ = 0;  /* callbacks called by this run */

    message_queue_t untaken_;
    uint64_t untaken_bytes_ = 0;
    uint32_t in_flight_ = 0; /* messages between begin_take and end_take */
    message_queue_t done_;   /* completed, done_fn not yet called */

    static constexpr uint64_t limit_without_marks = uint64_t{64} << 20;
    uint64_t most_untaken_bytes_ = limit_without_marks;
    uint64_t watched_from_ = limit_without_marks; /* fewer untaken bytes touch neither that limit nor the high mark */
    uint64_t throttles_at_ = UINT64_MAX;          /* the high mark in bytes; UINT64_MAX: no flow control */
    uint32_t low_ = 0;
    smc_throttle_fn_t throttle_fn_ = nullptr;
    bool is_throttled_ = false;
    bool reported_throttled_ = false;
    uint32_t edges_ = 0; /* changes of is_throttled_ that are not reported yet, alternately on and off */

    uint8_t *rx_buf_ = nullptr;
    size_t rx_size_ = 0;
    smc_rx_buffer_fn_t rx_fn_ = nullptr;
    std::vector<handler_t> handlers_;
    handler_t latest_ = {no_key, nullptr}; /* cache of the handler looked up last */
};

#endif
