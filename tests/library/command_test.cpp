/* The bytes of every command on the wire: one row per call, with its length and the fields that matter. Every message
 * to the server that wire/ describes must be in a row, or be one that the library sends by itself. */
#include <functional>
#include <set>

#include "command_records.h"
#include "library_fixture.h"
#include "wire/messages.h"

namespace {

class command_test_t : public library_fixture_t {};

constexpr char ipv6_on_wire[] = "0a 00 00 00 20 01 0d b8 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f";

struct field_t {
    size_t offset;
    const char *bytes;
};

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

/* Messages that no command of the PAL sends; bind_test, connection_test and notification_test check their bytes. */
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
        EXPECT_EQ(received[0].size(), row.size);
        const wire_message_t *message = wire_find(wire_direction_t::to_server, received[0].data(), row.size);
        ASSERT_NE(message, nullptr);
        sent.insert(message->name);
        for (const field_t &field : row.fields) {
            const size_t width = (strlen(field.bytes) + 1) / 3;
            EXPECT_EQ(hex(slice(received[0], field.offset, width)), field.bytes) << "at " << field.offset;
        }
        EXPECT_EQ(memcmp(reinterpret_cast<const uint8_t *>(&records), reinterpret_cast<const uint8_t *>(&pristine),
                         sizeof(records)),
                  0);
        EXPECT_EQ(outstanding(), 1u);
        fwx_nat64_clnt_cleanup();
        EXPECT_EQ(calls.size(), 1u) << "each command stores the callback of its family";
        EXPECT_EQ(calls.back().pal_ctx, this);
        calls.clear();
    }
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    for (const wire_message_t *message = messages; message != messages + count; ++message) {
        const bool goes_up = message->direction == wire_direction_t::to_server;
        EXPECT_TRUE(!goes_up || sent.count(message->name) == 1) << message->name << " has no row of bytes";
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
