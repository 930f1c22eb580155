/* Building blocks of the message tables. Each takes the offset and width of a field from the struct that has the field,
 * so that the tables cannot differ from the structs. */
#ifndef WIRE_FIELD_H
#define WIRE_FIELD_H

#include "wire/messages.h"

/** A field of `struct_`, where the struct starts `base` bytes into the message. */
#define WIRE_FIELD_BASED(base, name, struct_, member, kind) \
    { name, (base) + offsetof(struct_, member), sizeof(struct_::member), wire_kind_t::kind }
/** A field of a message struct, or of an entry. */
#define WIRE_FIELD(name, struct_, member, kind) WIRE_FIELD_BASED(0, name, struct_, member, kind)
/** A field of a configuration payload. */
#define WIRE_PAYLOAD_FIELD(name, struct_, member, kind) \
    WIRE_FIELD_BASED(offsetof(fwx_nat64_cfg_msg_t, payload), name, struct_, member, kind)
/** A field whose values have names: of a message struct or entry, and of a configuration payload. */
#define WIRE_NAMED_FIELD(name, struct_, member, names) \
    { name, offsetof(struct_, member), sizeof(struct_::member), wire_kind_t::number, &(names) }
#define WIRE_NAMED_PAYLOAD_FIELD(name, struct_, member, names)                                             \
    {                                                                                                      \
        name, offsetof(fwx_nat64_cfg_msg_t, payload) + offsetof(struct_, member), sizeof(struct_::member), \
            wire_kind_t::number, &(names)                                                                  \
    }
/** A fwx_nat64_prefix_t without its kind. */
#define WIRE_PREFIX_FIELD(name, struct_, member)                                                                      \
    {                                                                                                                 \
        name, offsetof(fwx_nat64_cfg_msg_t, payload) + offsetof(struct_, member), offsetof(fwx_nat64_prefix_t, kind), \
            wire_kind_t::prefix                                                                                       \
    }
/** A whole fwx_nat64_prefix_t, as two fields: the prefix and its kind. */
#define WIRE_PREFIX_FIELDS(name, struct_, member) \
    WIRE_PREFIX_FIELD(name, struct_, member), WIRE_PAYLOAD_FIELD(name "_kind", struct_, member.kind, number)

/** Offset of the selector of a message, and the value that selects this message. */
struct wire_selector_t {
    size_t offset;
    int32_t value;
};
constexpr wire_selector_t wire_unselected = {0, wire_no_selector};
constexpr wire_selector_t wire_cfg_selector(uint32_t op_code) {
    return {offsetof(fwx_nat64_cfg_msg_t, op_code), static_cast<int32_t>(op_code)};
}

/** The records after the fixed part of a reply: their name, size and fields, and where their number is. */
struct wire_entry_t {
    const char *name;
    size_t offset;
    size_t size;
    size_t count_offset;
    const wire_field_t *fields;
    size_t field_count;
};
constexpr wire_entry_t wire_no_entry = {nullptr, 0, 0, 0, nullptr, 0};

template <typename record_t, size_t n>
constexpr wire_entry_t wire_entry(const char *name, size_t offset, size_t count_offset,
                                  const wire_field_t (&fields)[n]) {
    return {name, offset, sizeof(record_t), count_offset, fields, n};
}

/** The direction, form and number that a message has in common with others. */
struct wire_route_t {
    wire_direction_t direction;
    wire_form_t form;
    uint32_t msgno;
};
constexpr wire_route_t wire_command(uint32_t msgno) {
    return {wire_direction_t::to_server, wire_form_t::async, msgno};
}
constexpr wire_route_t wire_sync_command(uint32_t msgno) {
    return {wire_direction_t::to_server, wire_form_t::sync, msgno};
}
constexpr wire_route_t wire_reply(uint32_t msgno) {
    return {wire_direction_t::to_client, wire_form_t::async, msgno};
}
constexpr wire_route_t wire_answer(uint32_t msgno) {
    return {wire_direction_t::to_client, wire_form_t::sync, msgno};
}

constexpr wire_message_t wire_message(const char *name, const char *purpose, wire_route_t route,
                                      wire_selector_t selector, size_t size, const wire_field_t *fields = nullptr,
                                      size_t field_count = 0, wire_entry_t entry = wire_no_entry,
                                      bool open_ended = false) {
    return {name,
            purpose,
            fields,
            field_count,
            entry.name,
            entry.fields,
            entry.field_count,
            selector.value,
            static_cast<uint32_t>(size),
            static_cast<uint16_t>(route.msgno),
            static_cast<uint16_t>(selector.offset),
            static_cast<uint16_t>(entry.offset),
            static_cast<uint16_t>(entry.size),
            static_cast<uint16_t>(entry.count_offset),
            route.direction,
            route.form,
            open_ended};
}

#endif
