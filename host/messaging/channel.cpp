#include "host/messaging/channel.h"

#include <algorithm>
#include <cstring>

#include "fwx_host/errors.h"
#include "host/messaging/handle.h"
#include "host/messaging/tap.h"
#include "host/runtime/inspect.h"

namespace {

constexpr uint32_t callbacks_per_run = 64;
constexpr size_t least_answer = 20; /* bytes of a header and a result */
constexpr uint64_t limit_without_marks = uint64_t{64} << 20;
constexpr uint64_t limit_of_high_mark = 4; /* times the high mark */

void release_all(message_queue_t &queue) {
    while (!queue.empty()) {
        message_release(queue.pop());
    }
}

/** A call of a client's handler, and what is there for it. */
struct delivery_t {
    delivery_t *outer; /* whose handler runs the loop that delivers this */
    const channel_t *channel;
    const uint8_t *begin;
    const uint8_t *end;
    uint8_t head[FWX_HOST_SMC_HEAD_SIZE]; /* as the message came */
    size_t head_size;
};
delivery_t *innermost_delivery;

fwx_host_channel_end_fn_t end_fn;
void *end_arg;

/** The channel's buffer is not to be read any more, whoever may still stand in a handler. */
void end_deliveries(const channel_t *channel) {
    for (delivery_t *delivery = innermost_delivery; delivery != nullptr; delivery = delivery->outer) {
        if (delivery->channel == channel) delivery->end = delivery->begin;
    }
}

}  // namespace

