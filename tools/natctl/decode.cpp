/* Implements decode.h. Every field is read through its description (wire/messages.h), so that a new message needs no
 * code here. */
#include "tools/natctl/decode.h"

#include <algorithm>

#include "fwx_host/errors.h"
#include "records/value.h"
#include "tools/natctl/field_value.h"
#include "wire/messages.h"

namespace {

/** The name of the field's value, or null. */
json_t name_json(const wire_field_t &field, const uint8_t *at) {
    const char *name = field.names->name_of(wire_read(at, field.width));
    return name == nullptr ? json_t() : json_t(name);
}

/** Makes JSON from the value of a field. */
struct json_maker_t {
    template <typename value_t>
    json_t operator()(const value_t &value) const {
        return json_t(value);
    }
    template <typename write_t>
    json_t text(const write_t &write) const {
        char text[field_text_room];
        return json_t(std::string(text, write(text)));
    }
};

/** The fields that lie completely within `size` bytes. */
json_t fields_json(const wire_field_t *fields, size_t field_count, const uint8_t *base, size_t size) {
    json_t object = json_t::object();
    for (size_t i = 0; i < field_count; ++i) {
        const wire_field_t &field = fields[i];
        if (size_t{field.offset} + field.width > size) continue;
        const uint8_t *at = base + field.offset;
        object[field.name] = with_value(field, at, json_maker_t{});
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
    return value.is_string() ? clean_line(value.get<std::string>()) : value.dump();
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

/** If `key` holds the name of another key's value, that other key; otherwise an empty text. */
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

void append_rows(json_t &rows, json_t &&more) {
    if (rows.is_null()) rows = json_t::array();
    for (json_t &row : more) {
        rows.push_back(std::move(row));
    }
}
