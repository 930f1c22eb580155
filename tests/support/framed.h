/* The messages that wire/ describes, as bytes. */
#ifndef TESTS_SUPPORT_FRAMED_H
#define TESTS_SUPPORT_FRAMED_H

#include "bytes.h"
#include "wire/messages.h"

inline std::vector<wire_message_t> described_messages() {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    return {messages, messages + count};
}

/** A message with its header, its selector and `entries` empty entries; all other fields are 0. */
inline bytes_t framed(const wire_message_t &message, uint32_t entries = 0) {
    bytes_t bytes(message.size + size_t{message.entry_size} * entries);
    put<uint32_t>(bytes, 0, (message.form == wire_form_t::async ? 0xc000U : 0x8000U) | message.msgno | 96U << 16);
    if (message.selector != wire_no_selector)
        put(bytes, message.selector_offset, static_cast<uint32_t>(message.selector));
    if (message.entry_count_offset != 0) put(bytes, message.entry_count_offset, entries);
    return bytes;
}

#endif
