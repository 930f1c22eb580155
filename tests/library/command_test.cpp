/* The commands. One table has the bytes of every command on the wire, the other every call that an argument check
 * refuses, with its code while bound and while unbound; a refused call sends and allocates nothing. Every message to
 * the server that wire/ describes must be in a row, or be one that the library sends by itself. */
#include <set>

#include "library_fixture.h"
#include "tests/support/framed.h"

namespace {

using command_test_t = library_fixture_t;

/* One valid record of each kind. */
constexpr fwx_nat64_addr_t ipv4(uint32_t host_word) {
    return {0,
            {static_cast<uint8_t>(host_word), static_cast<uint8_t>(host_word >> 8),
             static_cast<uint8_t>(host_word >> 16), static_cast<uint8_t>(host_word >> 24), 0xaa}};
}
constexpr fwx_nat64_addr_t ipv6 = {10, {0x20, 1, 0x0d, 0xb8, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}};

template <typename record_t>
record_t filled() {
    record_t record;
    auto *bytes = reinterpret_cast<uint8_t *>(&record);
    for (size_t i = 0; i < sizeof(record); ++i)
        bytes[i] = static_cast<uint8_t>(i + 1);
    return record;
}

fwx_nat64_prefix_t prefix(uint32_t kind) {
    return {{0x20, 1, 0x0d, 0xb8, 1, 2, 3, 4, 5, 6, 7, 8}, {0xf1, 0xf2, 0xf3}, 96, kind};
}

struct records_t {
    fwx_nat64_global_settings_t settings = filled<fwx_nat64_global_settings_t>();
    fwx_nat64_adj_t adj4 = {13, ipv4(0x0A000001)};
    fwx_nat64_adj_t adj6 = {1, ipv6};
    fwx_nat64_limit_t limit = {1, 0x01020304};
    fwx_nat64_service_t service = {1, 0x01020304};
    fwx_nat64_replication_t repl_set = {1, 7, 9};
    fwx_nat64_replication_t repl_unset = {1, 0, 9};
    fwx_nat64_timeout_t timeout = {7, 300};
    fwx_nat64_session_filter_t clear = {5, ipv6, ipv4(0x0A010203), {0xee}};
    fwx_nat64_intf_info_t intf = {3, 1, 7, prefix(5), 0, prefix(6), 2, prefix(7), 0, 1500};
    fwx_nat64_intf_info_t intf_mtu = {3, 0, 0, prefix(5), 1, prefix(6), 0, prefix(7), 9, 1500};
    fwx_nat64_prefix_t prefix1 = prefix(1);
    fwx_nat64_prefix_t prefix2 = prefix(2);
    fwx_nat64_prefix_t prefix4 = prefix(4);
    fwx_nat64_smapping_t smap = {0, {1, 2, 3, 4}, ipv4(0x0A010203), {5}, ipv4(0x0B010203), {6}};
    fwx_nat64_dmapping_t dmap = {0x11, {1}, 7, {0xe0, 0xe1}, 0x4455, {9}};
    fwx_nat64_pool_t pool = {8, 0, 6, ipv4(0xC0000201), ipv6, 0x77};
    fwx_nat64_pool_range_t range = {8, ipv4(0xC0000201), ipv6};
    fwx_nat64_logging_t log = {1, 1, 0x5a, ipv4(0xC0000209), 2055, 0x0304};
    fwx_nat64_sess_walk_filter_t walk = {{1, 2}, ipv4(0x0A010203), {3}, ipv6, {4}};
    fwx_nat64_mapt_bmr_t bmr = {2, 3, {0x20, 1, 0x0d, 0xb8, 0, 0, 0, 9}, 40, {0xc0, 0, 2, 0}, 24, {16, 6, 8, 0x1234}};
    fwx_nat64_mapt_dmr_t dmr = {4, {0xd0, 0xd1}};
};

constexpr char ipv6_on_wire[] = "0a 00 00 00 20 01 0d b8 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f";

struct row_t {
    size_t size;
    const char *name;
    std::function<uint32_t(const records_t &, void *)> call;
    std::vector<field_t> fields;
    const char *type_word = "03 c0";
};

/* A row's size, name and call. */
#define CALL(size, command) \
    size, #command, [](const records_t &r, void *c) { return static_cast<void>(r), fwx_nat64_##command; }

const std::vector<row_t> all_commands = {
    {CALL(56, global_settings_set_a(&r.settings, c)),
     {{32, "1c 00 00 00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f 10"}}},
    {CALL(64, adj_set_a(0, &r.adj4, c)), {{32, "1a 00 00 00 0d 00 00 00 00 00 00 00 0a 00 00 01 aa 00"}}},
    {CALL(64, adj_set_a(9, &r.adj6, c)), {{36, "01 00 00 00"}, {40, ipv6_on_wire}}},
    {CALL(48, limit_set_a(1, &r.limit, c)), {{32, "0f 00 00 00 01 00 00 00 04 03 02 01"}}},
    {CALL(48, limit_set_a(2, &r.limit, c)), {{32, "0f 00 00 00 01 00 00 00 04 03 02 01"}}},
    {CALL(48, limit_set_a(3, &r.limit, c)), {{32, "10 00 00 00 01 00 00 00 04 03 02 01"}}},
    {CALL(52, service_set_a(1, &r.service, c)), {{32, "14 00 00 00 01 00 00 00 01 00 00 00 04 03 02 01"}}},
    {CALL(52, service_set_a(3, &r.service, c)), {{32, "14 00 00 00 00 00 00 00 01 00 00 00 04 03 02 01"}}},
    {CALL(52, replication_set_a(3, &r.repl_set, c)), {{32, "1d 00 00 00 01 00 00 00 07 00 00 00 09 00 00 00"}}},
    {CALL(52, replication_set_a(1, &r.repl_unset, c)), {{32, "1f 00 00 00 01 00 00 00 00 00 00 00 09 00 00 00"}}},
    {CALL(48, timeout_set_a(0, &r.timeout, c)), {{32, "0e 00 00 00 07 00 00 00 2c 01 00 00"}}},
    {CALL(40, ipalias_upload_a(c)), {{32, "11 00 00 00"}}},
    {CALL(144, session_clear_a(&r.clear, c)),
     {{32, "13 00 00 00 05 00 00 00"}, {40, ipv6_on_wire}, {60, "00 00 00 00 0a 01 02 03 aa"}, {80, "ee 00"}}},
    {CALL(132, interface_set_a(&r.intf, c)),
     {{32, "01 00 00 00 03 00 00 00 01 00 00 00 00 00 00 00 07 00 00 00 00 00 00 00 02 00 00 00"},
      {60, "20 01 0d b8 01 02 03 04 05 06 07 08 f1 f2 f3 60 05 00 00 00"},
      {80, "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00"},
      {100, "20 01 0d b8 01 02 03 04 05 06 07 08 f1 f2 f3 60 07 00 00 00"},
      {120, "00 00 00 00 00 00 00 00"}}},
    {CALL(132, interface_set_a(&r.intf_mtu, c)),
     {{40, "00 00 00 00 00 00 00 00 00 00 00 00 01 00 00 00 00 00 00 00"},
      {80, "20 01 0d b8 01 02 03 04 05 06 07 08 f1 f2 f3 60 06 00 00 00"},
      {120, "09 00 00 00 dc 05 00 00"}}},
    {CALL(132, nvi_interface_enable_a(5, c)),
     {{32, "02 00 00 00 05 00 00 00 01 00 00 00 01 00 00 00 00 00 00 00"}, {120, "00 00 00 00 00 00 00 00"}}},
    {CALL(64, glb_prefix_add_a(&r.prefix1, c)),
     {{32, "03 00 00 00 01 00 00 00 20 01 0d b8 01 02 03 04 05 06 07 08 f1 f2 f3 60 01 00 00 00"}}},
    {CALL(64, glb_prefix_mod_a(&r.prefix2, c)), {{32, "1b 00 00 00 01 00 00 00"}, {56, "02 00 00 00"}}},
    {CALL(64, glb_prefix_del_a(&r.prefix4, c)), {{32, "03 00 00 00 00 00 00 00"}, {56, "04 00 00 00"}}},
    {CALL(124, smapping_set_a(1, &r.smap, c)),
     {{32, "08 00 00 00 00 00 00 00 01 02 03 04 00 00 00 00 0a 01 02 03 aa"},
      {64, "05 00"},
      {80, "00 00 00 00 0b 01 02 03 aa"},
      {100, "06 00"}}},
    {CALL(48, smapping_set_a(3, &r.smap, c)), {{32, "09 00 00 00 00 00 00 00 01 00 00 00"}}},
    {CALL(120, dmapping_set_a(1, &r.dmap, c)),
     {{32, "0b 00 00 00 11 00 00 00 01 00"},
      {48, "07 00 00 00 e0 e1 00"},
      {76, "55 44 00 00 09 00"},
      {88, "e0 e1 00"},
      {112, "55 44 00 00"}}},
    {CALL(120, dmapping_set_a(2, &r.dmap, c)),
     {{32, "0d 00 00 00 11 00 00 00"}, {52, "e0 e1"}, {88, "04 00 00"}, {112, "00 00 00 00"}}},
    {CALL(48, dmapping_set_a(3, &r.dmap, c)), {{32, "0c 00 00 00 11 00 00 00 01 00 00 00"}}},
    {CALL(64, pool_set_a(1, &r.pool, c)),
     {{32, "04 00 00 00 08 00 00 00 06 00 00 00 77 00 00 00 08 00 00 00 c0 00 02 01 b8 0d 01 20"}}},
    {CALL(64, pool_set_a(2, &r.pool, c)), {{32, "04 00 00 00 08 00 00 00"}}},
    {CALL(48, pool_set_a(3, &r.pool, c)), {{32, "05 00 00 00 08 00 00 00 01 00 00 00"}}},
    {CALL(84, pool_range_set_a(1, &r.range, c)),
     {{32, "06 00 00 00 08 00 00 00 00 00 00 00 c0 00 02 01"}, {60, ipv6_on_wire}}},
    {CALL(88, pool_range_set_a(3, &r.range, c)),
     {{32, "07 00 00 00 08 00 00 00 00 00 00 00 c0 00 02 01"}, {60, ipv6_on_wire}, {80, "01 00 00 00"}}},
    {CALL(60, logging_set_a(1, &r.log, c)),
     {{32, "17 00 00 00 c0 00 02 09 00 00 00 00 07 08 04 03 01 00 00 00 5a 00 00 00"}}},
    {CALL(60, logging_set_a(2, &r.log, c)), {{32, "18 00 00 00 c0 00 02 09"}}},
    {CALL(60, logging_set_a(3, &r.log, c)), {{32, "19 00 00 00 c0 00 02 09"}}},
    {CALL(40, stats_sys_query_a(9, c)), {{32, "09 00 00 00"}}, "04 c0"},
    {CALL(32, stats_intf_query_a(c)), {}, "05 c0"},
    {CALL(64, stats_pool_all_query_a(9, reinterpret_cast<void *>(uintptr_t{0x1122334455667788}), 5, 6, c)),
     {{32, "09 00 00 00 01 00 00 00 00 00 00 00 05 00 00 00 06 00 00 00"}, {56, "88 77 66 55 44 33 22 11"}},
     "06 c0"},
    {CALL(64, stats_mapping_all_query_a(9, nullptr, 5, 6, c)),
     {{32, "09 00 00 00 01 00 00 00 00 00 00 00 05 00 00 00 06 00 00 00"}, {56, "00 00 00 00 00 00 00 00"}},
     "07 c0"},
    {CALL(56, stats_limit_all_query_a(9, 5, c)), {{32, "09 00 00 00 01 00 00 00"}, {48, "05 00 00 00"}}, "08 c0"},
    {CALL(144, session_walk_a(5, &r.walk, 0x1122334455667788, 6, 7, library_fixture_t::walk_cb, c)),
     {{32, "88 77 66 55 44 33 22 11 06 00 00 00 07 00 00 00 05 00 00 00"},
      {56, "01 02 00"},
      {72, "00 00 00 00 0a 01 02 03 aa"},
      {92, "03 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 04 00"}},
     "09 c0"},
    {CALL(80, mapt_bmr_set_a(1, &r.bmr, c)),
     {{32, "00 00 00 00 01 00 00 00 02 00 00 00 03 00 00 00 09 00 00 00 b8 0d 01 20 28"},
      {60, "00 02 00 c0 18"},
      {66, "10 00 06 00 08 00 34 12"}},
     "0d c0"},
    {CALL(80, mapt_bmr_set_a(3, &r.bmr, c)), {{32, "00 00 00 00 03 00 00 00 02 00 00 00 03 00 00 00"}}, "0d c0"},
    {CALL(68, mapt_dmr_set_a(0, &r.dmr, c)), {{32, "01 00 00 00 00 00 00 00 04 00 00 00 d0 d1 00"}}, "0d c0"},
};

#undef CALL

constexpr uint32_t invalid = 0x40300216;
constexpr uint32_t not_ready = 0x4030020d;

/* A call that an argument check refuses, and the codes while the library is bound and unbound. */
struct refusal_t {
    const char *name;
    std::function<uint32_t(records_t &)> call;
    uint32_t bound = invalid;
    uint32_t unbound = invalid;
};

/* A row's name and call: CALL as it stands, WITH after changing a record. */
#define CALL(call) #call, [](records_t & r) { return static_cast<void>(r), fwx_nat64_##call; }
#define WITH(change, call) #change ", " #call, [](records_t & r) { return change, fwx_nat64_##call; }

const std::vector<refusal_t> refusals = {
    {CALL(global_settings_set_a(nullptr, nullptr))},
    {CALL(adj_set_a(1, nullptr, nullptr))},
    {WITH(r.adj4.type = 0, adj_set_a(1, &r.adj4, nullptr))},
    {WITH(r.adj4.type = 14, adj_set_a(1, &r.adj4, nullptr))},
    {CALL(limit_set_a(1, nullptr, nullptr))},
    {WITH(r.limit.type = 2, limit_set_a(1, &r.limit, nullptr))},
    {CALL(limit_set_a(0, &r.limit, nullptr))},
    {CALL(limit_set_a(4, &r.limit, nullptr))},
    {CALL(service_set_a(1, nullptr, nullptr))},
    {WITH(r.service.type = 0, service_set_a(1, &r.service, nullptr))},
    {CALL(service_set_a(2, &r.service, nullptr))},
    {CALL(replication_set_a(1, nullptr, nullptr))},
    {CALL(timeout_set_a(1, nullptr, nullptr))},
    {WITH(r.timeout.type = 0, timeout_set_a(1, &r.timeout, nullptr))},
    {WITH(r.timeout.type = 8, timeout_set_a(1, &r.timeout, nullptr))},
    {CALL(session_clear_a(nullptr, nullptr))},
    {CALL(interface_set_a(nullptr, nullptr)), not_ready, not_ready},
    {CALL(glb_prefix_add_a(nullptr, nullptr)), invalid, not_ready},
    {WITH(r.prefix1.kind = 0, glb_prefix_mod_a(&r.prefix1, nullptr)), invalid, not_ready},
    {WITH(r.prefix1.kind = 5, glb_prefix_del_a(&r.prefix1, nullptr)), invalid, not_ready},
    {CALL(smapping_set_a(1, nullptr, nullptr))},
    {CALL(smapping_set_a(2, &r.smap, nullptr))},
    {CALL(dmapping_set_a(1, nullptr, nullptr))},
    {WITH(r.dmap.id = 0, dmapping_set_a(3, &r.dmap, nullptr))},
    {WITH(r.dmap.type = 8, dmapping_set_a(3, &r.dmap, nullptr))},
    {CALL(dmapping_set_a(4, &r.dmap, nullptr))},
    {CALL(pool_set_a(1, nullptr, nullptr))},
    {WITH(r.pool.id = 0, pool_set_a(3, &r.pool, nullptr))},
    {WITH(r.pool.family = 1, pool_set_a(2, &r.pool, nullptr))},
    {WITH(r.pool.param = 0, pool_set_a(1, &r.pool, nullptr))},
    {CALL(pool_set_a(0, &r.pool, nullptr))},
    {CALL(pool_range_set_a(1, nullptr, nullptr))},
    {WITH(r.range.id = 0, pool_range_set_a(1, &r.range, nullptr))},
    {CALL(pool_range_set_a(2, &r.range, nullptr))},
    {CALL(logging_set_a(1, nullptr, nullptr))},
    {WITH(r.log.type = 2, logging_set_a(1, &r.log, nullptr))},
    {WITH(r.log.mode = 0, logging_set_a(1, &r.log, nullptr))},
    {WITH(r.log.dest = ipv6, logging_set_a(3, &r.log, nullptr))},
    {WITH(r.log.dest = ipv4(0), logging_set_a(1, &r.log, nullptr))},
    {WITH(r.log.dest_port = 0, logging_set_a(1, &r.log, nullptr))},
    {CALL(logging_set_a(4, &r.log, nullptr))},
    {CALL(stats_pool_all_query_a(0, nullptr, 0, 0, nullptr)), invalid, not_ready},
    {CALL(stats_mapping_all_query_a(0, nullptr, 0, 0, nullptr)), invalid, not_ready},
    {CALL(stats_limit_all_query_a(0, 0, nullptr)), invalid, not_ready},
    {CALL(session_walk_a(0, &r.walk, 0, 0, 0, library_fixture_t::walk_cb, nullptr)), invalid, not_ready},
    {CALL(session_walk_a(1, nullptr, 0, 0, 0, library_fixture_t::walk_cb, nullptr)), invalid, not_ready},
    {CALL(session_walk_a(1, &r.walk, 0, 0, 0, nullptr, nullptr)), invalid, not_ready},
    {CALL(mapt_bmr_set_a(1, nullptr, nullptr))},
    {WITH(r.bmr.rule_id = 0, mapt_bmr_set_a(1, &r.bmr, nullptr))},
    {CALL(mapt_bmr_set_a(2, &r.bmr, nullptr)), 22, not_ready},
    {WITH(r.bmr.v4_prefix_len = 33, mapt_bmr_set_a(1, &r.bmr, nullptr)), invalid, not_ready},
    {WITH(r.bmr.v6_prefix_len = 65, mapt_bmr_set_a(1, &r.bmr, nullptr)), invalid, not_ready},
    {CALL(mapt_dmr_set_a(1, nullptr, nullptr))},
    {WITH(r.dmr.id = 0, mapt_dmr_set_a(1, &r.dmr, nullptr))},
};
#undef CALL

/* Messages that no command of the PAL sends; bind_test and reply_test check their bytes. */
const std::set<std::string> sent_by_the_library = {
    "unsol_setup",      "init", "sync_init", "cmd_q_resume", "ctrl_end_batch", "ctrl_classifier_update", "end_batch",
    "classifier_update"};

}  // namespace