uint32_t answer_give(const void *question, size_t question_size, const void *answer, size_t size, void *reply,
                     size_t reply_size) {
    if (size == 0) return FWX_HOST_ERR_NO_ANSWER;
    tap_show(FWX_HOST_RECEIVED, exchange_t::sync, answer, size);
    if (size < least_answer || memcmp(answer, question, std::min(question_size, sizeof(received_t::key))) != 0) {
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
    end_deliveries(this);
    link_.reset();
    edges_ = 0;
    make_ready();
}

uint32_t channel_t::send(message_t *message, size_t size, void *cookie, smc_send_done_fn_t done_fn) {
    if (is_down()) return down_code_;
    if (size > largest_message_) return FWX_HOST_ERR_TOO_LONG;
    const uint64_t limit = high_ == 0 ? limit_without_marks : limit_of_high_mark * high_;
    if (untaken_bytes_ != 0 && untaken_bytes_ + size > limit) return FWX_HOST_ERR_FULL;
    message->size = static_cast<uint32_t>(size);
    message->cookie = cookie;
    message->done_fn = done_fn;
    tap_show(FWX_HOST_SENT, exchange_t::async, message->bytes(), size);
    message->owner = message_owner_t::CHANNEL;
    untaken_.push(message);
    untaken_bytes_ += size;
    update_throttle();
    link_->messages_waiting();
    return 0;
}

uint32_t channel_t::ask(const message_t *message, size_t size, void *reply, size_t reply_size) {
    if (is_down()) return down_code_;
    if (size > largest_message_) return FWX_HOST_ERR_TOO_LONG;
    tap_show(FWX_HOST_SENT, exchange_t::sync, message->bytes(), size);
    return link_->ask(message->bytes(), size, reply, reply_size);
}

void channel_t::marks_set(uint32_t high, uint32_t low, smc_throttle_fn_t throttle_fn) {
    high_ = high;
    low_ = low;
    throttle_fn_ = throttle_fn;
    update_throttle();
}

void channel_t::rx_buffer_set(void *buf, size_t size, smc_rx_buffer_fn_t rx_fn) {
    if (buf != rx_buf_) end_deliveries(this);
    rx_buf_ = static_cast<uint8_t *>(buf);
    rx_size_ = buf == nullptr ? 0 : size;
    rx_fn_ = rx_fn;
}

message_t *channel_t::begin_take() {
    message_t *message = untaken_.pop();
    untaken_bytes_ -= message->size;
    in_flight_ += 1;
    update_throttle();
    return message;
}

void channel_t::end_take(message_t *message, uint32_t status) {
    in_flight_ -= 1;
    message->status = status;
    done_.push(message);
    make_ready();
}

void channel_t::link_down(uint32_t code) {
    down_code_ = code;
    make_ready();
}

void channel_t::update_throttle() {
    const bool throttled = high_ != 0 && (is_throttled_ ? untaken_bytes_ > low_ : untaken_bytes_ >= high_);
    if (throttled == is_throttled_) return;
    is_throttled_ = throttled;
    edges_ += 1;
    make_ready();
}

uint32_t channel_t::run() {
    if (is_running_) return 0; /* a callback runs the loop itself; the run around it goes on afterwards */
    is_running_ = true;
    uint32_t calls = 0;
    uint32_t budget = callbacks_per_run;
    while (budget > 0 && dispatch_one(calls)) {
        --budget;
    }
    is_running_ = false;
    if (!is_closed()) link_->after_run();
    if (budget == 0) {
        make_ready();
    } else if (is_closed() && in_flight_ == 0) {
        delete this;
    }
    return calls;
}

void channel_t::loop_gone() {
    delete this;
}

/* What is known is dispatched before the link looks for more. */
bool channel_t::dispatch_one(uint32_t &calls) {
    if (dispatch_known(calls)) return true;
    if (!is_closed()) link_->refresh();
    if (dispatch_known(calls)) return true;
    const bool has_ended = is_closed() || is_down();
    if (!has_ended || in_flight_ != 0) return false;
    if (!untaken_.empty()) {
        message_t *message = untaken_.pop();
        message->status = is_down() ? down_code_ : FWX_HOST_ERR_CLOSED;
        complete(message, calls);
        return true;
    }
    if (is_closed()) return false;
    fail(calls);
    return true;
}

/* Completions come before messages, so that a message is complete before its reply arrives. */
bool channel_t::dispatch_known(uint32_t &calls) {
    if (edges_ != 0) {
        report_edge(calls);
        return true;
    }
    if (!done_.empty()) {
        complete(done_.pop(), calls);
        return true;
    }
    const received_t received = is_closed() ? received_t{} : link_->front();
    if (received.is_there) deliver(received, calls);
    return received.is_there;
}

void channel_t::report_edge(uint32_t &calls) {
    edges_ -= 1;
    reported_throttled_ = !reported_throttled_;
    if (throttle_fn_ == nullptr) return;
    throttle_fn_(reported_throttled_ ? 1 : 0);
    ++calls;
}

void channel_t::complete(message_t *message, uint32_t &calls) {
    if (message->done_fn == nullptr) {
        message_release(message);
        return;
    }
    message->owner = message_owner_t::CALLER;
    message->done_fn(message->cookie, nullptr, message->status);
    ++calls;
}

void channel_t::deliver(const received_t &received, uint32_t &calls) {
    if (received.size < sizeof(received.key)) return drop(host_errors.dropped_malformed);
    const smc_msg_handler_fn_t handler = find_handler(received.key);
    if (handler == nullptr) return drop(host_errors.dropped_no_handler);
    if (received.size > rx_size_ && !ask_for_buffer(received.size, calls)) return drop(host_errors.dropped_no_buffer);
    if (is_closed()) return;
    link_->pop(rx_buf_);
    if (memcmp(rx_buf_, &received.key, sizeof(received.key)) != 0) { /* the server has changed it meanwhile */
        host_errors.dropped_malformed += 1;
        return;
    }
    tap_show(FWX_HOST_RECEIVED, exchange_t::async, rx_buf_, received.size);
    delivery_t delivery;
    delivery.outer = innermost_delivery;
    delivery.channel = this;
    delivery.begin = rx_buf_;
    delivery.end = rx_buf_ + received.size;
    delivery.head_size = std::min(received.size, sizeof delivery.head);
    if (rx_size_ >= sizeof delivery.head) {
        memcpy(delivery.head, rx_buf_, sizeof delivery.head); /* of a known length, which takes no call */
    } else {
        memcpy(delivery.head, rx_buf_, delivery.head_size);
    }
    innermost_delivery = &delivery;
    handler(reinterpret_cast<void *>(handle_), nullptr, rx_buf_, received.size);
    innermost_delivery = delivery.outer;
    ++calls;
}

void channel_t::handler_set(uint32_t key, smc_msg_handler_fn_t handler) {
    if (find_handler(key) == nullptr) handlers_.insert(handlers_.begin(), {key, nullptr});
    handlers_.front().fn = handler;
}

/** Null when there is none. */
smc_msg_handler_fn_t channel_t::find_handler(uint32_t key) {
    const auto has_key = [key](const handler_t &handler) { return handler.key == key; };
    const auto found = std::find_if(handlers_.begin(), handlers_.end(), has_key);
    if (found == handlers_.end()) return nullptr;
    if (found != handlers_.begin()) std::iter_swap(handlers_.begin(), found);
    return handlers_.front().fn;
}

/** True when a large enough buffer is there now, or when the client closed the channel instead. */
bool channel_t::ask_for_buffer(size_t size, uint32_t &calls) {
    if (rx_fn_ == nullptr) return false;
    const uint32_t is_given = rx_fn_(handle_, rx_buf_, size);
    ++calls;
    return is_closed() || (is_given == 1 && rx_size_ >= size);
}

void channel_t::drop(uint64_t &counter) {
    link_->pop(nullptr);
    counter += 1;
}

void channel_t::fail(uint32_t &calls) {
    if (err_fn_ != nullptr) {
        err_fn_(reinterpret_cast<void *>(handle_));
        ++calls;
    }
    close();
    if (end_fn != nullptr) end_fn(end_arg);
}

extern "C" const void *fwx_host_smc_head(size_t *size) {
    const delivery_t *delivery = innermost_delivery;
    *size = delivery == nullptr ? 0 : delivery->head_size;
    return delivery == nullptr ? nullptr : delivery->head;
}

extern "C" void fwx_host_channel_end_observe(fwx_host_channel_end_fn_t fn, void *arg) {
    end_fn = fn;
    end_arg = arg;
}

extern "C" size_t fwx_host_smc_bytes_behind(const void *data) {
    if (innermost_delivery == nullptr) return 0;
    const auto at = reinterpret_cast<uintptr_t>(data);
    const auto begin = reinterpret_cast<uintptr_t>(innermost_delivery->begin);
    const auto end = reinterpret_cast<uintptr_t>(innermost_delivery->end);
    return at >= begin && at < end ? end - at : 0;
}
