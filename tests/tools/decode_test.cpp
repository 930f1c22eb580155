/* Messages formatted as text, from bytes that are literals here. */
#include "tools/natctl/decode.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "tools/natctl/entry_lines.h"

namespace {

std::vector<uint8_t> bytes_of(const std::string &hex) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < hex.size(); i += hex[i] == ' ' ? 1 : 2) {
        if (hex[i] != ' ') bytes.push_back(static_cast<uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

const std::string async_header_rest = "000000000000000000000000 1122334455667788 01000000 00000000";
const std::string sync_header_rest = "000000000000000000000000";

TEST(decode_test, a_message_reads_as_its_name_its_length_and_its_fields) {
    const std::tuple<fwx_host_direction_t, std::string, const char *> decodings[] = {
        {FWX_HOST_SENT, "03c06000" + async_header_rest + "0e000000 01000000 2c010000 00000000",
         "-> timeout_set 48 bytes: op_code=14 type=1 (udp) value=300"},
        {FWX_HOST_SENT,
         "03c06000" + async_header_rest + "1a000000 02000000 01000000 20010db8000000000000000000000001 00000000",
         "-> adj_set 64 bytes: op_code=26 type=2 (outside) address=2001:db8::1"},
        {FWX_HOST_SENT, "02806000" + sync_header_rest + "90000100 6e63746c",
         "-> sync_init 24 bytes: init_code=0x10090 client_id=6e63746c"},
        {FWX_HOST_SENT, "05c06000" + async_header_rest, "-> stats_intf 32 bytes"},
        {FWX_HOST_SENT,
         "0dc06000" + async_header_rest +
             "00000000 03000000 07000000 08000000 00000000b80d0120 28000000 000200c0 1800 1000 0600 0800 3400 "
             "000000000000",
         "-> mapt_bmr 80 bytes: rule_type=0 op=del rule_id=7 domain_id=8 v6_prefix=2001:db8:: v6_prefix_len=40 "
         "v4_prefix=192.0.2.0 v4_prefix_len=24 rule_param0=16 rule_param1=6 rule_param2=8 rule_param3=52"},
        {FWX_HOST_RECEIVED, "00c06000" + async_header_rest + "00000000 00000000",
         "<- result 40 bytes: result=success (0x0)"},
        {FWX_HOST_RECEIVED, "01c06000" + sync_header_rest + "04000000 05000000 01000000",
         "<- unsol_debug 28 bytes: event=4 selector=5 on=true"},
        {FWX_HOST_RECEIVED, "0fc06000", "<- unknown 4 bytes: bytes=0fc06000"},
        {FWX_HOST_RECEIVED, "00c06000" + async_header_rest + "16023040",
         "<- result 36 bytes: result=invalid argument of a command (0x40300216)"},
        {FWX_HOST_SENT, "03c06000" + async_header_rest + "0e000000 01000000",
         "-> timeout_set 40 bytes: op_code=14 type=1 (udp)"},
    };
    for (const auto &[direction, hex, line] : decodings) {
        const std::vector<uint8_t> bytes = bytes_of(hex);
        EXPECT_EQ(message_line(direction, bytes.data(), bytes.size()), line);
    }
    EXPECT_EQ(plain_text("a\x1b[2J"), "a [2J") << "no text steers the terminal";
}

TEST(decode_test, lines_of_entries_say_what_their_rows_say) {
    std::mt19937 random(1);
    for (const uint32_t selector : {0U, uint32_t{FWX_NAT64_WALK_FULL}}) {
        const wire_message_t &reply = reply_described(FWX_NAT64_MSG_SESSION_WALK, selector);
        entry_lines_t lines("\"line\":1", reply);
        for (const uint32_t count : {3U, 100U, 1U}) {
            std::vector<uint8_t> entries(size_t{count} * reply.entry_size);
            for (uint8_t &byte : entries) {
                const auto drawn = static_cast<uint32_t>(random()); /* zeros, small and large numbers */
                byte = static_cast<uint8_t>(drawn % 2 == 0 ? 0 : drawn >> 8 >> drawn % 7);
            }
            std::string expected;
            for (const json_t &row : decode_entries(reply, entries.data(), count)) {
                json_t line = {{"line", 1}};
                line.update(row);
                expected += line.dump() + "\n";
            }
            EXPECT_EQ(lines.write(entries.data(), count), expected);
        }
    }
}

}  // namespace