TEST_F(command_test_t, every_command_sends_its_bytes_and_leaves_the_callers_record_alone) {
    const records_t records{};
    const records_t pristine = records;
    for (const row_t &row : all_commands) {
        EXPECT_EQ(row.call(records, this), FWX_NAT64_ERR_NOT_READY) << row.name;
    }
    bind_quietly();
    std::set<std::string> sent = sent_by_the_library;
    for (const row_t &row : all_commands) {
        SCOPED_TRACE(row.name);
        received.clear();
        EXPECT_EQ(row.call(records, this), 0u);
        pump();
        ASSERT_EQ(received.size(), 1u);
        EXPECT_EQ(hex(slice(received[0], 0, 4)), std::string(row.type_word) + " 60 00");
        expect_message(received[0], row.size, row.fields);
        const wire_message_t *message = wire_find(wire_direction_t::to_server, received[0].data(), row.size);
        ASSERT_NE(message, nullptr);
        sent.insert(message->name);

        EXPECT_EQ(memcmp(reinterpret_cast<const uint8_t *>(&records), reinterpret_cast<const uint8_t *>(&pristine),
                         sizeof(records)),
                  0);
        EXPECT_EQ(outstanding(), 1u);
        fwx_nat64_clnt_cleanup();
        ASSERT_EQ(calls.size(), 1u) << "each command stores the callback of its family";
        EXPECT_EQ(std::exchange(calls, {})[0].find(','), std::string::npos) << "with the context given";
    }
    for (const wire_message_t &message : described_messages()) {
        const bool goes_up = message.direction == wire_direction_t::to_server;
        EXPECT_TRUE(!goes_up || sent.count(message.name) == 1) << message.name << " has no row of bytes";
    }
}

