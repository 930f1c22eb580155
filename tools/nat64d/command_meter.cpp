/* Implements command_meter.h. A command is matched with its reply by the context that the server echoes. */
#include "tools/nat64d/command_meter.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "fwx_nat64/server_result.h"
#include "wire/messages.h"

namespace {

uint64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

uint16_t number_of(const fwx_nat64_msg_hdr_t &hdr) {
    return static_cast<uint16_t>(hdr.type & ~FWX_NAT64_MSG_ASYNC);
}

bool is_asynchronous(const fwx_nat64_msg_hdr_t &hdr) {
    return (hdr.type & FWX_NAT64_MSG_ASYNC) == FWX_NAT64_MSG_ASYNC;
}

bool is_configuration(uint16_t number) {
    return number == FWX_NAT64_MSG_CONFIG || number == FWX_NAT64_MSG_MAPT_RULE;
}

command_meter_t::end_t end_of(uint32_t code) {
    switch (code) {
        case 0:
            return command_meter_t::end_t::ok;
        case FWX_NAT64_MODEL_ERR_EXISTS:
            return command_meter_t::end_t::exists;
        case FWX_NAT64_MODEL_ERR_NO_ENTRY:
        case FWX_NAT64_MODEL_ERR_NO_POOL:
            return command_meter_t::end_t::gone;
        default:
            return command_meter_t::end_t::refused;
    }
}

}  // namespace

const char *end_name(command_meter_t::end_t end) {
    constexpr const char *names[] = {"ok", "exists", "gone", "refused", "lost"};
    return names[static_cast<size_t>(end)];
}

command_meter_t::command_meter_t() {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    for (const wire_message_t *message = messages; message != messages + count; ++message) {
        const bool is_command = message->direction == wire_direction_t::to_server && is_configuration(message->msgno);
        if (!is_command) continue;
        for (const end_t end : {end_t::ok, end_t::exists, end_t::gone, end_t::refused, end_t::lost}) {
            counts_[{message->name, end}] = 0;
        }
    }
    fwx_host_tap_set(tapped, this);
}

void command_meter_t::channel_lost() {
    for (const auto &[context, command] : waiting_) {
        ++counts_[{command.kind, end_t::lost}];
    }
    waiting_.clear();
}

void command_meter_t::tapped(void *arg, fwx_host_direction_t direction, const void *msg, size_t size) {
    auto &self = *static_cast<command_meter_t *>(arg);
    direction == FWX_HOST_SENT ? self.sent(msg, size) : self.received(msg, size);
}

/** Counts only configuration commands, because queries do not change what the server holds. */
void command_meter_t::sent(const void *msg, size_t size) {
    fwx_nat64_msg_hdr_t hdr{};
    if (size < sizeof hdr) return;
    std::memcpy(&hdr, msg, sizeof hdr);
    const uint16_t number = number_of(hdr);
    const bool is_command = is_asynchronous(hdr) && is_configuration(number);
    const wire_message_t *message = is_command ? wire_find(wire_direction_t::to_server, msg, size) : nullptr;
    if (message != nullptr) waiting_[hdr.clnt_ctx] = {message->name, now_ns()};
}

void command_meter_t::received(const void *msg, size_t size) {
    fwx_nat64_reply_t reply{};
    if (size < FWX_NAT64_REPLY_MIN_SIZE) return;
    std::memcpy(&reply, msg, FWX_NAT64_REPLY_MIN_SIZE);
    if (!is_asynchronous(reply.hdr)) return;
    const auto found = waiting_.find(reply.hdr.clnt_ctx);
    if (found == waiting_.end()) return;
    const double seconds = static_cast<double>(now_ns() - found->second.since_ns) / 1e9;
    ++counts_[{found->second.kind, end_of(reply.result)}];
    waiting_.erase(found);
    const auto *const bound = std::lower_bound(bounds.begin(), bounds.end(), seconds);
    ++times_.counts[static_cast<size_t>(bound - bounds.begin())];
    ++times_.count;
    times_.sum += seconds;
}
