/*
 * Messaging, in the words of this room, each of which means one thing:
 *
 *     client --- channel --- link --- peer --- server
 *
 * A client opens channels, a server is registered under a channel name. A channel is what the service keeps for a
 * client, a peer what it keeps for a server: there is one peer for each channel. The link is the way between the two
 * and belongs to the channel. In local/ it is a pair of pointers. In shm/ channel and peer are in two processes, each
 * of which has a connection: the segment with its rings of messages, the socket that tells when the other process is
 * gone, and the bells with which the two wake each other. A server that listens has a listener, which takes the
 * clients' offers of such a segment.
 *
 * A channel holds the messages until the server takes them, their completions until the loop delivers them, and
 * delivers what the server sends through the client's receive buffer.
 *
 * Closing gives the handle up at once; the channel itself stays until its completions are delivered and then deletes
 * itself, which it does only at the end of run(), so that every callback may close it.
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
        largest_message_ = link_->largest_message();
    }
    void close();
    uint32_t send(message_t *message, size_t size, void *cookie, smc_send_done_fn_t done_fn);
    uint32_t ask(const message_t *message, size_t size, void *reply, size_t reply_size);
    void marks_set(uint32_t high, uint32_t low, smc_throttle_fn_t throttle_fn);
    void rx_buffer_set(void *buf, size_t size, smc_rx_buffer_fn_t rx_fn);
    void handler_set(uint32_t key, smc_msg_handler_fn_t handler);

    /* For the link. */
    /** Whether a callback of the channel is being called; what comes meanwhile waits for its return. */
    bool is_running() const { return is_running_; }
    bool is_throttled() const { return is_throttled_; }
    bool has_untaken() const { return !untaken_.empty(); }
    /** The oldest message that was not taken, and those behind it by its link; null: there is none. */
    message_t *oldest_untaken() { return untaken_.front(); }
    /** Takes the oldest message; the channel outlives the call of end_take that gives it back. */
    message_t *begin_take() {
        message_t *message = untaken_.pop();
        untaken_bytes_ -= message->size;
        in_flight_ += 1;
        if (is_throttled_) update_throttle();
        return message;
    }
    /** `status` 0: the server took it. */
    void end_take(message_t *message, uint32_t status) {
        in_flight_ -= 1;
        message->status = status;
        done_.push(message);
        make_ready();
    }
    /**
     * Delivers from a link as many messages as the channel's run may still, or until there is something that has to be
     * told first. The link has front(), which tells of the oldest message, if there is one, copy_to(), which copies
     * that one, or counts it and returns false if it has changed since, and pop(), which takes it. What a message's
     * handler leads to may delete the link.
     */
    template <typename link_kind_t>
    void deliver_from(link_kind_t &link) {
        while (may_deliver()) {
            const received_t received = link.front();
            if (!received.is_there) return;
            budget_ -= 1;
            const smc_msg_handler_fn_t handler = prepare(received);
            if (is_closed()) return;
            const bool is_copied = handler != nullptr && link.copy_to(rx_buf_);
            link.pop();
            if (is_copied) hand_over(handler, received.size);
        }
    }
    /** The peer is gone, for the reason that `code` is. The link stays for what it holds, and is not used to send any
     * more. */
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
    [[gnu::cold]] void tell_of(const message_t &message);
    bool has_to_tell() const { return edges_ != 0 || !done_.empty(); }
    bool may_deliver() const { return budget_ != 0 && !has_to_tell() && !is_closed(); }
    void dispatch_known();
    bool dispatch_more();
    void report_edge();
    void complete(message_t *message);
    /** The handler of a message, for which there is room then; null: it is to be dropped, which is counted. */
    smc_msg_handler_fn_t prepare(const received_t &received) {
        const bool is_usual = received.key == latest_.key && received.size <= rx_size_;
        return is_usual ? latest_.fn : prepare_any(received.key, received.size);
    }
    [[gnu::noinline]] smc_msg_handler_fn_t prepare_any(message_key_t key, size_t size);
    /** Calls a handler with the message that is in the buffer. */
    void hand_over(smc_msg_handler_fn_t handler, size_t size) {
        tap_show(FWX_HOST_RECEIVED, exchange_t::async, rx_buf_, size);
        const delivery_t delivery(this, rx_buf_, size, rx_size_);
        calls_ += 1;
        handler(reinterpret_cast<void *>(handle_), nullptr, rx_buf_, size);
    }
    handler_t *find_handler(message_key_t key);
    bool ask_for_buffer(size_t size);
    void fail();
    void update_throttle();

    smc_chan_t handle_;
    smc_chan_err_fn_t err_fn_;
    std::unique_ptr<link_t> link_; /* null once closed */
    size_t largest_message_ = 0;
    uint32_t down_code_ = 0; /* not 0: the link is down */
    bool is_running_ = false;
    uint32_t budget_ = 0; /* dispatches that are left to this run */
    uint32_t calls_ = 0;  /* of callbacks, by this run */

    message_queue_t untaken_;
    uint64_t untaken_bytes_ = 0;
    uint32_t in_flight_ = 0; /* messages between begin_take and end_take */
    message_queue_t done_;   /* waiting for their completion */

    static constexpr uint64_t limit_without_marks = uint64_t{64} << 20;
    uint64_t most_untaken_bytes_ = limit_without_marks;
    uint64_t throttles_at_ = UINT64_MAX; /* the high mark; this: no flow control */
    uint32_t low_ = 0;
    smc_throttle_fn_t throttle_fn_ = nullptr;
    bool is_throttled_ = false;
    bool reported_throttled_ = false;
    uint32_t edges_ = 0; /* changes of is_throttled_ that were not reported, alternately on and off */

    uint8_t *rx_buf_ = nullptr;
    size_t rx_size_ = 0;
    smc_rx_buffer_fn_t rx_fn_ = nullptr;
    std::vector<handler_t> handlers_;
    handler_t latest_ = {no_key, nullptr}; /* the one that was needed last */
};

#endif
