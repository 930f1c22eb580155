/* The message description: every message is found by its type word and selector, and checked for length and domain. */
#include "wire/messages.h"

#include <gtest/gtest.h>

#include "tests/support/framed.h"

namespace {

TEST(messages, are_found_by_their_type_word_and_selector_only) {
    for (const wire_message_t &message : described_messages()) {
        bytes_t bytes = framed(message);
        const wire_message_t *found = wire_find(message.direction, bytes.data(), bytes.size());
        ASSERT_NE(found, nullptr) << message.name;
        EXPECT_STREQ(found->name, message.name);
        bytes[1] ^= 0x10; /* this bit of the type word is always 0 */
        EXPECT_EQ(wire_find(message.direction, bytes.data(), bytes.size()), nullptr) << message.name;
        EXPECT_EQ(wire_find(message.direction, bytes.data(), 1), nullptr) << message.name;
    }
    const uint8_t config_without_op_code[32] = {0x03, 0xc0, 0x60, 0x00};
    EXPECT_EQ(wire_find(wire_direction_t::to_server, config_without_op_code, sizeof(config_without_op_code)), nullptr);
}

TEST(messages, are_well_framed_at_the_right_length_and_domain_only) {
    for (const wire_message_t &message : described_messages()) {
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
