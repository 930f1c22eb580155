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
#include "host/messaging/link.h"
#include "host/messaging/message.h"
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
    bool has_untaken() const { return !untaken_.empty(); }
    /** The oldest message that was not taken, and those behind it by its link; null: there is none. */
    message_t *oldest_untaken() { return untaken_.front(); }
    /** Takes the oldest message; the channel outlives the call of end_take that gives it back. */
    message_t *begin_take();
    /** `status` 0: the server took it. */
    void end_take(message_t *message, uint32_t status);
    /** The peer is gone, for the reason that `code` is. The link stays for what it holds, and is not used to send any
     * more. */
    void link_down(uint32_t code);

    uint32_t run() override;
    void loop_gone() override;

private:
    bool is_down() const { return down_code_ != 0; }
    bool is_closed() const { return link_ == nullptr; }
    bool dispatch_one(uint32_t &calls);
    bool dispatch_known(uint32_t &calls);
    void report_edge(uint32_t &calls);
    void complete(message_t *message, uint32_t &calls);
    void deliver(const received_t &received, uint32_t &calls);
    smc_msg_handler_fn_t find_handler(uint32_t key);
    bool ask_for_buffer(size_t size, uint32_t &calls);
    void drop(uint64_t &counter);
    void fail(uint32_t &calls);
    void update_throttle();

    smc_chan_t handle_;
    smc_chan_err_fn_t err_fn_;
    std::unique_ptr<link_t> link_; /* null once closed */
    size_t largest_message_ = 0;
    uint32_t down_code_ = 0; /* not 0: the link is down */
    bool is_running_ = false;

    message_queue_t untaken_;
    uint64_t untaken_bytes_ = 0;
    uint32_t in_flight_ = 0; /* messages between begin_take and end_take */
    message_queue_t done_;   /* waiting for their completion */

    uint32_t high_ = 0; /* 0: no flow control */
    uint32_t low_ = 0;
    smc_throttle_fn_t throttle_fn_ = nullptr;
    bool is_throttled_ = false;
    bool reported_throttled_ = false;
    uint32_t edges_ = 0; /* changes of is_throttled_ that were not reported, alternately on and off */

    uint8_t *rx_buf_ = nullptr;
    size_t rx_size_ = 0;
    smc_rx_buffer_fn_t rx_fn_ = nullptr;
    struct handler_t {
        uint32_t key; /* the first four bytes of a message */
        smc_msg_handler_fn_t fn;
    };
    std::vector<handler_t> handlers_; /* the one that was needed last is the first */
};

#endif
