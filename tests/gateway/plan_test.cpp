/* What the kernel is to do for each kind of configuration, as text. */
#include "gateway/plan.h"

#include <gtest/gtest.h>
#include <linux/rtnetlink.h>

#include "gateway/netlink.h"
#include "tools/state_lines.h"

namespace {

configuration_t configured(const std::vector<std::string> &lines) {
    configuration_t config;
    state_lines_t reader;
    for (const std::string &line : lines) {
        EXPECT_EQ(reader.read(line), "") << line;
        EXPECT_EQ(config.carry_out(reader.op_code(), reader.payload().data()), 0U) << line;
    }
    return config;
}

/** Text that leads from one configuration to another. */
std::string change(const std::vector<std::string> &from, const std::vector<std::string> &to) {
    return changes_text("t", plan_of(configured(from)).ruleset, plan_of(configured(to)).ruleset);
}

const std::string pool_1 = "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.8";
const std::string small_pool = "pool add --id 2 --param 256 --start 198.51.100.9 --end 198.51.100.9";
const std::string for_pool_2 =
    "dmapping add --id 5 --type address-and-port-dependent --ext 20010db8000100000000000000000000300000000000000"
    "0 --ext-arg 2";

struct row_t {
    const char *name;
    std::vector<std::string> from, to;
    std::string text;
};

class plan_row_test : public testing::TestWithParam<row_t> {};

TEST_P(plan_row_test, is_this_text) {
    EXPECT_EQ(change(GetParam().from, GetParam().to), GetParam().text);
    EXPECT_EQ(change(GetParam().to, GetParam().to), "");
}

const row_t rows[] = {
    {"a_prefix_is_mapped_to_the_translators",
     {},
     {"prefix add --prefix 2001:db8:64::/96 --kind stateful"},
     "flush chain ip6 t prefixes\n"
     "flush chain ip6 t to_inside\n"
     "add rule ip6 t prefixes ip6 daddr { 64:ff9b::/104, 64:ff9b::a00:0/104, 64:ff9b::6440:0/106, "
     "64:ff9b::7f00:0/104, 64:ff9b::a9fe:0/112, 64:ff9b::ac10:0/108, 64:ff9b::c000:0/120, 64:ff9b::c000:200/120, "
     "64:ff9b::c0a8:0/112, 64:ff9b::c612:0/111, 64:ff9b::c633:6400/120, 64:ff9b::cb00:7100/120, "
     "64:ff9b::e000:0/99 } drop\n"
     "add rule ip6 t prefixes dnat ip6 prefix to ip6 daddr map { 2001:db8:64::/96 : fd6e:6174:3634::/96 }\n"
     "add rule ip6 t prefixes ip6 daddr fd6e:6174:3634::/96 drop\n"
     "add rule ip6 t to_inside snat ip6 prefix to ip6 saddr map { fd6e:6174:3634::/96 : 2001:db8:64::/96 }\n"},
    {"an_interface_that_is_off_restricts_nothing", {}, {"interface set --ifh 5 --enable 0"}, ""},
    {"interfaces_that_are_on_translate_once_one_is",
     {},
     {"interface set --ifh 3 --enable 1", "interface set --ifh 5 --enable 0", "nvi enable --ifh 7"},
     "flush chain ip6 t prerouting\n"
     "add rule ip6 t prerouting iifname \"fwx_nat64\" dnat to ip6 daddr map @inbound\n"
     "add rule ip6 t prerouting iif { 3, 7 } jump prefixes\n"
     "add rule ip6 t prerouting iifname != \"fwx_nat64\" ip6 daddr fd6e:6174:3634::/96 drop\n"},
    {"a_pool_is_a_chain_with_a_counter",
     {},
     {pool_1},
     "add counter ip6 t pool_1\n"
     "add chain ip6 t pool_1\n"
     "flush chain ip6 t others\n"
     "add rule ip6 t others goto pool_1\n"
     "add rule ip6 t pool_1 counter name \"pool_1\"\n"
     "add rule ip6 t pool_1 meta l4proto { tcp, udp, icmpv6 } snat to "
     "[fd6e:6174:3634::c000:201]-[fd6e:6174:3634::c000:208]:1024-65535 persistent\n"},
    {"a_range_takes_its_share_of_the_sources",
     {pool_1},
     {pool_1, "range add --id 1 --start 192.0.2.128 --end 192.0.2.255"},
     "flush chain ip6 t pool_1\n"
     "add rule ip6 t pool_1 counter name \"pool_1\"\n"
     "add rule ip6 t pool_1 meta l4proto { tcp, udp, icmpv6 } jhash ip6 saddr mod 136 seed 0x1 0-7 snat to "
     "[fd6e:6174:3634::c000:201]-[fd6e:6174:3634::c000:208]:1024-65535 persistent\n"
     "add rule ip6 t pool_1 meta l4proto { tcp, udp, icmpv6 } snat to "
     "[fd6e:6174:3634::c000:280]-[fd6e:6174:3634::c000:2ff]:1024-65535 persistent\n"},
    {"sources_are_spread_over_pools_and_the_parameter_is_ports",
     {pool_1},
     {pool_1, small_pool},
     "add counter ip6 t pool_2\n"
     "add chain ip6 t pool_2\n"
     "flush chain ip6 t others\n"
     "add rule ip6 t others jhash ip6 saddr mod 2 seed 0x2 vmap { 0 : goto pool_1, 1 : goto pool_2 }\n"
     "add rule ip6 t pool_2 counter name \"pool_2\"\n"
     "add rule ip6 t pool_2 meta l4proto { tcp, udp, icmpv6 } snat to [fd6e:6174:3634::c633:6409]:1024-1279 "
     "persistent\n"},
    {"a_dynamic_mapping_keeps_a_pool_for_its_sources",
     {pool_1, small_pool},
     {pool_1, small_pool, for_pool_2},
     "flush chain ip6 t others\n"
     "add rule ip6 t others goto pool_1\n"
     "add element ip6 t sources { 2001:db8:1::/48 : goto pool_2 }\n"},
    {"a_dynamic_mapping_without_sources_is_for_all_others",
     {pool_1, small_pool},
     {pool_1, small_pool, "dmapping add --id 6 --type address-and-port-dependent --ext-arg 1"},
     "flush chain ip6 t others\n"
     "add rule ip6 t others goto pool_1\n"},
    {"a_pool_goes_after_what_points_at_it",
     {pool_1, small_pool, for_pool_2},
     {pool_1},
     "delete element ip6 t sources { 2001:db8:1::/48 : goto pool_2 }\n"
     "flush chain ip6 t pool_2\n"
     "delete chain ip6 t pool_2\n"
     "delete counter ip6 t pool_2\n"},
    {"a_static_mapping_is_an_element_each_way",
     {},
     {"smapping add --id 7 --addr1 2001:db8:1::80 --addr2 192.0.2.80"},
     "add element ip6 t inbound { fd6e:6174:3634::c000:250 : 2001:db8:1::80 }\n"
     "add element ip6 t outbound { 2001:db8:1::80 : fd6e:6174:3634::c000:250 }\n"},
    {"a_static_mapping_that_is_another_one_now_is_replaced",
     {"smapping add --id 7 --addr1 2001:db8:1::80 --addr2 192.0.2.80"},
     {"smapping add --id 7 --addr1 2001:db8:1::81 --addr2 192.0.2.80"},
     "delete element ip6 t inbound { fd6e:6174:3634::c000:250 : 2001:db8:1::80 }\n"
     "delete element ip6 t outbound { 2001:db8:1::80 : fd6e:6174:3634::c000:250 }\n"
     "add element ip6 t inbound { fd6e:6174:3634::c000:250 : 2001:db8:1::81 }\n"
     "add element ip6 t outbound { 2001:db8:1::81 : fd6e:6174:3634::c000:250 }\n"},
    {"a_limit_counts_in_a_chain_of_its_own",
     {},
     {"limit add --type sessions --value 1024"},
     "flush chain ip6 t session_limit\n"
     "add rule ip6 t session_limit ct count over 1024 drop\n"},
    {"a_timeout_of_0_is_as_none", {}, {"timeout set --type udp --value 0", "timeout set --type tcp-est --value 0"}, ""},
    {"a_timeout_is_a_new_object_and_old_flows_keep_theirs",
     {},
     {"timeout set --type udp --value 60", "timeout set --type udp-min --value 90"},
     "add ct timeout ip6 t udp_90 { protocol udp; l3proto ip6; policy = { unreplied : 90, replied : 90 }; }\n"
     "flush chain ip6 t lifetimes\n"
     "add rule ip6 t lifetimes meta l4proto udp ct timeout set \"udp_90\"\n"
     "add rule ip6 t lifetimes oifname \"fwx_nat64\" meta l4proto tcp ct timeout set \"tcp_240_7440\"\n"
     "add rule ip6 t lifetimes iifname \"fwx_nat64\" meta l4proto tcp ct timeout set \"tcp_6_240_7440\"\n"},
    {"tcp_has_a_timeout_each_for_opening_passing_and_established",
     {},
     {"timeout set --type tcp-trans --value 100", "timeout set --type tcp-est --value 1000",
      "timeout set --type tcp-in-syn --value 5"},
     "add ct timeout ip6 t tcp_100_1000 { protocol tcp; l3proto ip6; policy = { syn_sent : 100, established : 1000, "
     "syn_recv : 100, fin_wait : 100, close_wait : 100, last_ack : 100, time_wait : 100, close : 100 }; }\n"
     "add ct timeout ip6 t tcp_5_100_1000 { protocol tcp; l3proto ip6; policy = { syn_sent : 5, established : 1000, "
     "syn_recv : 100, fin_wait : 100, close_wait : 100, last_ack : 100, time_wait : 100, close : 100 }; }\n"
     "flush chain ip6 t lifetimes\n"
     "add rule ip6 t lifetimes meta l4proto udp ct timeout set \"udp_300\"\n"
     "add rule ip6 t lifetimes oifname \"fwx_nat64\" meta l4proto tcp ct timeout set \"tcp_100_1000\"\n"
     "add rule ip6 t lifetimes iifname \"fwx_nat64\" meta l4proto tcp ct timeout set \"tcp_5_100_1000\"\n"},
};

INSTANTIATE_TEST_SUITE_P(rows, plan_row_test, testing::ValuesIn(rows),
                         [](const testing::TestParamInfo<row_t> &row) { return std::string(row.param.name); });

TEST(plan_test, the_table_comes_with_empty_maps) {
    EXPECT_EQ(table_text("t"),
              "add table ip6 t\n"
              "add map ip6 t inbound { type ipv6_addr : ipv6_addr; }\n"
              "flush map ip6 t inbound\n"
              "add map ip6 t outbound { type ipv6_addr : ipv6_addr; }\n"
              "flush map ip6 t outbound\n"
              "add map ip6 t sources { type ipv6_addr : verdict; flags interval; }\n"
              "flush map ip6 t sources\n");
}

TEST(plan_test, timeouts_of_icmp_and_fragments_are_settings_of_the_namespace) {
    using settings_t = std::map<std::string, std::string>;
    EXPECT_EQ(plan_of(configured({"timeout set --type icmp --value 12", "timeout set --type fragment-min --value 3"}))
                  .settings,
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
