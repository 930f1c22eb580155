#include "tools/natctl/decode.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <vector>

#include "fwx_host/errors.h"
#include "records/family.h"
#include "records/value.h"
#include "wire/messages.h"

namespace {

/* Of the key beside a value's own, that says what it is called. */
constexpr std::string_view name_suffix = "_name";

/** An address whose first `size` bytes stand at `at`, last byte first. */
std::string swapped_address_text(int family, const uint8_t *at, size_t size) {
    uint8_t bytes[sizeof(in6_addr)] = {};
    std::reverse_copy(at, at + size, bytes);
    return address_text(family, bytes);
}

char *write_hex(uint64_t value, char *out) {
    *out++ = '0';
    *out++ = 'x';
    return std::to_chars(out, out + 2 * sizeof value, value, 16).ptr;
}

char *write_record_address(const uint8_t *at, char *out) {
    fwx_nat64_addr_t address;
    std::memcpy(&address, at, sizeof address);
    return write_address(address.family == FWX_NAT64_FAMILY_IPV4 ? AF_INET : AF_INET6, address.addr, out);
}

/** Calls `use` with the field's value: a number, a truth, or a text that needs no escapes in JSON. */
template <typename use_t>
auto use_value(const wire_field_t &field, const uint8_t *at, use_t use) {
    char text[INET6_ADDRSTRLEN];
    const auto use_text = [&](const char *end) { return use(std::string_view(text, static_cast<size_t>(end - text))); };
    switch (field.kind) {
        case wire_kind_t::number:
        case wire_kind_t::code:
            break;
        case wire_kind_t::flag:
            return use(wire_read(at, field.width) != 0);
        case wire_kind_t::hex:
            return use_text(write_hex(wire_read(at, field.width), text));
        case wire_kind_t::operation:
            if (const char *name = record_operation_name(wire_read(at, field.width))) {
                return use(std::string_view(name));
            }
            break;
        case wire_kind_t::bytes:
            return use(std::string_view(hex_digits(at, field.width)));
        case wire_kind_t::ipv4:
            return use_text(write_address(AF_INET, at, text));
        case wire_kind_t::ipv4_swapped:
            return use(std::string_view(swapped_address_text(AF_INET, at, field.width)));
        case wire_kind_t::ipv6_swapped:
            return use(std::string_view(swapped_address_text(AF_INET6, at, field.width)));
        case wire_kind_t::address:
            return use_text(write_record_address(at, text));
        case wire_kind_t::prefix:
            return use(std::string_view(prefix_text(AF_INET6, at, sizeof(fwx_nat64_prefix_t::prefix),
                                                    at[offsetof(fwx_nat64_prefix_t, prefix_len)])));
    }
    return use(wire_read(at, field.width));
}

/** What the field's value is called, null when it has no name. */
json_t name_json(const wire_field_t &field, const uint8_t *at) {
    const char *name = field.names->name_of(wire_read(at, field.width));
    return name == nullptr ? json_t() : json_t(name);
}

/** What stands between the values of a line is put together once for all lines. */
struct column_t {
    const wire_field_t *field;
    std::string key;      /* `,"src":` */
    std::string name_key; /* `,"protocol_name":`; empty: values have no names */
    size_t room;          /* characters that they and their values take at most */
};

column_t column_of(const wire_field_t &field) {
    const std::string key = std::string(",\"") + field.name;
    column_t column = {&field, key + "\":", "", 0};
    size_t name_room = std::string_view("null").size();
    if (field.names != nullptr) {
        column.name_key = key + std::string(name_suffix) + "\":";
        for (const wire_value_name_t &each : *field.names) {
            name_room = std::max(name_room, std::strlen(each.name) + 2);
        }
    }
    /* Longer than an address with its length are only bytes, of two digits each. */
    constexpr size_t value_room = INET6_ADDRSTRLEN + std::string_view("/255").size() + 2;
    column.room = column.key.size() + value_room + 2 * size_t{field.width} + column.name_key.size() + name_room;
    return column;
}

/** Writes values as JSON has them, where there is room for them. */
struct json_writer_t {
    char *&at;

    void put(std::string_view text) const { at += text.copy(at, text.size()); }
    void operator()(uint64_t number) const {
        constexpr size_t digits = 20;
        at = std::to_chars(at, at + digits, number).ptr;
    }
    void operator()(bool is_true) const { put(is_true ? "true" : "false"); }
    void operator()(std::string_view text) const {
        *at++ = '"';
        put(text);
        *at++ = '"';
    }
};

/** The fields that lie within `size` bytes. */
json_t fields_json(const wire_field_t *fields, size_t field_count, const uint8_t *base, size_t size) {
    json_t object = json_t::object();
    for (size_t i = 0; i < field_count; ++i) {
        const wire_field_t &field = fields[i];
        if (size_t{field.offset} + field.width > size) continue;
        const uint8_t *at = base + field.offset;
        object[field.name] = use_value(field, at, [](const auto &value) { return json_t(value); });
        if (field.names != nullptr) object[field.name + std::string(name_suffix)] = name_json(field, at);
    }
    return object;
}

const wire_message_t *describe(fwx_host_direction_t direction, const void *msg, size_t size) {
    return wire_find(direction == FWX_HOST_SENT ? wire_direction_t::to_server : wire_direction_t::to_client, msg, size);
}

}  // namespace

