#include "wire/messages.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <set>
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

void expect_widths_of_kinds(const std::string &name, const wire_field_t *fields, size_t count) {
    const std::map<wire_kind_t, std::set<uint16_t>> widths = {
        {wire_kind_t::number, {1, 2, 4, 8}}, {wire_kind_t::hex, {4, 8}},       {wire_kind_t::flag, {1, 2, 4}},
        {wire_kind_t::operation, {4}},       {wire_kind_t::code, {4}},         {wire_kind_t::ipv4, {4}},
        {wire_kind_t::ipv4_swapped, {4}},    {wire_kind_t::ipv6_swapped, {8}}, {wire_kind_t::address, {20}},
        {wire_kind_t::prefix, {16}},
    };
    std::set<std::string> names;
    for (size_t i = 0; i < count; ++i) {
        EXPECT_TRUE(names.insert(fields[i].name).second) << name << " has two fields " << fields[i].name;
        if (fields[i].kind == wire_kind_t::bytes) continue;
        EXPECT_EQ(widths.at(fields[i].kind).count(fields[i].width), 1u) << name << "." << fields[i].name;
    }
}

TEST(messages, have_names_of_their_own_and_fields_as_wide_as_their_kinds) {
    std::set<std::string> names;
    for (const wire_message_t &message : all_messages()) {
        EXPECT_TRUE(names.insert(message.name).second) << message.name;
        expect_widths_of_kinds(message.name, message.fields, message.field_count);
        expect_widths_of_kinds(message.name, message.entry_fields, message.entry_field_count);
        if (message.selector != wire_no_selector) {
            EXPECT_EQ(message.fields[0].offset, message.selector_offset) << message.name;
        }
    }
}

struct layout_t {
    wire_direction_t direction;
    wire_form_t form;
    uint16_t msgno;
    int32_t selector;
    uint32_t size;
};

TEST(messages, cover_every_message_at_its_length) {
    constexpr wire_direction_t up = wire_direction_t::to_server, down = wire_direction_t::to_client;
    constexpr wire_form_t async = wire_form_t::async, sync = wire_form_t::sync;
    const std::vector<layout_t> layouts = {
        {up, async, 1, -1, 32},   {up, async, 2, -1, 40},    {up, async, 3, 1, 132},    {up, async, 3, 2, 132},
        {up, async, 3, 3, 64},    {up, async, 3, 4, 64},     {up, async, 3, 5, 48},     {up, async, 3, 6, 84},
        {up, async, 3, 7, 88},    {up, async, 3, 8, 124},    {up, async, 3, 9, 48},     {up, async, 3, 11, 120},
        {up, async, 3, 12, 48},   {up, async, 3, 13, 120},   {up, async, 3, 14, 48},    {up, async, 3, 15, 48},
        {up, async, 3, 16, 48},   {up, async, 3, 17, 40},    {up, async, 3, 19, 144},   {up, async, 3, 20, 52},
        {up, async, 3, 21, 44},   {up, async, 3, 22, 68},    {up, async, 3, 23, 60},    {up, async, 3, 24, 60},
        {up, async, 3, 25, 60},   {up, async, 3, 26, 64},    {up, async, 3, 27, 64},    {up, async, 3, 28, 56},
        {up, async, 3, 29, 52},   {up, async, 3, 31, 52},    {up, async, 4, -1, 40},    {up, async, 5, -1, 32},
        {up, async, 6, -1, 64},   {up, async, 7, -1, 64},    {up, async, 8, -1, 56},    {up, async, 9, -1, 144},
        {up, async, 12, -1, 32},  {up, async, 13, 0, 80},    {up, async, 13, 1, 68},    {up, sync, 2, -1, 24},
        {up, sync, 3, 21, 24},    {up, sync, 3, 22, 48},     {down, async, 0, -1, 36},  {down, async, 4, -1, 48},
        {down, async, 5, -1, 48}, {down, async, 6, -1, 64},  {down, async, 7, -1, 64},  {down, async, 8, -1, 48},
        {down, async, 9, -1, 72}, {down, async, 10, -1, 36}, {down, async, 11, -1, 36}, {down, async, 13, -1, 64},
        {down, async, 1, 0, 42},  {down, async, 1, 1, 20},   {down, async, 1, 2, 20},   {down, async, 1, 3, 62},
        {down, async, 1, 4, 28},  {down, sync, 2, -1, 20},   {down, sync, 3, -1, 20},
    };
    for (const layout_t &layout : layouts) {
        bytes_t bytes(layout.size, 0);
        put32(&bytes, 0, (layout.form == async ? 0xc000U : 0x8000U) | layout.msgno | 96U << 16);
        const size_t body = layout.form == sync || (layout.direction == down && layout.msgno == 1) ? 16 : 32;
        if (layout.selector >= 0) put32(&bytes, body, static_cast<uint32_t>(layout.selector));
        const wire_message_t *message = wire_find(layout.direction, bytes.data(), bytes.size());
        ASSERT_NE(message, nullptr) << layout.msgno << " selector " << layout.selector;
        EXPECT_EQ(message->size, layout.size) << message->name;
        EXPECT_TRUE(wire_frame_ok(*message, bytes.data(), bytes.size())) << message->name;
    }
    EXPECT_EQ(layouts.size(), all_messages().size());
}

