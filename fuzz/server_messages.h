/* Messages of a server to its clients, made from the description. */
#ifndef FUZZ_SERVER_MESSAGES_H
#define FUZZ_SERVER_MESSAGES_H

#include <algorithm>
#include <cstring>
#include <vector>

#include "input.h"
#include "wire/messages.h"

using bytes_t = std::vector<uint8_t>;

/** Writes a value where there is room for it. */
template <typename value_t>
void put(bytes_t &bytes, size_t offset, value_t value) {
    if (offset + sizeof(value) <= bytes.size()) std::memcpy(bytes.data() + offset, &value, sizeof(value));
}

/** Writes the field of that name, if the message has it. */
inline void put_field(bytes_t &bytes, const wire_message_t &message, const char *name, uint32_t value) {
    const wire_field_t *end = message.fields + message.field_count;
    const wire_field_t *found = std::find_if(
        message.fields, end, [name](const wire_field_t &field) { return std::strcmp(field.name, name) == 0; });
    if (found != end) put(bytes, found->offset, value);
}

/** A message with its head and as many empty entries as it says. */
inline bytes_t make_message(const wire_message_t &message, uint32_t entries) {
    bytes_t bytes(message.size + size_t{message.entry_size} * entries);
    const uint32_t form = message.form == wire_form_t::async ? FWX_NAT64_MSG_ASYNC : FWX_NAT64_MSG_SYNC;
    put(bytes, 0, static_cast<uint16_t>(form | message.msgno));
    put(bytes, 2, static_cast<uint16_t>(FWX_NAT64_MSG_DOMAIN));
    if (message.selector_offset != 0) put(bytes, message.selector_offset, message.selector);
    if (message.entry_count_offset != 0) put(bytes, message.entry_count_offset, entries);
    return bytes;
}

/** All that the description has for clients. */
inline const std::vector<const wire_message_t *> &messages_to_client() {
    static const auto found = [] {
        std::vector<const wire_message_t *> messages;
        size_t count = 0;
        const wire_message_t *all = wire_messages(&count);
        for (size_t i = 0; i < count; ++i) {
            if (all[i].direction == wire_direction_t::to_client) messages.push_back(&all[i]);
        }
        return messages;
    }();
    return found;
}

/** What a server answers a command with. */
inline const wire_message_t &reply_to(uint16_t msgno) {
    const bool is_query = msgno >= FWX_NAT64_MSG_STATS_SYS && msgno <= FWX_NAT64_MSG_SESSION_WALK;
    const uint16_t number = is_query || msgno == FWX_NAT64_MSG_MAPT_RULE ? msgno : uint16_t{FWX_NAT64_MSG_RESULT};
    return **std::find_if(messages_to_client().begin(), messages_to_client().end(), [number](const auto *message) {
        return message->msgno == number && message->form == wire_form_t::async;
    });
}

/** What a command waits for, more or less: what the input does not ask for is as a server has it. `command` is the
 * message, as far as a rule's goes. */
inline bytes_t make_reply(const fwx_nat64_bmr_msg_t &command, input_t &input) {
    const wire_message_t &message = reply_to(command.hdr.type & FWX_NAT64_MSG_NUMBER_MASK);
    const uint32_t how = input.byte();
    const uint32_t entries = how % 4;
    bytes_t bytes = make_message(message, entries);
    put(bytes, offsetof(fwx_nat64_msg_hdr_t, clnt_ctx), command.hdr.clnt_ctx);
    put(bytes, offsetof(fwx_nat64_msg_hdr_t, epoch), command.hdr.epoch);
    if (message.msgno == FWX_NAT64_MSG_MAPT_RULE) {
        put(bytes, offsetof(fwx_nat64_mapt_reply_t, rule_id), command.rule_id);
        put(bytes, offsetof(fwx_nat64_mapt_reply_t, rule_type), command.rule_type);
        put(bytes, offsetof(fwx_nat64_mapt_reply_t, op), command.op);
        put_field(bytes, message, "cleanup", entries == 3 ? 1 : 0);
    }
    put_field(bytes, message, "more", (how >> 2) & 1);
    if ((how & 8) != 0) put_field(bytes, message, "result", input.byte());
    if ((how & 16) != 0) put_field(bytes, message, "value", input.byte()); /* a cookie, or what is said next */
    const uint32_t said = (how & 32) != 0 ? entries + 4 : entries;
    if (message.entry_count_offset != 0) put(bytes, message.entry_count_offset, said);
    if ((how & 64) != 0) bytes.resize(bytes.size() * input.byte() / 255);
    return bytes;
}

#endif
