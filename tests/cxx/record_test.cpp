/*
 * Records of the C++ interface: every member of the client sends the same bytes as its C function does for the C
 * record, and parsers of addresses and prefixes accept exactly the valid texts. A recording server keeps the messages.
 */
#include <functional>

#include "cxx_fixture.h"
#include "tests/support/zero_server.h"

namespace nat64 = fwx::nat64;
using namespace std::chrono_literals;

namespace {

/** A message without its header, followed by the message number. */
using body_t = std::vector<uint8_t>;
std::vector<body_t> sent;

void keep_message(void *, fwx_host_peer_t *, const void *msg, size_t size) {
    const auto *bytes = static_cast<const uint8_t *>(msg);
    sent.emplace_back(bytes + sizeof(fwx_nat64_msg_hdr_t), bytes + size);
    sent.back().push_back(bytes[0]);
}
constexpr fwx_host_server_ops_t recording_server = {nullptr, nullptr, keep_message, zero_server_ops.asked};

using cxx_record_test = cxx_fixture_t;

constexpr fwx_nat64_addr_t ipv4 = {0, {0xfe, 2, 0, 0xc0}};
constexpr fwx_nat64_addr_t ipv6 = {1, {0x20, 1, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x12, 0x34}};
constexpr fwx_nat64_prefix_t prefix_of(uint32_t kind) {
    return {{0x20, 1, 0x0d, 0xb8, 0xff, 0, 0, 0, 0, 0, 0, 1}, {}, 96, kind};
}
constexpr fwx_nat64_prefix_t c_prefix_stateless = prefix_of(2);
constexpr fwx_nat64_prefix_t c_prefix_v6v4 = prefix_of(3);
constexpr fwx_nat64_prefix_t c_prefix_dns64 = prefix_of(4);
constexpr nat64::ipv6_prefix a_prefix = "2001:db8:ff00::1:0:0/96";

constexpr fwx_nat64_pool_t c_pool = {8, 0, 6, {0, {1, 2, 0, 0xc0}}, ipv4, 7};
constexpr nat64::pool pool = {.id = 8, .param = 6, .start = "192.0.2.1", .end = "192.0.2.254", .hsl_id = 7};
constexpr fwx_nat64_pool_range_t c_range = {8, {0, {1, 2, 0, 0xc0}}, ipv4};
constexpr nat64::pool_range range = {.id = 8, .start = "192.0.2.1", .end = "192.0.2.254"};
constexpr fwx_nat64_dmapping_t c_dmapping = {9, {}, 2, {0xe0, 0xe1}, 0x1234, {}};
constexpr nat64::dynamic_mapping dmapping = {
    .id = 9, .kind = nat64::mapping_kind::apdm, .ext = {0xe0, 0xe1}, .ext_arg = 0x1234};
constexpr fwx_nat64_logging_t c_logging = {1, 1, 6, ipv4, 514, 10};
constexpr nat64::logging logging = {
    .destination = "192.0.2.254", .port = 514, .transport = nat64::protocol::tcp, .what = nat64::logging_template::bib};
constexpr fwx_nat64_mapt_bmr_t c_bmr = {
    2, 3, {0x20, 1, 0x0d, 0xb8, 0xff, 0, 0, 0}, 40, {192, 0, 2, 0}, 24, {16, 6, 8, 5}};
constexpr nat64::basic_rule bmr = {.rule_id = 2,
                                   .domain_id = 3,
                                   .v6 = "2001:db8:ff00::/40",
                                   .v4 = "192.0.2.0/24",
                                   .ea_len = 16,
                                   .psid_offset = 6,
                                   .psid_len = 8,
                                   .psid = 5};
constexpr fwx_nat64_mapt_dmr_t c_dmr = {4, {0x20, 1, 0x0d, 0xb8, 0xff, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 96}};
constexpr nat64::default_rule dmr = {.id = 4, .value = a_prefix};
constexpr fwx_nat64_limit_t c_limit = {1, 100};
constexpr fwx_nat64_service_t c_service = {1, 21};
constexpr fwx_nat64_smapping_t c_smapping = {5, {}, ipv6, {}, ipv4, {}};
constexpr nat64::static_mapping smapping = {.id = 5, .addr1 = "2001:DB8::1234", .addr2 = "192.0.2.254"};
constexpr fwx_nat64_intf_info_t c_interface = {3, 1, 1, prefix_of(0), 0, {}, 1, prefix_of(0), 1, 1500};
constexpr fwx_nat64_intf_info_t c_interface_off = {3, 0, 0, {}, 1, prefix_of(0), 0, {}, 0, 0};
constexpr fwx_nat64_replication_t c_replication_set = {7, 1, 8};
constexpr fwx_nat64_replication_t c_replication_unset = {7, 0, 8};
constexpr fwx_nat64_global_settings_t c_settings = {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}};
constexpr fwx_nat64_timeout_t c_timeout = {6, 300};
constexpr fwx_nat64_adj_t c_adj = {2, ipv6};
constexpr fwx_nat64_session_filter_t c_clear = {
    17, ipv6, ipv4, {192, 0, 2, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x35}};
