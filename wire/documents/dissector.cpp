/* Prints the tables of the Wireshark dissector, as Lua: result codes, names of values, and every message with its
 * fields and entries. */
#include "fwx_nat64/result.h"
#include "fwx_nat64/server_result.h"
#include "wire/documents/words.h"

namespace {

constexpr const char *kind_keys[] = {
#define KIND_KEY(kind, name, bytes) #kind,
    WIRE_KINDS(KIND_KEY)
#undef KIND_KEY
};

std::string quoted(const char *text) {
    return std::string("\"") + text + "\"";
}

std::string result_names() {
    std::string text = "{\n  [0] = \"success\",\n";
#define RESULT_NAME(code, explanation) text += "  [" + hex(code) + "] = \"" #code "\",\n";
    FWX_NAT64_RESULTS(RESULT_NAME)
#undef RESULT_NAME
#define SERVER_RESULT_NAME(code, cause, explanation) text += "  [" + hex(code) + "] = " + quoted(#cause) + ",\n";
    FWX_NAT64_MODEL_RESULTS(SERVER_RESULT_NAME)
#undef SERVER_RESULT_NAME
    return text + "}";
}

std::string value_names(const wire_names_t &names) {
    return "{ " +
           joined(names.begin(), names.count, ", ",
                  [](const wire_value_name_t &each) {
                      return "[" + std::to_string(each.value) + "] = " + quoted(each.name);
                  }) +
           " }";
}

std::string fields_of(const std::string &indent, const wire_field_t *fields, size_t count) {
    if (count == 0) return indent + "fields = {},\n";
    return indent + "fields = {\n" +
           joined(fields, count, "",
                  [&indent](const wire_field_t &field) {
                      return indent + "  { " + quoted(field.name) + ", " + std::to_string(field.offset) + ", " +
                             std::to_string(field.width) + ", " + quoted(kind_keys[static_cast<size_t>(field.kind)]) +
                             (field.names == nullptr ? "" : ", " + value_names(*field.names)) + " },\n";
                  }) +
           indent + "},\n";
}

std::string entry_of(const wire_message_t &message) {
    std::string text = "    entry = {\n      name = " + quoted(message.entry_name) +
                       ", offset = " + std::to_string(message.entry_offset) +
                       ", size = " + std::to_string(message.entry_size) + ",";
    if (message.entry_count_offset != 0) text += " count_offset = " + std::to_string(message.entry_count_offset) + ",";
    return text + "\n" + fields_of("      ", message.entry_fields, message.entry_field_count) + "    },\n";
}

bool is_unsolicited(const wire_message_t &message) {
    return message.direction == wire_direction_t::to_client && message.form == wire_form_t::async &&
           message.msgno == FWX_NAT64_MSG_UNSOL_SETUP;
}

std::string message_table(const wire_message_t &message) {
    const bool is_sync = message.form == wire_form_t::sync;
    const size_t body = is_sync || is_unsolicited(message) ? sizeof(fwx_nat64_sync_hdr_t) : sizeof(fwx_nat64_msg_hdr_t);
    const bool may_be_longer = message.open_ended || message.entry_name != nullptr;
    std::string text = "  {\n    name = " + quoted(message.name) + ",\n    purpose = " + quoted(message.purpose) +
                       ",\n    direction = " + std::to_string(static_cast<int>(message.direction)) +
                       ", type = " + hex((is_sync ? FWX_NAT64_MSG_SYNC : FWX_NAT64_MSG_ASYNC) | message.msgno) +
                       ", body = " + std::to_string(body) + ", size = " + std::to_string(message.size) + ",";
    if (message.selector != wire_no_selector) {
        text += " selector = " + std::to_string(message.selector) +
                ", selector_offset = " + std::to_string(message.selector_offset) + ",";
    }
    if (!may_be_longer) text += " exact = true,";
    if (message.open_ended) text += " open = true,";
    if (is_unsolicited(message)) text += " unsolicited = true,";
    text += "\n" + fields_of("    ", message.fields, message.field_count);
    if (message.entry_name != nullptr) text += entry_of(message);
    return text + "  },\n";
}

}  // namespace

words_t dissector_words() {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    return {
        {"WIRE_LUA_RESULT_NAMES", result_names()},
        {"WIRE_LUA_OPERATIONS", value_names(wire_operation_names)},
        {"WIRE_LUA_MESSAGES", "{\n" + joined(messages, count, "", message_table) + "}"},
    };
}
