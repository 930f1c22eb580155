/* Prints docs/protocol.md from the message description. */
#include <cstdio>
#include <string>

#include "wire/messages.h"

namespace {

constexpr const char *introduction = R"(# Protocol

Every message between the client library and the server, in both directions. This page is printed by
`fwx_nat64_protocol_page` from the description in `wire/`, which takes its offsets and widths from the structs of
`fwx_nat64/wire.h`; do not edit it by hand.

## Conventions

- Offsets and widths are in bytes. Numbers are little-endian. Bytes that no table names are neither written nor read.
- Every message begins with a type word (offset 0, 2 bytes) and the domain (offset 2, 2 bytes), which is always 96. The
  low 12 bits of the type word are the message number; the upper four bits are 0xC for an asynchronous message and 0x8
  for a synchronous one. Offsets 4 to 15 are reserved.
- An asynchronous message goes on with the client context (offset 16, 8 bytes) and the epoch (offset 24, 4 bytes); its
  body starts at offset 32. A reply echoes both. The body of a synchronous message starts at offset 16, and so does that
  of an unsolicited notification, which has neither context nor epoch.
- A synchronous command is answered by the synchronous message of the same number. Commands 1, 2, 3 and 12 are answered
  by a result (0), but the end of a classifier batch by number 10 and a classifier update by number 11; commands 4 to 9
  and 13 by their own number. A reply whose result is not 0 may end behind it.
- A query may be answered by several replies: `more` is not 0 until the last.
- "At least" with a length: longer messages are well formed.

## Looking at messages

`natctl --capture FILE` and `fwx_host_capture_open` write every message to a pcap file of link type 147 (DLT_USER0), each
behind four bytes: version 1, direction (0 to the server, 1 to the client), form (0 asynchronous, 1 synchronous), 0.
`tshark -X lua_script:docs/fwx_nat64.lua -r FILE` shows them decoded, and so does Wireshark with that script among its
personal Lua plugins. `fwx_nat64_dissector` prints the script from the same description as this page.

## Kinds of fields

| kind | bytes |
|---|---|
| operation | 1 add, 2 modify, 3 delete |
| flag | a number, 0 or not |
| IPv4 address | network order |
| IPv4 prefix, last byte first | four bytes |
| IPv6 prefix, last byte first | the first eight bytes of the prefix |
| address record | 4 bytes family (0 IPv4, else IPv6), 16 bytes address; IPv4 in network order in the first four |
| prefix record | 12 bytes of an IPv6 prefix, 3 reserved bytes, 1 byte prefix length in bits |

## Messages
)";

std::string title(const wire_message_t &message) {
    std::string text = std::string("`") + message.name + "`";
    if (message.form == wire_form_t::sync) text += " (synchronous)";
    return text;
}

/* The field that the selector is; every message with a selector describes it as its first field. */
std::string selector(const wire_message_t &message) {
    if (message.selector == wire_no_selector) return "";
    return std::string(message.fields[0].name) + " " + std::to_string(message.selector);
}

std::string length(const wire_message_t &message) {
    if (message.entry_name != nullptr) {
        return std::to_string(message.size) + " + " + std::to_string(message.entry_size) + " an entry";
    }
    return (message.open_ended ? "at least " : "") + std::to_string(message.size);
}

void print_overview(const wire_message_t *messages, size_t count, wire_direction_t direction, const char *heading) {
    std::printf("\n### %s\n\n| message | number | selected by | length | purpose |\n|---|---|---|---|---|\n", heading);
    for (const wire_message_t *message = messages; message != messages + count; ++message) {
        if (message->direction != direction) continue;
        std::printf("| %s | %u | %s | %s | %s |\n", title(*message).c_str(), message->msgno, selector(*message).c_str(),
                    length(*message).c_str(), message->purpose);
    }
}

void print_fields(const wire_field_t *fields, size_t count) {
    std::printf("\n| offset | width | field | kind |\n|---|---|---|---|\n");
    for (const wire_field_t *field = fields; field != fields + count; ++field) {
        std::printf("| %u | %u | `%s` | %s |\n", field->offset, field->width, field->name, wire_kind_name(field->kind));
    }
}

void print_entry(const wire_message_t &message) {
    if (message.entry_count_offset == 0) {
        std::printf("\nOne entry `%s` at offset %u when the result is 0:\n", message.entry_name, message.entry_offset);
    } else {
        std::printf("\nEntries `%s` from offset %u on, as many as the number at offset %u says:\n", message.entry_name,
                    message.entry_offset, message.entry_count_offset);
    }
    print_fields(message.entry_fields, message.entry_field_count);
}

void print_details(const wire_message_t &message) {
    std::printf("\n### %s\n\nNumber %u, %s bytes: %s.\n", title(message).c_str(), message.msgno,
                length(message).c_str(), message.purpose);
    if (message.field_count != 0) print_fields(message.fields, message.field_count);
    if (message.entry_name != nullptr) print_entry(message);
}

}  // namespace

int main() {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    std::fputs(introduction, stdout);
    print_overview(messages, count, wire_direction_t::to_server, "To the server");
    print_overview(messages, count, wire_direction_t::to_client, "To the client");
    std::printf("\n## Fields\n");
    for (const wire_message_t *message = messages; message != messages + count; ++message) {
        print_details(*message);
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
}