constexpr fwx_nat64_sess_walk_filter_t c_walk = {
    {17}, ipv6, {}, {}, {192, 0, 2, 9, 0, 0, 0, 0, 192, 0, 2, 254, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x35}};
constexpr nat64::session_filter filter = {.ip_protocol = nat64::protocol::udp,
                                          .inside = "2001:db8::1234",
                                          .destination = "192.0.2.254",
                                          .pool_address = "192.0.2.9",
                                          .port = 0x35};

struct row_t {
    const char *name;
    std::function<uint32_t()> in_c;
    std::function<nat64::result(nat64::client &)> in_cxx;
};
/* A row that calls a member with a record, and the C function with its arguments. */
#define SAME(member, record, function, ...)                                                                          \
    {                                                                                                                \
#member, [] { return fwx_nat64_##function(__VA_ARGS__, nullptr); },                                          \
                                                                         [](nat64::client &                          \
                                                                            c) { return c.member(record, ignored); } \
    }
/* Rows of the members that add and delete the same record, and of those that also modify it. */
#define SAME_2(kind, record, function, c_record)                    \
    SAME(kind##_add, record, function, FWX_NAT64_OP_ADD, c_record), \
        SAME(kind##_del, record, function, FWX_NAT64_OP_DEL, c_record)
#define SAME_3(kind, record, function, c_record) \
    SAME(kind##_mod, record, function, FWX_NAT64_OP_MOD, c_record), SAME_2(kind, record, function, c_record)

const row_t rows[] = {
    SAME(timeout_set, (nat64::timeout{nat64::timeout_kind::icmp, 300s}), timeout_set_a, FWX_NAT64_OP_ADD, &c_timeout),
    SAME_3(limit, nat64::limit{100}, limit_set_a, &c_limit),
    SAME_2(service, nat64::service{21}, service_set_a, &c_service),
    SAME(adj_set, (nat64::adjacency{nat64::adjacency_kind::outside, "2001:db8::1234"}), adj_set_a, FWX_NAT64_OP_ADD,
         &c_adj),
    SAME(replication_set, (nat64::replication{7, 8}), replication_set_a, FWX_NAT64_OP_ADD, &c_replication_set),
    SAME(replication_unset, (nat64::replication{7, 8}), replication_set_a, FWX_NAT64_OP_DEL, &c_replication_unset),
    SAME(settings_set, (nat64::settings{{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16}}),
         global_settings_set_a, &c_settings),
    SAME(interface_set, (nat64::interface{.ifh = 3, .stateless = a_prefix, .stateless_v6v4 = a_prefix, .mtu = 1500}),
         interface_set_a, &c_interface),
    SAME(interface_set, (nat64::interface{.ifh = 3, .enable = false, .stateful = a_prefix}), interface_set_a,
         &c_interface_off),
    SAME(nvi_enable, 5, nvi_interface_enable_a, 5),
    SAME_2(smapping, smapping, smapping_set_a, &c_smapping),
    SAME_3(dmapping, dmapping, dmapping_set_a, &c_dmapping),
    SAME_3(pool, pool, pool_set_a, &c_pool),
    SAME_2(range, range, pool_range_set_a, &c_range),
    SAME_3(logging, logging, logging_set_a, &c_logging),
    SAME_2(mapt_bmr, bmr, mapt_bmr_set_a, &c_bmr),
    SAME_2(mapt_dmr, dmr, mapt_dmr_set_a, &c_dmr),
    SAME(session_clear, filter, session_clear_a, &c_clear),
    SAME(prefix_add, (nat64::prefix{a_prefix, nat64::prefix_kind::stateless_v6v4}), glb_prefix_add_a, &c_prefix_v6v4),
    SAME(prefix_mod, (nat64::prefix{a_prefix, nat64::prefix_kind::stateless}), glb_prefix_mod_a, &c_prefix_stateless),
    SAME(prefix_del, (nat64::prefix{a_prefix, nat64::prefix_kind::dns64}), glb_prefix_del_a, &c_prefix_dns64),
    {"ipalias_upload", [] { return fwx_nat64_ipalias_upload_a(nullptr); },
     [](nat64::client &c) { return c.ipalias_upload(ignored); }},
    {"stats_interfaces", [] { return fwx_nat64_stats_intf_query_a(nullptr); },
     [](nat64::client &c) { return c.stats_interfaces(ignored, ignored); }},
    SAME(stats_pools, ignored, stats_pool_all_query_a, 0, nullptr, 1000, 0),
    SAME(stats_mappings, ignored, stats_mapping_all_query_a, 0, nullptr, 1000, 0),
    SAME(stats_limits, ignored, stats_limit_all_query_a, 0, UINT32_MAX),
    {"a walk with a filter",
     [] {
         return fwx_nat64_session_walk_a(
             1, &c_walk, 0, 0, 0, [](void *, uint32_t, void *, uint64_t, uint32_t, uint32_t) { return 0U; }, nullptr);
     },
     [](nat64::client &c) {
         const auto ask = [](void *pal_ctx, uint64_t, uint64_t) {
             const fwx_nat64_sess_walk_filter_t made = filter;
             return fwx_nat64_session_walk_a(1, &made, 0, 0, 0, nat64::client::walk_callback, pal_ctx);
         };
         return c.query(
             ask, [](const nat64::page &) { return nat64::list_step::next; }, ignored);
     }},
};

}  // namespace

TEST_F(cxx_record_test, every_member_sends_the_bytes_of_its_c_function) {
    serve(recording_server);
    for (const row_t &row : rows) {
        pump();
        fwx_mapt_plu_cleanup();
        sent.clear();
        EXPECT_EQ(row.in_c(), 0u) << row.name;
        fwx_mapt_plu_cleanup(); /* removes the pending rule, so that it can be added again */
        EXPECT_EQ(row.in_cxx(*client).error, nat64::nat64_error(0)) << row.name;
        pump();
        ASSERT_EQ(sent.size(), 2u) << row.name;
        EXPECT_EQ(sent[0], sent[1]) << row.name;
    }
}

TEST_F(cxx_record_test, text_that_is_not_an_address_or_prefix_is_refused) {
    for (const char *bad : {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "1.2.3.04", "1.2.3.4 ", "a.2.3.4", "1..3.4"}) {
        EXPECT_FALSE(nat64::ipv4_address::parse(bad)) << bad;
    }
    for (const char *bad : {"", ":", ":::", "1:2:3:4:5:6:7", "1:2:3:4:5:6:7:8:9", "1::2::3", "12345::", "::1.2.3",
                            "1:2:3:4:5:6:7:1.2.3.4", "1:2:3:4:5:6:7:8::", "1:", "g::"}) {
        EXPECT_FALSE(nat64::ipv6_address::parse(bad)) << bad;
    }
    for (const char *bad :
         {"192.0.2.0", "192.0.2.0/33", "192.0.2.0/", "192.0.2.0/08", "192.0.2/24", "192.0.2.0/24/1"}) {
        EXPECT_FALSE(nat64::ipv4_prefix::parse(bad)) << bad;
    }
    for (const char *bad : {"2001:db8::", "2001:db8::/129", "/64", "::/-1"}) {
        EXPECT_FALSE(nat64::ipv6_prefix::parse(bad)) << bad;
    }
    for (const char *text :
         {"::", "::1", "1::", "2001:db8::1:0:0:1", "1:2:3:4:5:6:7:8", "::ffff:192.0.2.1", "64:ff9b::192.0.2.33"}) {
        uint8_t expected[16];
        ASSERT_EQ(inet_pton(AF_INET6, text, expected), 1);
        const auto parsed = nat64::ipv6_address::parse(text);
        ASSERT_TRUE(parsed) << text;
        EXPECT_EQ(std::memcmp(parsed->bytes().data(), expected, sizeof expected), 0) << text;
    }
    EXPECT_EQ(nat64::ip_address("192.0.2.254").text() + ' ' + nat64::ip_address("2001:DB8::1").text(),
              "192.0.2.254 2001:db8::1");
    EXPECT_EQ(nat64::ip_address::of_answer({0, {192, 0, 2, 1}}).text(), "192.0.2.1");
    EXPECT_EQ(nat64::ip_address::of_answer({1, {0x20, 1, 0x0d, 0xb8}}).text(), "2001:db8::");
}
