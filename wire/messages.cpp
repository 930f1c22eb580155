/* Concatenates the message tables, checks them at compile time (fields in order and inside their message, every message
 * identifiable), and finds the description of received bytes. */
#include "wire/messages.h"

#include <array>
#include <cstring>
#include <iterator>

#include "wire/command_messages.h"
#include "wire/config_messages.h"
#include "wire/server_messages.h"

namespace {

template <size_t... n>
constexpr auto concatenate(const wire_message_t (&...tables)[n]) {
    std::array<wire_message_t, (n + ...)> all{};
    size_t filled = 0;
    const auto append = [&](const auto &table) {
        for (const wire_message_t &message : table) {
            all[filled++] = message;
        }
    };
    (append(tables), ...);
    return all;
}

constexpr auto messages = concatenate(wire_command_messages, wire_config_messages, wire_server_messages);

constexpr bool is_as_wide_as_its_kind(const wire_field_t &field) {
    switch (field.kind) {
        case wire_kind_t::number:
        case wire_kind_t::flag:
        case wire_kind_t::hex:
            return field.width == 1 || field.width == 2 || field.width == 4 || field.width == 8;
        case wire_kind_t::operation:
        case wire_kind_t::code:
        case wire_kind_t::ipv4:
        case wire_kind_t::ipv4_swapped:
            return field.width == sizeof(uint32_t);
        case wire_kind_t::ipv6_swapped:
            return field.width == sizeof(fwx_nat64_bmr_msg_t::v6_prefix);
        case wire_kind_t::address:
            return field.width == sizeof(fwx_nat64_addr_t);
        case wire_kind_t::prefix:
            return field.width == offsetof(fwx_nat64_prefix_t, kind);
        case wire_kind_t::bytes:
            return field.width != 0;
    }
    return false;
}

constexpr bool fields_ascend_within(const wire_field_t *fields, size_t count, size_t start, size_t end) {
    for (size_t i = 0; i < count; ++i) {
        if (!is_as_wide_as_its_kind(fields[i]) || fields[i].offset < start) return false;
        start = size_t{fields[i].offset} + fields[i].width;
    }
    return start <= end;
}

constexpr bool has_field_at(const wire_message_t &message, size_t offset) {
    for (size_t i = 0; i < message.field_count; ++i) {
        if (message.fields[i].offset == offset) return true;
    }
    return false;
}

constexpr bool is_sane(const wire_message_t &message) {
    const bool selector_fits = message.selector_offset + sizeof(uint32_t) <= message.size;
    const bool count_fits = message.entry_count_offset + sizeof(uint32_t) <= message.size;
    return message.msgno < FWX_NAT64_MSG_MAX && selector_fits && count_fits &&
           (message.selector == wire_no_selector) == (message.selector_offset == 0) &&
           (message.selector == wire_no_selector || has_field_at(message, message.selector_offset)) &&
           fields_ascend_within(message.fields, message.field_count, sizeof(fwx_nat64_sync_hdr_t), message.size) &&
           fields_ascend_within(message.entry_fields, message.entry_field_count, 0, message.entry_size);
}

constexpr bool same_route(const wire_message_t &a, const wire_message_t &b) {
    return a.direction == b.direction && a.form == b.form && a.msgno == b.msgno;
}

/* Messages of one number must differ in a selector at one offset; a message without a selector comes last, because it
 * matches everything. */
constexpr bool all_are_told_apart() {
    for (size_t i = 0; i < messages.size(); ++i) {
        for (size_t j = 0; j < i; ++j) {
            if (!same_route(messages[i], messages[j])) continue;
            const bool is_the_rest = messages[i].selector == wire_no_selector;
            const bool distinct = messages[i].selector != messages[j].selector;
            const bool same_place = messages[i].selector_offset == messages[j].selector_offset;
            if (!distinct || messages[j].selector == wire_no_selector || !(same_place || is_the_rest)) return false;
        }
    }
    return true;
}

constexpr bool all_are_sane() {
    for (const wire_message_t &message : messages) {
        if (!is_sane(message)) return false;
    }
    return true;
}

static_assert(all_are_sane(),
              "a field, selector or entry of a message lies outside its message or over another, or has another width "
              "than its kind");
static_assert(all_are_told_apart(), "two messages have the same type word and selector");

uint32_t type_word(const wire_message_t &message) {
    return (message.form == wire_form_t::async ? FWX_NAT64_MSG_ASYNC : FWX_NAT64_MSG_SYNC) | message.msgno;
}

}  // namespace

const wire_field_t &wire_selector_field(const wire_message_t &message) {
    const wire_field_t *field = message.fields;
    while (field->offset != message.selector_offset)
        ++field;
    return *field;
}

const wire_message_t *wire_messages(size_t *count) {
    *count = messages.size();
    return messages.data();
}

const wire_message_t *wire_find(wire_direction_t direction, const void *msg, size_t size) {
    if (size < sizeof(uint16_t)) return nullptr;
    const auto *bytes = static_cast<const uint8_t *>(msg);
    const uint64_t type = wire_read(bytes, sizeof(uint16_t));
    for (const wire_message_t &message : messages) {
        if (message.direction != direction || type_word(message) != type) continue;
        if (message.selector == wire_no_selector) return &message;
        if (size < message.selector_offset + sizeof(uint32_t)) continue;
        const uint64_t selector = wire_read(bytes + message.selector_offset, sizeof(uint32_t));
        if (selector == static_cast<uint32_t>(message.selector)) return &message;
    }
    return nullptr;
}

bool wire_frame_ok(const wire_message_t &message, const void *msg, size_t size) {
    const bool may_be_longer = message.open_ended || message.entry_name != nullptr;
    const bool length_ok = may_be_longer ? size >= message.size : size == message.size;
    if (!length_ok) return false;
    const auto *bytes = static_cast<const uint8_t *>(msg);
    return wire_read(bytes + offsetof(fwx_nat64_sync_hdr_t, type), sizeof(uint16_t)) == type_word(message) &&
           wire_read(bytes + offsetof(fwx_nat64_sync_hdr_t, domain), sizeof(uint16_t)) == FWX_NAT64_MSG_DOMAIN;
}

uint64_t wire_read(const void *at, size_t width) {
    uint64_t value = 0;
    switch (width) { /* a memcpy of constant size compiles to a load */
        case sizeof(uint8_t):
            return *static_cast<const uint8_t *>(at);
        case sizeof(uint16_t):
            std::memcpy(&value, at, sizeof(uint16_t));
            break;
        case sizeof(uint32_t):
            std::memcpy(&value, at, sizeof(uint32_t));
            break;
        default:
            std::memcpy(&value, at, sizeof value);
            break;
    }
    return value;
}
