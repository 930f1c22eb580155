/*
 * The client's side of a channel: sending, flow control, dispatching what the link delivers, and ending. run()
 * dispatches changes of flow control first, then completions, then received messages, so that a message is completed
 * before the reply to it arrives.
 */
#include "host/messaging/channel.h"

#include <algorithm>
#include <cstring>

#include "fwx_host/errors.h"
#include "host/messaging/handle.h"
#include "host/runtime/inspect.h"

namespace {

constexpr uint32_t callbacks_per_run = 64;
constexpr size_t least_answer = 20;        /* bytes: a header and a result */
constexpr uint64_t limit_of_high_mark = 4; /* the limit of untaken bytes, as a multiple of the high mark */

void release_all(message_queue_t &queue) {
    while (!queue.empty()) {
        message_release(queue.pop());
    }
}

fwx_host_channel_end_fn_t end_fn;
void *end_arg;

}  // namespace

uint32_t answer_give(const void *question, size_t question_size, const void *answer, size_t size, void *reply,
                     size_t reply_size) {
    if (size == 0) return FWX_HOST_ERR_NO_ANSWER;
    tap_show(FWX_HOST_RECEIVED, exchange_t::sync, answer, size);
    if (size < least_answer || memcmp(answer, question, std::min(question_size, sizeof(uint32_t))) != 0) {
        host_errors.dropped_malformed += 1;
        return FWX_HOST_ERR_BAD_ANSWER;
    }
    memcpy(reply, answer, std::min(size, reply_size));
    return 0;
}

channel_t::channel_t(fwx_host_loop_t &loop, smc_chan_err_fn_t err_fn)
    : loop_task_t(loop), handle_(handle_make(this)), err_fn_(err_fn) {}

channel_t::~channel_t() {
    close();
    release_all(untaken_);
    release_all(done_);
}

void channel_t::close() {
    if (handle_ == 0) return;
    handle_release(handle_);
    handle_ = 0;
    delivery_t::end_all(this);
    link_.reset();
    edges_ = 0;
    make_ready();
}

/** Returns the code with which a message of this size is refused, or 0. */
uint32_t channel_t::refusal(size_t size) const {
    if (size < size_limit_) return 0;
    return is_down() ? down_code_ : FWX_HOST_ERR_TOO_LONG;
}

/** Cold path of send(): tells why a message is refused, shows it to the tap and updates flow control. */
uint32_t channel_t::send_any(message_t *message, size_t size, void *cookie, smc_send_done_fn_t done_fn) {
    if (const uint32_t code = refusal(size)) return code;
    if (untaken_bytes_ != 0 && untaken_bytes_ + size > most_untaken_bytes_) return FWX_HOST_ERR_FULL;
    queue(message, size, cookie, done_fn);
    tap_show(FWX_HOST_SENT, exchange_t::async, message->bytes(), size);
    update_throttle();
    return tell_link();
}

uint32_t channel_t::tell_link() {
    link_->messages_waiting();
    return 0;
}

uint32_t channel_t::ask(const message_t *message, size_t size, void *reply, size_t reply_size) {
    if (const uint32_t code = refusal(size)) return code;
    tap_show(FWX_HOST_SENT, exchange_t::sync, message->bytes(), size);
    return link_->ask(message->bytes(), size, reply, reply_size);
}

void channel_t::marks_set(uint32_t high, uint32_t low, smc_throttle_fn_t throttle_fn) {
    throttles_at_ = high == 0 ? UINT64_MAX : high;
    low_ = low;
    most_untaken_bytes_ = high == 0 ? limit_without_marks : limit_of_high_mark * high;
    watched_from_ = std::min(throttles_at_, most_untaken_bytes_);
    throttle_fn_ = throttle_fn;
    update_throttle();
}

void channel_t::rx_buffer_set(void *buf, size_t size, smc_rx_buffer_fn_t rx_fn) {
    if (buf != rx_buf_) delivery_t::end_all(this);
    rx_buf_ = static_cast<uint8_t *>(buf);
    rx_size_ = buf == nullptr ? 0 : size;
    rx_fn_ = rx_fn;
}

void channel_t::link_down(uint32_t code) {
    down_code_ = code;
    size_limit_ = 0;
    make_ready();
}

void channel_t::update_throttle() {
    const bool has_marks = throttles_at_ != UINT64_MAX;
    const bool throttled = has_marks && (is_throttled_ ? untaken_bytes_ > low_ : untaken_bytes_ >= throttles_at_);
    if (throttled == is_throttled_) return;
    is_throttled_ = throttled;
    edges_ += 1;
    make_ready();
}

