/* Prints the tables of the protocol page, as Markdown: kinds of fields, an overview of the messages in each direction,
 * and the fields of every message. */
#include <vector>

#include "wire/documents/words.h"

namespace {

struct kind_text_t {
    const char *name;
    const char *bytes;
};
constexpr kind_text_t kind_texts[] = {
#define KIND_TEXT(kind, name, bytes) {name, bytes},
    WIRE_KINDS(KIND_TEXT)
#undef KIND_TEXT
};

std::string row(const std::vector<std::string> &cells) {
    return "|" + joined(cells.data(), cells.size(), "|", [](const std::string &cell) { return " " + cell + " "; }) +
           "|\n";
}

std::string kinds() {
    return joined(kind_texts, std::size(kind_texts), "", [](const kind_text_t &kind) {
        return kind.bytes[0] == '\0' ? std::string() : row({kind.name, kind.bytes});
    });
}

std::string code(const std::string &text) {
    return "`" + text + "`";
}

std::string title(const wire_message_t &message) {
    return code(message.name) + (message.form == wire_form_t::sync ? " (synchronous)" : "");
}

std::string selector(const wire_message_t &message) {
    if (message.selector == wire_no_selector) return "";
    return std::string(wire_selector_field(message).name) + " " + std::to_string(message.selector);
}

std::string length(const wire_message_t &message) {
    if (message.entry_name != nullptr) {
        return std::to_string(message.size) + " + " + std::to_string(message.entry_size) + " an entry";
    }
    return (message.open_ended ? "at least " : "") + std::to_string(message.size);
}

std::string overview(const wire_message_t *messages, size_t count, wire_direction_t direction) {
    return joined(messages, count, "", [direction](const wire_message_t &message) {
        if (message.direction != direction) return std::string();
        return row(
            {title(message), std::to_string(message.msgno), selector(message), length(message), message.purpose});
    });
}

std::string fields_of(const wire_field_t *fields, size_t count) {
    return "\n" + row({"offset", "width", "field", "kind"}) + "|---|---|---|---|\n" +
           joined(fields, count, "", [](const wire_field_t &field) {
               const std::string kind = kind_texts[static_cast<size_t>(field.kind)].name;
               return row({std::to_string(field.offset), std::to_string(field.width), code(field.name),
                           kind + (field.names == nullptr ? "" : ": " + value_list(*field.names))});
           });
}

std::string entry_text(const wire_message_t &message) {
    const std::string entry = code(message.entry_name) + (message.entry_count_offset == 0 ? " at" : " from") +
                              " offset " + std::to_string(message.entry_offset);
    const std::string number = message.entry_count_offset == 0
                                   ? "\nOne entry " + entry + " when the result is 0:\n"
                                   : "\nEntries " + entry + " on, as many as the number at offset " +
                                         std::to_string(message.entry_count_offset) + " says:\n";
    return number + fields_of(message.entry_fields, message.entry_field_count);
}

std::string details(const wire_message_t &message) {
    std::string text = "### " + title(message) + "\n\nNumber " + std::to_string(message.msgno) + ", " +
                       length(message) + " bytes: " + message.purpose + ".\n";
    if (message.field_count != 0) text += fields_of(message.fields, message.field_count);
    if (message.entry_name != nullptr) text += entry_text(message);
    return text;
}

}  // namespace

words_t page_words(const words_t &layout) {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    return {
        {"WIRE_PAGE_KINDS", filled(kinds(), layout)},
        {"WIRE_PAGE_TO_SERVER", overview(messages, count, wire_direction_t::to_server)},
        {"WIRE_PAGE_TO_CLIENT", overview(messages, count, wire_direction_t::to_client)},
        {"WIRE_PAGE_DETAILS", joined(messages, count, "\n", details)},
    };
}
