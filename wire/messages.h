/*
 * The description of every message between the library and the server, in both directions.
 *
 * Offsets and widths come from the structs of fwx_nat64/wire.h, so the description cannot drift from them. The server
 * model checks frames with it, natctl decodes messages with it, and the program in documents/ prints the protocol page
 * and the Wireshark dissector from it.
 */
#ifndef WIRE_MESSAGES_H
#define WIRE_MESSAGES_H

#include <cstddef>
#include <cstdint>

#include "fwx_nat64/wire.h"
#include "wire/kinds.h"
#include "wire/names.h"

enum class wire_direction_t : uint8_t { to_server, to_client };
enum class wire_form_t : uint8_t { async, sync };

struct wire_field_t {
    const char *name; /* never changes: it is also the JSON key */
    uint16_t offset;  /* from the start of the message, or of the entry */
    uint16_t width;   /* bytes */
    wire_kind_t kind;
    const wire_names_t *names = nullptr; /* names of its values; null: they have none */
};

/** No selector: the message stands for its whole number, or for all selectors that have no message of their own. */
constexpr int32_t wire_no_selector = -1;

struct wire_message_t {
    const char *name; /* never changes; lower case with underscores */
    const char *purpose;
    const wire_field_t *fields; /* in ascending order; the selector, if any, is among them */
    size_t field_count;
    const char *entry_name; /* name of the records after the fixed part; null: none */
    const wire_field_t *entry_fields;
    size_t entry_field_count;
    int32_t selector; /* value of the selector, such as an op code or event; or wire_no_selector */
    uint32_t size;    /* bytes: exact length, or minimum length if there are entries or it is `open_ended` */
    uint16_t msgno;
    uint16_t selector_offset; /* offset of the 32-bit selector; 0: none */
    uint16_t entry_offset;
    uint16_t entry_size;
    uint16_t entry_count_offset; /* offset of the 32-bit number of entries; 0: exactly one entry if result is 0 */
    wire_direction_t direction;
    wire_form_t form;
    bool open_ended; /* longer messages are well formed too */
};

/** Returns the selector field of a message. Requires: the message has a selector. */
const wire_field_t &wire_selector_field(const wire_message_t &message);

/** Returns the table of all messages, which lives as long as the program. */
const wire_message_t *wire_messages(size_t *count);

/** Returns the message that type word and selector of these bytes identify, or null. The length is not checked. */
const wire_message_t *wire_find(wire_direction_t direction, const void *msg, size_t size);

/** True if these bytes have the length, type word and domain of `message`. */
bool wire_frame_ok(const wire_message_t &message, const void *msg, size_t size);

/** Reads a little-endian number of 1, 2, 4 or 8 bytes. Requires: the bytes are there. */
uint64_t wire_read(const void *at, size_t width);

#endif
