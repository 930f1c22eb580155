/* What the checks of the commands' arguments refuse. */
#include <functional>

#include "command_records.h"
#include "library_fixture.h"

namespace {

class argument_test_t : public library_fixture_t {};

/* Calls that an argument check refuses; `unbound` is the code while the library is not bound. */
struct refusal_t {
    const char *name;
    std::function<uint32_t(records_t &)> call;
    uint32_t bound;
    uint32_t unbound;
};

constexpr uint32_t invalid = 0x40300216;
constexpr uint32_t not_ready = 0x4030020d;

const std::vector<refusal_t> refusals = {
    {"settings null", [](auto &) { return fwx_nat64_global_settings_set_a(nullptr, nullptr); }, invalid, invalid},
    {"adj null", [](auto &) { return fwx_nat64_adj_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"adj type 0", [](auto &r) { return r.adj4.type = 0, fwx_nat64_adj_set_a(1, &r.adj4, nullptr); }, invalid, invalid},
    {"adj type 14", [](auto &r) { return r.adj4.type = 14, fwx_nat64_adj_set_a(1, &r.adj4, nullptr); }, invalid,
     invalid},
    {"limit null", [](auto &) { return fwx_nat64_limit_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"limit type", [](auto &r) { return r.limit.type = 2, fwx_nat64_limit_set_a(1, &r.limit, nullptr); }, invalid,
     invalid},
    {"limit op 0", [](auto &r) { return fwx_nat64_limit_set_a(0, &r.limit, nullptr); }, invalid, invalid},
    {"limit op 4", [](auto &r) { return fwx_nat64_limit_set_a(4, &r.limit, nullptr); }, invalid, invalid},
    {"service null", [](auto &) { return fwx_nat64_service_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"service type", [](auto &r) { return r.service.type = 0, fwx_nat64_service_set_a(1, &r.service, nullptr); },
     invalid, invalid},
    {"service modify", [](auto &r) { return fwx_nat64_service_set_a(2, &r.service, nullptr); }, invalid, invalid},
    {"replication null", [](auto &) { return fwx_nat64_replication_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"timeout null", [](auto &) { return fwx_nat64_timeout_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"timeout type 0", [](auto &r) { return r.timeout.type = 0, fwx_nat64_timeout_set_a(1, &r.timeout, nullptr); },
     invalid, invalid},
    {"timeout type 8", [](auto &r) { return r.timeout.type = 8, fwx_nat64_timeout_set_a(1, &r.timeout, nullptr); },
     invalid, invalid},
    {"clear null", [](auto &) { return fwx_nat64_session_clear_a(nullptr, nullptr); }, invalid, invalid},
    {"interface null", [](auto &) { return fwx_nat64_interface_set_a(nullptr, nullptr); }, not_ready, not_ready},
    {"prefix null", [](auto &) { return fwx_nat64_glb_prefix_add_a(nullptr, nullptr); }, invalid, not_ready},
    {"prefix kind 0", [](auto &r) { return r.prefix1.kind = 0, fwx_nat64_glb_prefix_mod_a(&r.prefix1, nullptr); },
     invalid, not_ready},
    {"prefix kind 5", [](auto &r) { return r.prefix1.kind = 5, fwx_nat64_glb_prefix_del_a(&r.prefix1, nullptr); },
     invalid, not_ready},
    {"smapping null", [](auto &) { return fwx_nat64_smapping_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"smapping modify", [](auto &r) { return fwx_nat64_smapping_set_a(2, &r.smap, nullptr); }, invalid, invalid},
    {"dmapping null", [](auto &) { return fwx_nat64_dmapping_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"dmapping id", [](auto &r) { return r.dmap.id = 0, fwx_nat64_dmapping_set_a(3, &r.dmap, nullptr); }, invalid,
     invalid},
    {"dmapping type", [](auto &r) { return r.dmap.type = 8, fwx_nat64_dmapping_set_a(3, &r.dmap, nullptr); }, invalid,
     invalid},
    {"dmapping op", [](auto &r) { return fwx_nat64_dmapping_set_a(4, &r.dmap, nullptr); }, invalid, invalid},
    {"pool null", [](auto &) { return fwx_nat64_pool_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"pool id", [](auto &r) { return r.pool.id = 0, fwx_nat64_pool_set_a(3, &r.pool, nullptr); }, invalid, invalid},
    {"pool family", [](auto &r) { return r.pool.family = 1, fwx_nat64_pool_set_a(2, &r.pool, nullptr); }, invalid,
     invalid},
    {"pool param", [](auto &r) { return r.pool.param = 0, fwx_nat64_pool_set_a(1, &r.pool, nullptr); }, invalid,
     invalid},
    {"pool op", [](auto &r) { return fwx_nat64_pool_set_a(0, &r.pool, nullptr); }, invalid, invalid},
    {"range null", [](auto &) { return fwx_nat64_pool_range_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"range id", [](auto &r) { return r.range.id = 0, fwx_nat64_pool_range_set_a(1, &r.range, nullptr); }, invalid,
     invalid},
    {"range modify", [](auto &r) { return fwx_nat64_pool_range_set_a(2, &r.range, nullptr); }, invalid, invalid},
    {"log null", [](auto &) { return fwx_nat64_logging_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"log type", [](auto &r) { return r.log.type = 2, fwx_nat64_logging_set_a(1, &r.log, nullptr); }, invalid, invalid},
    {"log mode", [](auto &r) { return r.log.mode = 0, fwx_nat64_logging_set_a(1, &r.log, nullptr); }, invalid, invalid},
    {"log IPv6", [](auto &r) { return r.log.dest = ipv6, fwx_nat64_logging_set_a(3, &r.log, nullptr); }, invalid,
     invalid},
    {"log 0.0.0.0", [](auto &r) { return r.log.dest = ipv4(0), fwx_nat64_logging_set_a(1, &r.log, nullptr); }, invalid,
     invalid},
    {"log port", [](auto &r) { return r.log.dest_port = 0, fwx_nat64_logging_set_a(1, &r.log, nullptr); }, invalid,
     invalid},
    {"log op", [](auto &r) { return fwx_nat64_logging_set_a(4, &r.log, nullptr); }, invalid, invalid},
    {"pool query count", [](auto &) { return fwx_nat64_stats_pool_all_query_a(0, nullptr, 0, 0, nullptr); }, invalid,
     not_ready},
    {"mapping query count", [](auto &) { return fwx_nat64_stats_mapping_all_query_a(0, nullptr, 0, 0, nullptr); },
     invalid, not_ready},
    {"limit query count", [](auto &) { return fwx_nat64_stats_limit_all_query_a(0, 0, nullptr); }, invalid, not_ready},
    {"walk count",
     [](auto &r) { return fwx_nat64_session_walk_a(0, &r.walk, 0, 0, 0, library_fixture_t::walk_cb, nullptr); },
     invalid, not_ready},
    {"walk filter",
     [](auto &) { return fwx_nat64_session_walk_a(1, nullptr, 0, 0, 0, library_fixture_t::walk_cb, nullptr); }, invalid,
     not_ready},
    {"walk callback", [](auto &r) { return fwx_nat64_session_walk_a(1, &r.walk, 0, 0, 0, nullptr, nullptr); }, invalid,
     not_ready},
    {"bmr null", [](auto &) { return fwx_nat64_mapt_bmr_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"bmr id", [](auto &r) { return r.bmr.rule_id = 0, fwx_nat64_mapt_bmr_set_a(1, &r.bmr, nullptr); }, invalid,
     invalid},
    {"bmr op", [](auto &r) { return fwx_nat64_mapt_bmr_set_a(2, &r.bmr, nullptr); }, 22, not_ready},
    {"bmr long IPv4", [](auto &r) { return r.bmr.v4_prefix_len = 33, fwx_nat64_mapt_bmr_set_a(1, &r.bmr, nullptr); },
     invalid, not_ready},
    {"bmr long IPv6", [](auto &r) { return r.bmr.v6_prefix_len = 65, fwx_nat64_mapt_bmr_set_a(1, &r.bmr, nullptr); },
     invalid, not_ready},
    {"dmr null", [](auto &) { return fwx_nat64_mapt_dmr_set_a(1, nullptr, nullptr); }, invalid, invalid},
    {"dmr id", [](auto &r) { return r.dmr.id = 0, fwx_nat64_mapt_dmr_set_a(1, &r.dmr, nullptr); }, invalid, invalid},
};

}  // namespace

TEST_F(argument_test_t, rejected_arguments_send_nothing_bound_and_unbound) {
    for (const refusal_t &refusal : refusals) {
        records_t records;
        EXPECT_EQ(refusal.call(records), refusal.unbound) << refusal.name;
    }
    bind_quietly();
    for (const refusal_t &refusal : refusals) {
        records_t records;
        EXPECT_EQ(refusal.call(records), refusal.bound) << refusal.name;
        EXPECT_EQ(live().pool_elements + live().tx_buffers, 0u) << refusal.name;
    }
    pump();
    EXPECT_TRUE(received.empty());
}
