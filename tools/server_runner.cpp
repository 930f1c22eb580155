/* Implements server_runner.h. A state that could not be saved is saved again every second until that succeeds. */
#include "tools/server_runner.h"

#include "fwx_host/errors.h"
#include "fwx_nat64/client.h"
#include "net/json.h"
#include "wire/messages.h"

namespace {

constexpr uint64_t retry_delay_ms = 1000; /* between attempts to save the state */

}  // namespace

server_log_t::server_log_t(std::string program)
    : program_(std::move(program)), writer_([this](uint64_t count) {
          return program_ + ": " + std::to_string(count) + (count == 1 ? " line" : " lines") + " left out";
      }) {}

void server_log_t::write(const std::string &text, const void *source) {
    writer_.write(source, program_ + ": " + clean_line(text));
}

std::string server_runner_t::load(const std::string &state_file) {
    const auto end = [](void *arg) { static_cast<server_runner_t *>(arg)->ended_ = true; };
    const bool can_run = signals_.fd() >= 0 && fwx_host_loop_watch(loop_, signals_.fd(), end, this) == 0;
    if (!can_run) return "no descriptors or no memory left to run a server with";
    server_.observe_refusals(refused, this);
    if (state_file.empty()) return "";
    state_.emplace(state_file, log_.program(), server_, [this](const std::string &text) { log_.write(text); });
    return state_->open();
}

std::string server_runner_t::listen(const std::string &name) {
    const uint32_t rc = fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), name.c_str());
    return rc == 0 ? "" : name + ": " + xerr_strerror(rc);
}

std::string server_runner_t::run(const std::function<void()> &turn_ended) {
    while (!ended_) {
        fwx_host_loop_run_once(loop_, -1);
        server_.commit();
        plan_retry();
        if (turn_ended) turn_ended();
    }
    log_.finish();
    return state_ ? state_->commit() : "";
}

void server_runner_t::plan_retry() {
    const bool is_due = state_ && state_->is_unsaved() && !is_retry_planned_;
    if (is_due) is_retry_planned_ = fwx_host_timer_add(loop_, retry_delay_ms, retry, this) != 0;
}

void server_runner_t::retry(void *arg) {
    auto &self = *static_cast<server_runner_t *>(arg);
    self.is_retry_planned_ = false;
    self.state_->commit();
}

void server_runner_t::refused(void *arg, const fwx_host_peer_t *peer, const void *msg, size_t size, uint32_t code) {
    auto &self = *static_cast<server_runner_t *>(arg);
    const wire_message_t *message = wire_find(wire_direction_t::to_server, msg, size);
    const std::string name = message == nullptr ? "a message" : message->name;
    self.log_.write("refused " + name + " of " + std::to_string(size) + " bytes: " + xerr_strerror(code), peer);
}