TEST_F(command_test_t, interface_and_pool_requests_are_logged_as_the_caller_gave_them) {
    bind_quietly();
    fwx_nat64_dbg_info_set(1);
    const records_t records;
    fwx_nat64_interface_set_a(&records.intf, this);
    ASSERT_EQ(logged.size(), 1u);
    EXPECT_EQ(logged[0],
              "info: \nfwx_nat64_interface_set_a to modify interface prefix for ifh=3 mtu_valid (FALSE) mtu (1500) "
              "sless_prefix_valid (TRUE) sful_prefix_valid (FALSE) sless_prefix_v6v4_valid (TRUE) "
              "sless_prefix(0x20010db80102030405060708/96) sful_prefix(0x20010db80102030405060708/96) "
              "sless_prefix_v6v4(0x20010db80102030405060708/96)");
    logged.clear();
    fwx_host_fault_arm(FWX_HOST_OP_ASYNC_SEND, 1, 5);
    fwx_nat64_pool_t pool = records.pool;
    pool.end_addr = ipv4(0xC00002FE);
    EXPECT_EQ(fwx_nat64_pool_set_a(1, &pool, this), 5u);
    ASSERT_EQ(logged.size(), 2u) << "the send's failure first, then the line of the pool";
    EXPECT_EQ(logged[1],
              "info: \nfwx_nat64_pool_add_a pool add id(8) hsl_id(119) start_addr(0xc0000201) end_addr(0xc00002fe)");
}

