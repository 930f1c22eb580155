/* Argument checks of the commands: one row per call that a check refuses, with its code while bound and while unbound.
 * A refused call sends and allocates nothing. */
#include <functional>

#include "command_records.h"
#include "library_fixture.h"

namespace {

class argument_test_t : public library_fixture_t {};

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

}  // namespace

TEST_F(argument_test_t, rejected_arguments_send_nothing_bound_and_unbound) {
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
