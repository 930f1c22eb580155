/* What the kernel is to do for each kind of configuration, as text. */
#include "gateway/plan.h"

#include <linux/rtnetlink.h>

#include <sstream>

#include "gateway/netlink.h"
#include "tests/config/text_cases.h"
#include "tools/state_lines.h"

namespace {

configuration_t configured(const std::string &text) {
    configuration_t config;
    state_lines_t reader;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(reader.read(line), "") << line;
        EXPECT_EQ(config.carry_out(reader.op_code(), reader.payload().data()), 0U) << line;
    }
    return config;
}

std::string change(const std::string &from, const std::string &to) {
    return changes_text("t", plan_of(configured(from)).ruleset, plan_of(configured(to)).ruleset);
}

class plan_row_test : public testing::TestWithParam<text_case_t> {};

TEST_P(plan_row_test, is_this_text) {
    const std::string &from = GetParam().parts[0];
    const std::string to = from + GetParam().parts[1];
    EXPECT_EQ(change(from, to), GetParam().parts[2]);
    EXPECT_EQ(change(to, to), "");
}

INSTANTIATE_TEST_SUITE_P(rows, plan_row_test, testing::ValuesIn(read_text_cases(TEST_DIR "/plan_rows.txt", 3)),
                         [](const testing::TestParamInfo<text_case_t> &row) { return row.param.name; });

TEST(plan_test, timeouts_of_icmp_and_fragments_are_settings_of_the_namespace) {
    using settings_t = std::map<std::string, std::string>;
    EXPECT_EQ(
        plan_of(configured("timeout set --type icmp --value 12\ntimeout set --type fragment-min --value 3\n")).settings,
        (settings_t{{"netfilter/nf_conntrack_acct", "1"},
                    {"netfilter/nf_conntrack_frag6_timeout", "3"},
                    {"netfilter/nf_conntrack_icmpv6_timeout", "12"},
                    {"netfilter/nf_conntrack_timestamp", "1"}}));
}

TEST(plan_test, networks_are_the_fewest_that_cover_the_addresses_and_no_others) {
    using networks_t = std::vector<ipv4_network_t>;
    EXPECT_EQ(networks_of({}), networks_t{});
    EXPECT_EQ(networks_of({{0xc0000201, 0xc0000206}}),
              (networks_t{{0xc0000201, 32}, {0xc0000202, 31}, {0xc0000204, 31}, {0xc0000206, 32}}));
    EXPECT_EQ(networks_of({{0xc0000280, 0xc00002ff}, {0xc0000200, 0xc000027f}, {0xc0000210, 0xc0000220}}),
              (networks_t{{0xc0000200, 24}}));
    EXPECT_EQ(networks_of({{0, UINT32_MAX}}), (networks_t{{0, 0}}));
}

TEST(netlink_test, without_a_socket_no_request_succeeds) {
    netlink_t netlink(-1); /* no protocol of netlink */
    netlink_request_t<rtmsg> request(RTM_GETROUTE, NLM_F_DUMP);
    EXPECT_NE(netlink.ask(request.message()), 0);
}

TEST(plan_test, the_second_part_of_a_dynamic_mapping_is_a_prefix_or_nothing) {
    fwx_nat64_dmapping_t mapping{};
    mapping.ext_arg = 9;
    ASSERT_TRUE(source_rule_of(mapping));
    EXPECT_EQ(source_rule_of(mapping)->pool_id, 9U);
    EXPECT_EQ(source_rule_of(mapping)->prefix_len, 0U);
    mapping.ext[0] = FWX_NAT64_DMAPPING_NO_SECOND_PART;
    EXPECT_EQ(source_rule_of(mapping)->prefix_len, 0U);
    mapping.ext[0] = 0x20;
    EXPECT_FALSE(source_rule_of(mapping)) << "no length";
    mapping.ext[16] = 3;
    EXPECT_EQ(source_rule_of(mapping)->prefix_len, 3U);
    mapping.ext[16] = 2;
    EXPECT_FALSE(source_rule_of(mapping)) << "a bit behind the prefix";
    mapping.ext[16] = 129;
    EXPECT_FALSE(source_rule_of(mapping)) << "longer than an address";
    mapping.ext[16] = 3;
    mapping.ext[23] = 1;
    EXPECT_FALSE(source_rule_of(mapping)) << "a byte behind the length";
}

}  // namespace