TEST(messages, are_found_by_their_type_word_and_selector_only) {
    for (const wire_message_t &message : all_messages()) {
        bytes_t bytes = framed(message);
        EXPECT_EQ(wire_find(message.direction, bytes.data(), bytes.size()), named(message.name));
        bytes[1] ^= 0x10; /* a bit of the type word that is always 0 */
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

struct place_t {
    const char *message;
    const char *field;
    uint16_t offset, width;
};

TEST(fields, stand_where_the_wire_has_them) {
    const place_t places[] = {
        {"interface_set", "mtu", 124, 2},
        {"interface_set", "sful_prefix", 80, 16},
        {"interface_set", "sful_prefix_kind", 96, 4},
        {"glb_prefix", "prefix_kind", 56, 4},
        {"pool_add", "start_addr", 52, 4},
        {"pool_range_del", "one", 80, 4},
        {"smapping_add", "addr2", 80, 20},
        {"dmapping_add", "second", 88, 24},
        {"dmapping_add", "ext_arg", 112, 4},
        {"timeout_set", "value", 40, 4},
        {"session_clear", "dst", 60, 20},
        {"service_set", "type", 40, 4},
        {"classifier_update", "batch_id", 60, 4},
        {"ctrl_classifier_update", "batch_id", 44, 4},
        {"logging_add", "dest_port", 44, 2},
        {"adj_set", "address", 40, 20},
        {"session_walk", "src", 72, 20},
        {"stats_limit_all", "count", 48, 4},
        {"mapt_bmr", "v4_prefix", 60, 4},
        {"mapt_bmr", "rule_param3", 72, 2},
        {"mapt_dmr", "opaque", 44, 24},
        {"mapt_reply", "bmr_index", 60, 4},
        {"unsol_record", "add", 40, 2},
        {"unsol_mapping", "inactive", 61, 1},
        {"session_walk_reply", "value", 56, 8},
        {"result", "result", 32, 4},
    };
    for (const place_t &place : places) {
        const wire_message_t *message = named(place.message);
        ASSERT_NE(message, nullptr) << place.message;
        const wire_field_t *found = nullptr;
        for (size_t i = 0; i < message->field_count; ++i) {
            if (std::string(message->fields[i].name) == place.field) found = &message->fields[i];
        }
        ASSERT_NE(found, nullptr) << place.message << "." << place.field;
        EXPECT_EQ(found->offset, place.offset) << place.message << "." << place.field;
        EXPECT_EQ(found->width, place.width) << place.message << "." << place.field;
    }
}

TEST(entries, say_where_their_number_is) {
    const struct {
        const char *message;
        uint16_t offset, size, count_offset;
    } entries[] = {
        {"stats_sys_reply", 48, 72, 0},          {"stats_intf_reply", 48, 24, 44},
        {"stats_limit_all_reply", 48, 16, 44},   {"stats_pool_all_reply", 64, 24, 56},
        {"stats_mapping_all_reply", 64, 24, 56}, {"session_walk_reply", 72, 64, 40},
    };
    for (const auto &entry : entries) {
        const wire_message_t *message = named(entry.message);
        ASSERT_NE(message, nullptr) << entry.message;
        EXPECT_EQ(message->entry_offset, entry.offset) << entry.message;
        EXPECT_EQ(message->entry_size, entry.size) << entry.message;
        EXPECT_EQ(message->entry_count_offset, entry.count_offset) << entry.message;
    }
}

TEST(wire_read, takes_the_first_byte_as_the_lowest) {
    const uint8_t bytes[] = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x88};
    EXPECT_EQ(wire_read(bytes, 1), 0x01u);
    EXPECT_EQ(wire_read(bytes, 2), 0x0201u);
    EXPECT_EQ(wire_read(bytes, 4), 0x04030201u);
    EXPECT_EQ(wire_read(bytes, 8), 0x8807060504030201u);
}

}  // namespace
