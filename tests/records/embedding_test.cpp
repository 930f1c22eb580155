/* IPv4 addresses embedded in IPv6 addresses, with the examples of RFC 6052, section 2.4. */
#include "records/embedding.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "records/value.h"

namespace {

/* A prefix, its length, and the address that has 192.0.2.33 behind it. */
constexpr std::tuple<const char *, uint8_t, const char *> embeddings[] = {
    {"2001:db8::", 32, "2001:db8:c000:221::"},
    {"2001:db8:100::", 40, "2001:db8:1c0:2:21::"},
    {"2001:db8:122::", 48, "2001:db8:122:c000:2:2100::"},
    {"2001:db8:122:300::", 56, "2001:db8:122:3c0:0:221::"},
    {"2001:db8:122:344::", 64, "2001:db8:122:344:c0:2:2100:0"},
    {"2001:db8:122:344::", 96, "2001:db8:122:344::c000:221"},
    {"64:ff9b::", 96, "64:ff9b::c000:221"},
};

TEST(embedding_test, an_address_is_embedded_and_extracted_and_all_around_it_must_be_zero) {
    for (const auto &[prefix_text, length, ipv6_text] : embeddings) {
        SCOPED_TRACE(ipv6_text);
        uint8_t ipv4[4] = {192, 0, 2, 33};
        uint8_t prefix[16];
        uint8_t ipv6[16];
        ASSERT_TRUE(parse_address_bytes(AF_INET6, prefix_text, prefix));
        ASSERT_TRUE(embed_ipv4(prefix, length, ipv4, ipv6));
        EXPECT_EQ(address_text(AF_INET6, ipv6), ipv6_text);
        ASSERT_TRUE(extract_ipv4(ipv6, length, ipv4));
        EXPECT_EQ(address_text(AF_INET, ipv4), "192.0.2.33");
        ipv6[8] = 1;
        EXPECT_FALSE(extract_ipv4(ipv6, length, ipv4));
        ipv6[8] = 0;
        ipv6[15] ^= 1; /* the last bit of the suffix, or of the IPv4 address behind a prefix of 96 bits */
        EXPECT_EQ(extract_ipv4(ipv6, length, ipv4), length == 96);
    }
}

TEST(embedding_test, other_prefixes_have_no_place_for_one) {
    const uint8_t ipv4[4] = {};
    uint8_t ipv6[16] = {};
    uint8_t out[16];
    for (uint32_t length = 0; length <= UINT8_MAX; ++length) {
        const bool is_one_of_them =
            length == 32 || length == 40 || length == 48 || length == 56 || length == 64 || length == 96;
        EXPECT_EQ(embed_ipv4(ipv6, static_cast<uint8_t>(length), ipv4, out), is_one_of_them) << length;
        EXPECT_EQ(extract_ipv4(ipv6, static_cast<uint8_t>(length), out), is_one_of_them) << length;
    }
    ipv6[8] = 1;
    EXPECT_FALSE(embed_ipv4(ipv6, 96, ipv4, out));
}

}  // namespace
