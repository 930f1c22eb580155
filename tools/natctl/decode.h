/* Formats messages and entries as text and JSON, by the message description of wire/. */
#ifndef TOOLS_NATCTL_DECODE_H
#define TOOLS_NATCTL_DECODE_H

#include <cstddef>
#include <cstdint>
#include <string>

#include "fwx_host/smc.h"
#include "tools/natctl/outcome.h"
#include "wire/messages.h"

/** `text (0x40300216)` of a result code. */
std::string code_text(uint32_t code);

/** `0x1f`. */
std::string hex_number(uint64_t value);

/** `-> timeout_set 48 bytes: op_code=14 type=1 value=300`. */
std::string message_line(fwx_host_direction_t direction, const void *msg, size_t size);
/** {"message", "size", "fields", "hex"}. */
json_t message_json(fwx_host_direction_t direction, const void *msg, size_t size);
/** The result of message_json as one line, without the direction. */
std::string message_text(const json_t &message);

/** A row for people: a value that has a name is replaced by the name. */
json_t with_names(const json_t &row);

/** The description of the reply with that message number and, if it has a selector, that selector. Requires that the
 * reply has entries. */
const wire_message_t &reply_described(uint16_t msgno, uint32_t selector = 0);
/** The entries of a reply as an array of rows. */
json_t decode_entries(const wire_message_t &reply, const void *entries, uint32_t count);
/** Appends an array of rows to `rows`, which may be null. */
void append_rows(json_t &rows, json_t &&more);

/** A scalar for people. */
std::string plain_text(const json_t &value);

#endif
