/* Parsing of lines into records, and formatting of records and values as text. */
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <set>

#include "records/reader.h"
#include "records/value.h"
#include "records/words.h"
#include "tests/records/all_families.h"
#include "tests/support/framed.h"

namespace {

using result_t = record_reader_t::result_t;

result_t read_into(record_reader_t &reader, const std::string &line) {
    line_words_t words;
    EXPECT_EQ(words.split(line), 0) << line;
    return reader.read(words.words());
}

/** Parses a line that must be a correct command. */
record_reader_t read_line(const std::string &line) {
    record_reader_t reader;
    EXPECT_EQ(read_into(reader, line), result_t::record) << line << ": " << reader.error();
    return reader;
}

TEST(records_test, addresses_are_written_as_the_c_library_writes_them) {
    for (uint32_t zeros = 0; zeros < 256; ++zeros) {
        for (const uint32_t word : {0x1U, 0xabU, 0xffffU}) {
            uint8_t bytes[16] = {};
            for (size_t i = 0; i < 8; ++i) {
                const uint32_t value = (zeros >> i & 1) != 0 ? 0 : word;
                bytes[2 * i] = static_cast<uint8_t>(value >> 8);
                bytes[2 * i + 1] = static_cast<uint8_t>(value);
            }
            char text[INET6_ADDRSTRLEN];
            EXPECT_EQ(address_text(AF_INET6, bytes), inet_ntop(AF_INET6, bytes, text, sizeof text));
        }
    }
}

TEST(records_test, times_have_units_and_are_whole_numbers_of_the_requested_unit) {
    const std::tuple<const char *, std::optional<uint64_t>, uint64_t> times[] = {
        {"0", 0, 0},
        {"300", 300, 300},
        {"0x10", 16, 16},
        {"5s", 5, 5000},
        {"5m", 300, 300000},
        {"1h30m", 5400, 5400000},
        {"2d", 172800, 172800000},
        {"1d2h3m4s5ms", std::nullopt, 93784005},
        {"250ms", std::nullopt, 250},
        {"3000ms", 3, 3000},
        {"1m1ms", std::nullopt, 60001},
        {"18446744073709551615", UINT64_MAX, UINT64_MAX},
        {"18446744073709551615ms", std::nullopt, UINT64_MAX},
        {"18446744073709551s", 18446744073709551, 18446744073709551000U},
    };
    const auto read = [](const char *text, uint32_t unit_ms) {
        uint64_t value = 0;
        return parse_duration(text, unit_ms, value) ? std::optional(value) : std::nullopt;
    };
    for (const auto &[text, seconds, milliseconds] : times) {
        EXPECT_EQ(read(text, 1000), seconds) << text;
        EXPECT_EQ(read(text, 1), milliseconds) << text;
    }
    for (const char *text : {"18446744073709551616", "18446744073709552s", "213503982334d14h25m51s616ms", "", "s", "ms",
                             "-1", "-1s", "+1s", "1.5s", "1 s", "5sec", "5S", "1h30", "4m2h", "1s1s", "0x1s"}) {
        EXPECT_EQ(read(text, 1000), std::nullopt) << text;
        EXPECT_EQ(read(text, 1), std::nullopt) << text;
    }
}

TEST(records_test, an_address_with_a_port_has_brackets_if_it_is_of_ipv6) {
    const std::pair<const char *, const char *> places[] = {
        {"192.0.2.1:80", "192.0.2.1 80"},
        {"192.0.2.1:0", "192.0.2.1 0"},
        {"[2001:db8::1]:65535", "2001:db8::1 65535"},
        {"[::1]:080", "::1 80"},
    };
    fwx_nat64_addr_t address;
    uint16_t port = 0;
    for (const auto &[text, expected] : places) {
        ASSERT_TRUE(parse_address_port(text, address, port)) << text;
        EXPECT_EQ(address_text(address) + " " + std::to_string(port), expected);
    }
    for (const char *text :
         {"192.0.2.1:65536", "192.0.2.1:-1", "192.0.2.1:+1", "192.0.2.1:0x50", "192.0.2.1:80 ",
          "192.0.2.1:", "192.0.2.1", "192.0.2:80", "[192.0.2.1]:80", "2001:db8::1:80", "[2001:db8::1]",
          "[2001:db8::1]80", "[2001:db8::1:80", "2001:db8::1]:80", "[]:80", ":80", ":", ""}) {
        EXPECT_FALSE(parse_address_port(text, address, port)) << text;
    }
    std::string_view host;
    EXPECT_TRUE(parse_host_port("store-1.example:2379", host, port));
    EXPECT_EQ(host, "store-1.example");
    EXPECT_EQ(port, 2379);
    EXPECT_FALSE(parse_host_port("a:b:80", host, port));
}

TEST(records_test, words_are_split_at_blanks_outside_quotes_up_to_a_comment) {
    const struct {
        std::string line;
        std::vector<std::string_view> words;
        char open_quote = 0;
    } lines[] = {
        {"", {}},
        {"  # only this", {}},
        {"a b\tc\r", {"a", "b", "c"}},
        {"a #b", {"a"}},
        {"a#b", {"a#b"}},
        {"'a b' \"c # d\"", {"a b", "c # d"}},
        {"a'b c'd ''", {"ab cd", ""}},
        {"\"it's\"", {"it's"}},
        {"a 'b", {"a", "b"}, '\''},
    };
    line_words_t words;
    for (const auto &[line, expected, open_quote] : lines) {
        EXPECT_EQ(words.split(line), open_quote) << line;
        EXPECT_EQ(words.words(), expected) << line;
    }
}

/** A text that is a valid value of the field. */
std::string good_text(const record_field_t &field) {
    switch (field.kind) {
        case record_kind_t::number:
            return std::to_string(field.min);
        case record_kind_t::numbers:
            return "1,2,3,4";
        case record_kind_t::ipv4_prefix:
            return "192.0.2.0/24";
        case record_kind_t::ipv6_prefix:
            return "2001:db8::/32";
        case record_kind_t::bytes:
            return std::string(2UL * field.width, '0');
        default:
            return "192.0.2.1";
    }
}

TEST(records_test, every_field_is_held_to_its_bounds) {
    for (const record_family_t &family : all_families()) {
        for (const record_field_t &field : fields_of(family)) {
            std::vector<std::string> bad = {"x"};
            if (field.kind == record_kind_t::number && field.min > 0) bad.push_back(std::to_string(field.min - 1));
            if (field.kind == record_kind_t::number) bad.push_back(std::to_string(field.max + 1));
            if (field.kind == record_kind_t::ipv6_prefix) bad.push_back("::/" + std::to_string(field.max + 1));
            if (field.kind == record_kind_t::ipv6_prefix) bad.push_back("2001:db8::/28");
            if (field.kind == record_kind_t::ipv4_prefix) bad.push_back("192.0.2.192/25");
            if (field.kind == record_kind_t::bytes) bad.push_back(good_text(field) + "0");
            for (const std::string &text : bad) {
                std::string line = record_command_text(family, family.verbs);
                for (const record_field_t &other : fields_of(family)) {
                    if (&other != &field && !other.is_required_on(family.verbs->op)) continue;
                    line.append(" ").append(other.option).append(" ");
                    line.append(&other == &field ? text : good_text(other));
                }
                record_reader_t reader;
                EXPECT_EQ(read_into(reader, line), result_t::refused) << line;
                EXPECT_EQ(reader.error().rfind(std::string(field.option) + " " + text + ": must be ", 0), 0U) << line;
            }
        }
    }
}

/** Checks the payload of a command that has a value in each of its fields. */
void check_payload(const record_family_t &family, uint32_t op, const record_buffer_t &record) {
    const record_payload_t *row = record_payload_of(family, op, record.bytes);
    ASSERT_NE(row, nullptr) << "a server keeps it as hexadecimal digits: a row of its family is missing";
    std::vector<uint8_t> payload(row->size);
    row->to_payload(record.bytes, payload.data());
    row->word.put(payload.data());

    const record_kept_t kept = record_kept_as(row->op_code, payload.data(), payload.size());
    ASSERT_EQ(kept.family, &family);
    const bool travels_as_add = op == FWX_NAT64_OP_MOD && kept.payload->op == FWX_NAT64_OP_ADD;
    EXPECT_TRUE(kept.payload->op == op || travels_as_add) << kept.payload->op;
    record_buffer_t again;
    record_init(family, again);
    kept.payload->to_record(payload.data(), again.bytes);
    for (const record_field_t &field : fields_of(family)) {
        if (!field.is_taken_on(op)) continue;
        EXPECT_EQ(record_field_text(field, again.bytes), record_field_text(field, record.bytes)) << field.option;
    }
}

TEST(records_test, every_command_has_a_payload_that_says_the_same) {
    for (const record_family_t &family : all_families()) {
        for (const record_verb_t &verb : verbs_of(family)) {
            std::string line = record_command_text(family, &verb);
            for (const record_field_t &field : fields_of(family)) {
                if (!field.is_taken_on(verb.op) || field.is_spelling) continue;
                line.append(" ").append(field.option).append(" ").append(good_text(field));
            }
            SCOPED_TRACE(line);
            check_payload(family, verb.op, read_line(line).record());
        }
    }
}

TEST(records_test, a_stateless_prefix_has_an_op_code_of_its_own) {
    for (const char *verb : {"add", "mod", "del"}) {
        const record_reader_t reader =
            read_line("prefix " + std::string(verb) + " --prefix 64:ff9b::/96 --kind stateless");
        const record_payload_t *row = record_payload_of(reader.family(), reader.verb().op, reader.record().bytes);
        ASSERT_NE(row, nullptr) << verb;
        EXPECT_EQ(row->op_code, FWX_NAT64_CFG_GLB_PREFIX_KIND2) << verb;
    }
}

TEST(records_test, a_payload_that_no_command_says_belongs_to_no_family) {
    const uint8_t payload[64] = {1};
    EXPECT_EQ(record_kept_as(FWX_NAT64_CFG_TIMEOUT_SET, payload, sizeof(fwx_nat64_timeout_t) - 1).family, nullptr);
    EXPECT_EQ(record_kept_as(0x7fff, payload, sizeof(fwx_nat64_timeout_t)).family, nullptr);
    EXPECT_EQ(record_kept_as(FWX_NAT64_CFG_POOL_DEL, payload, sizeof(fwx_nat64_delete_payload_t)).family, nullptr)
        << "its second word is not 1";
}

TEST(records_test, the_system_totals_count_the_items_of_these_families) {
    fwx_nat64_stats_sys_entry_t totals{};
    totals.interfaces = 1;
    totals.prefixes = 2;
    totals.static_mappings = 3;
    totals.dynamic_mappings = 4;
    totals.pools = 5;
    totals.pool_ranges = 6;
    totals.loggings = 7;
    totals.rules = 8;
    std::set<std::string> counted;
    for (const record_family_t &family : all_families()) {
        const std::optional<uint64_t> total = record_total_of(family, totals);
        if (total) counted.insert(record_command_text(family, nullptr) + " " + std::to_string(*total));
    }
    EXPECT_EQ(counted, (std::set<std::string>{"interface 1", "nvi 1", "prefix 2", "smapping 3", "dmapping 4", "pool 5",
                                              "range 6", "logging 7", "mapt bmr 8", "mapt dmr 8"}));
}

TEST(records_test, fields_are_called_as_their_options_in_json_and_as_in_the_messages_in_c) {
    std::set<std::string> names = {"rule_params", "ea_len", "psid_offset", "psid_len", "psid"}; /* rule_param0 to 3 */
    for (const wire_message_t &message : described_messages()) {
        for (size_t i = 0; message.direction == wire_direction_t::to_server && i < message.field_count; ++i) {
            names.insert(message.fields[i].name);
        }
    }
    for (const record_family_t &family : all_families()) {
        for (const record_field_t &field : fields_of(family)) {
            EXPECT_EQ(names.count(field.member), 1U) << field.member;
            std::string words(field.option.substr(2));
            std::replace(words.begin(), words.end(), '-', '_');
            EXPECT_EQ(field.name, words);
        }
    }
}

TEST(records_test, an_address_with_a_zero_byte_is_none) {
    using namespace std::string_view_literals;
    record_reader_t reader;
    EXPECT_EQ(reader.read({"adj", "set", "--type", "1", "--address", "192.0.2.1\0x"sv}), result_t::refused);
}

TEST(records_test, lines_that_are_not_configuration_commands_are_left_to_another_parser) {
    record_reader_t reader;
    for (const char *line :
         {"status", "mapt", "mapt show", "timeout --help", "timeout set -h", "limit add -- --type 1", "limit ++ add"}) {
        EXPECT_EQ(read_into(reader, line), result_t::other) << line;
    }
}

}  // namespace