uint32_t channel_t::run() {
    if (is_running_) return 0; /* a callback runs the loop; the outer run continues afterwards */
    is_running_ = true;
    calls_ = 0;
    budget_ = callbacks_per_run;
    dispatch_known();
    while (budget_ > 0 && dispatch_more()) {
    }
    is_running_ = false;
    const uint32_t calls = calls_;
    if (!is_closed()) link_->after_run();
    if (budget_ == 0) {
        make_ready();
    } else if (is_closed() && in_flight_ == 0) {
        delete this;
    }
    return calls;
}

void channel_t::loop_gone() {
    delete this;
}

/** Makes the link look for new events and dispatches them. When the channel has ended, completes the remaining messages
 * with an error and then reports the end to the client. Returns false when there was nothing to do. */
bool channel_t::dispatch_more() {
    const uint32_t budget = budget_;
    if (!is_closed()) link_->refresh();
    dispatch_known();
    if (budget_ != budget) return true;
    const bool has_ended = is_closed() || is_down();
    if (!has_ended || in_flight_ != 0) return false;
    if (!untaken_.empty()) {
        message_t *message = untaken_.pop();
        message->status = is_down() ? down_code_ : FWX_HOST_ERR_CLOSED;
        budget_ -= 1;
        complete(message);
        return true;
    }
    if (is_closed()) return false;
    budget_ -= 1;
    fail();
    return true;
}

/** Dispatches everything that is known already. Completions come before messages, so that a message is completed before
 * the reply to it is delivered. */
void channel_t::dispatch_known() {
    for (;;) {
        while (has_reports() && budget_ > 0) {
            budget_ -= 1;
            if (edges_ != 0) {
                report_edge();
            } else {
                complete(done_.pop());
            }
        }
        if (!may_deliver() || !link_->has_message()) return;
        link_->deliver();
    }
}

void channel_t::report_edge() {
    edges_ -= 1;
    reported_throttled_ = !reported_throttled_;
    if (throttle_fn_ == nullptr) return;
    throttle_fn_(reported_throttled_ ? 1 : 0);
    calls_ += 1;
}

void channel_t::complete(message_t *message) {
    if (message->done_fn == nullptr) {
        message_release(message);
        return;
    }
    message->owner = message_owner_t::CALLER;
    message->done_fn(message->cookie, nullptr, message->status);
    calls_ += 1;
}

smc_msg_handler_fn_t channel_t::prepare_any(message_key_t key, size_t size) {
    const auto drop = [](uint64_t &counter) -> smc_msg_handler_fn_t {
        counter += 1;
        return nullptr;
    };
    if (key == short_key) return drop(host_errors.dropped_malformed);
    const handler_t *found = find_handler(key);
    if (found == nullptr) return drop(host_errors.dropped_no_handler);
    const handler_t handler = latest_ = *found;
    if (size > rx_size_ && !ask_for_buffer(size)) return drop(host_errors.dropped_no_buffer);
    return handler.fn;
}

void channel_t::handler_set(uint32_t key, smc_msg_handler_fn_t handler) {
    handler_t *found = find_handler(key);
    if (found == nullptr) {
        handlers_.push_back({key, handler});
    } else {
        found->fn = handler;
    }
    latest_ = {no_key, nullptr};
}

/** Returns null when no handler has the key. */
channel_t::handler_t *channel_t::find_handler(message_key_t key) {
    const auto has_key = [key](const handler_t &handler) { return handler.key == key; };
    const auto found = std::find_if(handlers_.begin(), handlers_.end(), has_key);
    return found == handlers_.end() ? nullptr : &*found;
}

/** Asks the client for a larger buffer. Returns true when the client has set one that is large enough, or has closed
 * the channel. */
bool channel_t::ask_for_buffer(size_t size) {
    if (rx_fn_ == nullptr) return false;
    const uint32_t is_given = rx_fn_(handle_, rx_buf_, size);
    calls_ += 1;
    return is_closed() || (is_given == 1 && rx_size_ >= size);
}

void channel_t::fail() {
    if (err_fn_ != nullptr) {
        err_fn_(reinterpret_cast<void *>(handle_));
        calls_ += 1;
    }
    close();
    if (end_fn != nullptr) end_fn(end_arg);
}

extern "C" void fwx_host_channel_end_observe(fwx_host_channel_end_fn_t fn, void *arg) {
    end_fn = fn;
    end_arg = arg;
}
