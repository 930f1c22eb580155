/* The message description: every message is found by its type word and selector, and checked for length and domain. */
#include "wire/messages.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using bytes_t = std::vector<uint8_t>;

std::vector<wire_message_t> all_messages() {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    return {messages, messages + count};
}

const wire_message_t *named(const std::string &name) {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    for (size_t i = 0; i < count; ++i) {
        if (messages[i].name == name) return &messages[i];
    }
    return nullptr;
}

void put32(bytes_t *bytes, size_t offset, uint32_t value) {
    std::memcpy(bytes->data() + offset, &value, sizeof(value));
}

/* The shortest well-formed message of this description. */
bytes_t framed(const wire_message_t &message) {
    bytes_t bytes(message.size, 0);
    const uint32_t form = message.form == wire_form_t::async ? 0xc000 : 0x8000;
    put32(&bytes, 0, (form | message.msgno) | 96U << 16);
    if (message.selector != wire_no_selector) {
        put32(&bytes, message.selector_offset, static_cast<uint32_t>(message.selector));
    }
    return bytes;
}

TEST(messages, are_found_by_their_type_word_and_selector_only) {
    for (const wire_message_t &message : all_messages()) {
        bytes_t bytes = framed(message);
        EXPECT_EQ(wire_find(message.direction, bytes.data(), bytes.size()), named(message.name));
        bytes[1] ^= 0x10; /* this bit of the type word is always 0 */
        EXPECT_EQ(wire_find(message.direction, bytes.data(), bytes.size()), nullptr) << message.name;
        EXPECT_EQ(wire_find(message.direction, bytes.data(), 1), nullptr) << message.name;
    }
    const uint8_t config_without_op_code[32] = {0x03, 0xc0, 0x60, 0x00};
    EXPECT_EQ(wire_find(wire_direction_t::to_server, config_without_op_code, sizeof(config_without_op_code)), nullptr);
}

TEST(messages, are_well_framed_at_the_right_length_and_domain_only) {
    for (const wire_message_t &message : all_messages()) {
        const bool may_be_longer = message.open_ended || message.entry_name != nullptr;
        bytes_t bytes = framed(message);
        bytes.push_back(0);
        EXPECT_TRUE(wire_frame_ok(message, bytes.data(), message.size)) << message.name;
        EXPECT_FALSE(wire_frame_ok(message, bytes.data(), message.size - 1)) << message.name;
        EXPECT_EQ(wire_frame_ok(message, bytes.data(), bytes.size()), may_be_longer) << message.name;
        bytes[2] = 97;
        EXPECT_FALSE(wire_frame_ok(message, bytes.data(), message.size)) << message.name;
    }
}

}  // namespace