TEST_F(command_test_t, rejected_arguments_send_nothing_bound_and_unbound) {
    for (const bool is_bound : {false, true}) {
        if (is_bound) bind_quietly();
        for (const refusal_t &refusal : refusals) {
            records_t records;
            EXPECT_EQ(refusal.call(records), is_bound ? refusal.bound : refusal.unbound) << refusal.name;
            EXPECT_EQ(live().pool_elements + live().tx_buffers, 0u) << refusal.name;
        }
    }
    pump();
    EXPECT_TRUE(received.empty());
}

TEST(wire_messages_test, are_found_and_well_framed_with_their_own_type_word_domain_and_length_only) {
    for (const wire_message_t &message : described_messages()) {
        SCOPED_TRACE(message.name);
        const bool may_be_longer = message.open_ended || message.entry_name != nullptr;
        bytes_t bytes = framed(message);
        const auto name_found = [&](size_t size) {
            const wire_message_t *found = wire_find(message.direction, bytes.data(), size);
            return found == nullptr ? "none" : found->name;
        };
        bytes.push_back(0);
        EXPECT_STREQ(name_found(message.size), message.name);
        EXPECT_STREQ(name_found(1), "none");
        EXPECT_TRUE(wire_frame_ok(message, bytes.data(), message.size));
        EXPECT_FALSE(wire_frame_ok(message, bytes.data(), message.size - 1));
        EXPECT_EQ(wire_frame_ok(message, bytes.data(), bytes.size()), may_be_longer);
        bytes[2] = 97;
        EXPECT_FALSE(wire_frame_ok(message, bytes.data(), message.size));
        bytes[1] ^= 0x10; /* this bit of the type word is always 0 */
        EXPECT_STREQ(name_found(message.size), "none");
    }
}