std::string hex_number(uint64_t value) {
    char text[2 + 2 * sizeof value];
    return {text, write_hex(value, text)};
}

std::string code_text(uint32_t code) {
    return std::string(xerr_strerror(code)) + " (" + hex_number(code) + ")";
}

std::string plain_text(const json_t &value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

json_t message_json(fwx_host_direction_t direction, const void *msg, size_t size) {
    const wire_message_t *message = describe(direction, msg, size);
    const auto *bytes = static_cast<const uint8_t *>(msg);
    json_t object = json_t::object();
    object["message"] = message == nullptr ? "unknown" : message->name;
    object["size"] = size;
    object["fields"] =
        message == nullptr ? json_t::object() : fields_json(message->fields, message->field_count, bytes, size);
    object["hex"] = hex_digits(bytes, size);
    return object;
}

namespace {

/** The key whose value's name stands under `key`, or an empty text. */
std::string named_key(const json_t &object, const std::string &key) {
    if (key.size() <= name_suffix.size()) return {};
    const size_t length = key.size() - name_suffix.size();
    const std::string named = key.substr(0, length);
    return key.substr(length) == name_suffix && object.contains(named) ? named : "";
}

}  // namespace

json_t with_names(const json_t &row) {
    json_t shown = json_t::object();
    for (const auto &[key, value] : row.items()) {
        const std::string named = named_key(row, key);
        if (named.empty()) shown[key] = value;
        if (!named.empty() && !value.is_null()) shown[named] = value;
    }
    return shown;
}

std::string message_text(const json_t &message) {
    std::string text = plain_text(message["message"]) + " " + plain_text(message["size"]) + " bytes";
    const char *separator = ": ";
    for (const auto &[name, value] : message["fields"].items()) {
        const bool is_name = !named_key(message["fields"], name).empty();
        if (!is_name) text += separator + name + "=" + plain_text(value);
        if (is_name && !value.is_null()) text += " (" + plain_text(value) + ")";
        separator = " ";
    }
    return text;
}

std::string message_line(fwx_host_direction_t direction, const void *msg, size_t size) {
    json_t object = message_json(direction, msg, size);
    const wire_message_t *message = describe(direction, msg, size);
    for (size_t i = 0; message != nullptr && i < message->field_count; ++i) {
        const wire_field_t &field = message->fields[i];
        bool is_code = field.kind == wire_kind_t::code && object["fields"].contains(field.name);
        if (is_code) object["fields"][field.name] = code_text(object["fields"][field.name].get<uint32_t>());
    }
    if (message == nullptr) object["fields"]["bytes"] = object["hex"];
    return (direction == FWX_HOST_SENT ? "-> " : "<- ") + message_text(object);
}

const wire_message_t &reply_described(uint16_t msgno, uint32_t selector) {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    return *std::find_if(messages, messages + count, [msgno, selector](const wire_message_t &message) {
        const bool is_selected =
            message.selector == wire_no_selector || static_cast<uint32_t>(message.selector) == selector;
        return message.direction == wire_direction_t::to_client && message.msgno == msgno && is_selected;
    });
}

json_t decode_entries(const wire_message_t &reply, const void *entries, uint32_t count) {
    json_t rows = json_t::array();
    const auto *at = static_cast<const uint8_t *>(entries);
    for (uint32_t i = 0; i < count; ++i, at += reply.entry_size) {
        rows.push_back(fields_json(reply.entry_fields, reply.entry_field_count, at, reply.entry_size));
    }
    return rows;
}

std::string entry_lines(const std::string &members, const wire_message_t &reply, const void *entries, uint32_t count) {
    std::vector<column_t> columns;
    size_t room = members.size() + std::string_view("{}\n").size();
    for (size_t i = 0; i < reply.entry_field_count; ++i) {
        columns.push_back(column_of(reply.entry_fields[i]));
        room += columns.back().room;
    }
    std::string lines(room * count, '\0');
    char *end = lines.data();
    const json_writer_t writer{end};
    const auto *entry = static_cast<const uint8_t *>(entries);
    for (uint32_t i = 0; i < count; ++i, entry += reply.entry_size) {
        writer.put("{");
        writer.put(members);
        for (const column_t &column : columns) {
            const uint8_t *at = entry + column.field->offset;
            writer.put(column.key);
            use_value(*column.field, at, writer);
            if (column.name_key.empty()) continue;
            writer.put(column.name_key);
            const char *name = column.field->names->name_of(wire_read(at, column.field->width));
            if (name == nullptr) {
                writer.put("null");
            } else {
                writer(std::string_view(name));
            }
        }
        writer.put("}\n");
    }
    lines.resize(static_cast<size_t>(end - lines.data()));
    return lines;
}

void append_rows(json_t &rows, json_t &&more) {
    if (rows.is_null()) rows = json_t::array();
    for (json_t &row : more) {
        rows.push_back(std::move(row));
    }
}
