/* Addresses and ports under basic mapping rules, with the examples of RFC 7597 and RFC 7599, appendix A. */
#include "records/map_address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstring>

#include "records/reader.h"
#include "records/value.h"
#include "records/words.h"

namespace {

fwx_nat64_mapt_bmr_t rule_of(const std::string &prefixes_and_params) {
    line_words_t words;
    record_reader_t reader;
    fwx_nat64_mapt_bmr_t rule{};
    words.split("mapt bmr add --rule 1 --domain 1 " + prefixes_and_params);
    EXPECT_EQ(reader.read(words.words()), record_reader_t::result_t::record) << reader.error();
    std::memcpy(&rule, reader.record().bytes, sizeof rule);
    return rule;
}

std::string ipv4_text(const map_address_t &address) {
    const uint32_t word = htonl(address.ipv4);
    return address_text(AF_INET, &word) + "/" + std::to_string(address.ipv4_len);
}

/** Number of ranges, the first and the last one: `63: 1232-1235 to 64720-64723`. */
std::string ports_text(const map_address_t &address) {
    const std::vector<port_range_t> ranges = map_port_set(address);
    auto text = [](const port_range_t &range) {
        return std::to_string(range.first) + "-" + std::to_string(range.last);
    };
    if (ranges.empty()) return "all";
    return std::to_string(ranges.size()) + ": " + text(ranges.front()) + " to " + text(ranges.back());
}

struct mapping_t {
    std::string rule;
    const char *ipv4;
    int port; /* -1: none */
    uint64_t ea_bits;
    uint32_t psid;
    const char *ipv6;
    const char *others; /* the IPv4 prefix that another IPv6 address of the customer gives */
    const char *ports;
};
const std::string with_24 = " --v4 192.0.2.0/24 --params ";
const std::string ce = "--v6 2001:db8:12:3400::/56 --v4 192.0.2.";
constexpr char ce_ipv6[] = "2001:db8:12:3400:0:c000:212:34";
constexpr char ce_ports[] = "63: 1232-1235 to 64720-64723";
const mapping_t mappings[] = {
    /* Examples 1 to 3, with two ports; example 4 of either RFC; example 5. */
    {"--v6 2001:db8::/40" + with_24 + "16,6,8,0", "192.0.2.18", 1232, 0x1234, 52, ce_ipv6, "192.0.2.18/32", ce_ports},
    {"--v6 2001:db8::/40" + with_24 + "16,6,0,0", "192.0.2.18", 2259, 0x1234, 52, ce_ipv6, "192.0.2.18/32", ce_ports},
    {ce + "18/32", "192.0.2.18", -1, 0, 0, "2001:db8:12:3400:0:c000:212:0", "192.0.2.18/32", "all"},
    {ce + "1/32", "192.0.2.1", 80, 0, 0, "2001:db8:12:3400:0:c000:201:0", "192.0.2.1/32", "all"},
    {ce + "18/32 --params 0,6,8,52", "192.0.2.18", -1, 0, 52, ce_ipv6, "192.0.2.18/32", ce_ports},
    {"--v6 2001:db8:12::/48" + with_24 + "8,6,8,52", "192.0.2.18", -1, 0x12, 52, "2001:db8:12:1200:0:c000:212:34",
     "192.0.2.18/32", ce_ports},
    /* A PSID offset of 0; EA bits that end within the IPv4 address; no EA bits behind an IPv4 prefix; EA bits that
     * reach into the interface identifier; the greatest number of EA bits. */
    {"--v6 2001:db8::/48" + with_24 + "12,0,0,0", "192.0.2.18", 0x3456, 0x123, 3, "2001:db8:0:1230:0:c000:212:3",
     "192.0.2.18/32", "1: 12288-16383 to 12288-16383"},
    {"--v6 2001:db8::/48" + with_24 + "4,0,0,0", "192.0.2.183", -1, 0xb, 0, "2001:db8:0:b000:0:c000:2b7:0",
     "192.0.2.176/28", "all"},
    {"--v6 2001:db8::/48 --v4 192.0.2.0/24", "192.0.2.183", -1, 0, 0, "2001:db8::c000:2b7:0", "192.0.2.0/24", "all"},
    {"--v6 2001:db8:1:2::/64" + with_24 + "16,6,8,0", "192.0.2.18", 1232, 0x1234, 52, "2001:db8:1:2:1234:c000:212:34",
     "192.0.2.18/32", ce_ports},
    {"--v6 2001:db8::/32 --v4 0.0.0.0/0 --params 48,0,16,0", "192.0.2.18", 65535, 0xc0000212ffff, 0xffff,
     "2001:db8:c000:212:ffff:c000:212:ffff", "192.0.2.18/32", "1: 65535-65535 to 65535-65535"},
};

TEST(map_address_test, an_address_with_its_port_leads_to_a_map_address_and_back) {
    for (const mapping_t &each : mappings) {
        SCOPED_TRACE(each.rule + " " + each.ipv4);
        const fwx_nat64_mapt_bmr_t rule = rule_of(each.rule);
        fwx_nat64_addr_t ipv4;
        uint32_t word = 0;
        map_address_t address;
        ASSERT_TRUE(parse_ipv4(each.ipv4, ipv4));
        std::memcpy(&word, ipv4.addr, sizeof word);
        const auto port = each.port < 0 ? std::nullopt : std::optional(static_cast<uint16_t>(each.port));
        ASSERT_EQ(map_from_ipv4(rule, word, port, address), "");
        map_address_t back;
        ASSERT_EQ(map_from_ipv6(rule, address.ipv6, back), "");
        for (const map_address_t &way : {address, back}) {
            EXPECT_EQ(ipv4_text(way), std::string(each.ipv4) + "/32");
            EXPECT_EQ(address_text(AF_INET6, way.ipv6), each.ipv6);
        }
        back.ipv6[15] ^= 0x80;
        map_address_t others;
        ASSERT_EQ(map_from_ipv6(rule, back.ipv6, others), "");
        EXPECT_EQ(ipv4_text(others), each.others);
        for (const map_address_t &way : {address, back, others}) {
            EXPECT_EQ(way.ea_bits, each.ea_bits);
            EXPECT_EQ(way.psid, each.psid);
            EXPECT_EQ(ports_text(way), each.ports);
        }
    }
}

TEST(map_address_test, errors_name_contradictory_parameters_and_ports_outside_of_the_rule) {
    const std::string v6 = "--v6 2001:db8::/40 --v4 192.0.2.";
    const std::tuple<std::string, int, const char *> wrong[] = {
        {"0/24 --params 25,0,0,0", 1, "ea_len 25: must be 0 to 24 with an IPv4 prefix of 24 bits"},
        {"0/24 --params 16,16,0,0", 1, "psid_offset 16: must be 0 to 15"},
        {"0/24 --params 16,6,7,0", 1, "psid_len 7: must be 8, which the EA bits leave for it"},
        {"0/24 --params 7,6,1,0", 1, "psid_len 1: must be 0, which the EA bits leave for it"},
        {"0/24 --params 0,6,1,0", 1, "psid_len 1: must be 0, which the EA bits leave for it"},
        {"0/24 --params 16,9,0,0", 1, "psid_len 8: must be 0 to 7 with a PSID offset of 9"},
        {"18/32 --params 0,6,11,0", 1, "psid_len 11: must be 0 to 10 with a PSID offset of 6"},
        {"18/32 --params 0,6,8,256", 1, "psid 256: must be 0 to 255"},
        {"0/24 --params 16,6,8,52", 1, "psid 52: must be 0, as the EA bits contain the PSID"},
        {"0/24 --params 16,6,8,0", -1, "a port is needed, as 256 customers share the address"},
        {"0/24 --params 16,6,8,0", 1023,
         "port 1023: must be 1024 to 65535, as the rule gives no other ports to customers"},
        {"0/24 --params 8,6,8,52", 1236, "port 1236: must be of PSID 52"},
    };
    for (const auto &[rule, port, error] : wrong) {
        const auto given = port < 0 ? std::nullopt : std::optional(static_cast<uint16_t>(port));
        map_address_t address;
        EXPECT_EQ(map_from_ipv4(rule_of(v6 + rule), 0xc0000212, given, address), error);
    }
}

}  // namespace
