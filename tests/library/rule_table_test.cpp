/* The life of rules: pending, installed, deleted, by the exports and by the server's replies. */
#include <map>
#include <random>
#include <set>

#include "rule_table_fixture.h"

namespace {

using rule_key_t = std::pair<uint32_t, uint32_t>; /* Rule ID, Domain ID */

}  // namespace

TEST_F(rule_table_test_t, an_installed_rule_has_both_leaves_with_its_index_big_endian) {
    EXPECT_EQ(install(rule(1, 2), 5), 0u);
    EXPECT_EQ(leaf(v4_key, 26), index_data(5));
    EXPECT_EQ(leaf(v6_key, 34), index_data(5));
    EXPECT_EQ(leaves(), 2u);
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
    EXPECT_EQ(leaves(), 0u);
    EXPECT_EQ(live().pool_elements, 0u);
}

TEST_F(rule_table_test_t, keys_carry_the_tag_in_front_of_the_prefix) {
    struct {
        fwx_nat64_mapt_bmr_t bmr;
        bytes_t v4, v6;
        uint32_t v4_bits, v6_bits;
    } const cases[] = {
        {{1, 0, {}, 0, {}, 0, {}}, {0x80}, {0x40}, 2, 2},
        {{2, 0, {0x20, 0x01, 0x0d, 0xb8, 0x12, 0x34, 0x56, 0x78}, 64, {192, 168, 1, 252}, 30, {}},
         {0xb0, 0x2a, 0x00, 0x7f},
         {0x48, 0x00, 0x43, 0x6e, 0x04, 0x8d, 0x15, 0x9e, 0x00},
         32,
         66},
        {{3, 0, {0x20, 0x01, 0x0d, 0xb8}, 47, {192, 0, 2, 33}, 32, {}},
         {0xb0, 0x00, 0x00, 0x88, 0x40},
         {0x48, 0x00, 0x43, 0x6e, 0x00, 0x00, 0x00},
         34,
         49},
    };
    uint8_t index = 0;
    for (const auto &entry : cases) {
        ASSERT_EQ(install(entry.bmr, ++index), 0u);
        EXPECT_EQ(leaf(entry.v4, entry.v4_bits), index_data(index));
        EXPECT_EQ(leaf(entry.v6, entry.v6_bits), index_data(index));
    }
}

TEST_F(rule_table_test_t, a_pending_rule_waits_for_the_reply_of_its_own_key) {
    const fwx_nat64_mapt_bmr_t a = rule(1, 2);
    const fwx_nat64_mapt_bmr_t b = rule(2, 1, 3);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 5).data()), FWX_NAT64_ERR_INVALID) << "nothing was ever pending";
    EXPECT_EQ(fwx_mapt_plu_add_rule(nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(&a), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(&b), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(&a), FWX_NAT64_ERR_EXISTS);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(3, 3, 5).data()), 0u);
    EXPECT_EQ(live().pool_elements, 2u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(2, 1, 6).data()), 0u);
    EXPECT_EQ(leaves(), 2u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(2, 1, 7).data()), 0u) << "a duplicate reply finds nothing pending";
    EXPECT_EQ(leaves(), 2u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&a), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 5).data()), 0u) << "deleted while its command was under way";
    EXPECT_EQ(live().pool_elements, 1u);
}

TEST_F(rule_table_test_t, an_installed_rule_made_pending_again_is_refused_by_its_reply_and_keeps_its_leaves) {
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    ASSERT_EQ(install(bmr, 5), 0u);
    EXPECT_EQ(install(bmr, 6), FWX_NAT64_ERR_EXISTS);
    EXPECT_EQ(leaf(v4_key, 26), index_data(5));
    EXPECT_EQ(live().pool_elements, 1u);
    EXPECT_EQ(logged.back(), std::string("error: \nfwx_mapt_plu_add_rule: Add rule hash elem failed, ") +
                                 xerr_strerror(FWX_NAT64_ERR_EXISTS));
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr), 0u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u) << "the pending one goes first";
    EXPECT_EQ(leaves(), 2u);
    EXPECT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
    EXPECT_EQ(leaves(), 0u);
}

TEST_F(rule_table_test_t, rules_that_share_a_prefix_share_its_leaf_and_the_second_cannot_be_deleted) {
    const fwx_nat64_mapt_bmr_t first = rule(1, 0, 2, 24, 0xb8);
    const fwx_nat64_mapt_bmr_t second = rule(2, 0, 2, 24, 0xb9);
    fwx_nat64_dbg_info_set(1);
    ASSERT_EQ(install(first, 5), 0u);
    logged.clear();
    ASSERT_EQ(install(second, 6), 0u);
    size_t found_lines = 0;
    for (const std::string &line : logged) {
        found_lines +=
            line.find("fwx_mapt_plu_add_rule_v4_subtable: TBM exact match found tbm leaf 0x") != std::string::npos;
    }
    EXPECT_EQ(found_lines, 1u);
    EXPECT_EQ(leaves(), 3u);
    EXPECT_EQ(leaf(v4_key, 26), index_data(5)) << "the leaf carries the rule that made it";
    EXPECT_EQ(fwx_mapt_plu_del_rule(&first), 0u);
    fwx_nat64_dbg_info_set(0);
    logged.clear();
    EXPECT_EQ(fwx_mapt_plu_del_rule(&second), 22u);
    EXPECT_EQ(logged,
              (std::vector<std::string>{
                  "error: \nfwx_mapt_plu_del_rule_v4_subtable:TBM leaf not found, rc(Invalid argument)",
                  "error: \nfwx_mapt_plu_del_rule_from_subtables: Failed to delete rule to V4 subtable rc(Invalid "
                  "argument)",
                  "error: \nfwx_mapt_plu_del_rule_from_fwxs: Failed to delete rule from subtables for fwx (0), "
                  "rc(Invalid argument)",
                  "error: \nfwx_mapt_plu_del_rule:plu rule delete failed, rc(Invalid argument)"}));
    EXPECT_EQ(leaves(), 1u);
    EXPECT_EQ(live().pool_elements, 1u);
}

TEST_F(rule_table_test_t, the_log_tells_the_life_of_a_rule_line_by_line) {
    fwx_nat64_dbg_info_set(1);
    logged.clear();
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    EXPECT_EQ(logged, (std::vector<std::string>{"info: \nfwx_mapt_plu_init Initialzing PLU for MAPT",
                                                "info: \nfwx_mapt_plu_init_stride_map Initialzing Stride MAP "}));
    logged.clear();
    const fwx_nat64_mapt_bmr_t bmr = {1,  2, {0x20, 0x01, 0x0d, 0xb8, 0x12, 0x34, 0x56, 0x78}, 40, {192, 0, 2, 0},
                                      24, {}};
    ASSERT_EQ(install(bmr, 5), 0u);
    ASSERT_EQ(logged.size(), 9u) << testing::PrintToString(logged);
    EXPECT_EQ(logged[0], "info: \nfwx_mapt_add_pending_rule_hash_elem Added hash elem Rule ID 1,Domain ID 2");
    EXPECT_EQ(logged[1], "info: \nfwx_mapt_add_rule_hash_elem Added elem Rule ID 1,Domain ID 2");
    EXPECT_EQ(logged[2],
              "info: \nfwx_mapt_plu_add_rule_v4_subtable Prefixes being added BMR V4 prefix(0xc0000200)/24 Effective "
              "prefix:(0xb00000800000000000000000/26)");
    EXPECT_EQ(logged[3].find("info: \nfwx_mapt_plu_add_rule_v4_subtable:new TBM leaf(0x"), 0u);
    EXPECT_EQ(logged[4].find("info: \n fwx_mapt_tbm_plu_leaf_contents_func_t_v2 : fwx_mapt_app_leaf mapt_bmr 5   "
                             "app_leaf("),
              0u);
    EXPECT_EQ(logged[5],
              "info: \nfwx_mapt_plu_add_rule_v6_subtable Prefixes being added BMR V6 prefix(0x20010db812345678/40) "
              "Effective prefix:(0x4800436e0480000000000000/42) Temp prefix:(0x20010db81200000000000000)");
    EXPECT_EQ(logged[8], "info: \nfwx_mapt_plu_add_rule Adding to PLU successful");
    logged.clear();
    ASSERT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
    EXPECT_EQ(logged, (std::vector<std::string>{
                          "info: \nfwx_mapt_plu_del_rule_v4_subtable Deleting from PLU v4 table successful",
                          "info: \nfwx_mapt_plu_del_rule_v6_subtable Deleting from PLU v6 table successful",
                          "info: \nfwx_mapt_plu_del_rule Deleting rule successful"}));
    logged.clear();
    fwx_mapt_plu_cleanup();
    fwx_mapt_plu_cleanup();
    EXPECT_EQ(logged, (std::vector<std::string>(2, "info: \nfwx_mapt_plu_cleanup Cleaning up MAPT PLU")));
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr), 0u);
    ASSERT_EQ(fwx_mapt_plu_add_rule(answer(1, 2, 3).data()), 0u) << "the table works again in a fresh tree";
    EXPECT_EQ(leaves(), 2u);
}

TEST_F(rule_table_test_t, random_lives_of_rules_agree_with_a_reference) {
    struct reference_t {
        std::map<rule_key_t, fwx_nat64_mapt_bmr_t> pending, installed;
        std::set<std::pair<int, int>> v4, v6; /* byte, length */
        static std::pair<int, int> v4_of(const fwx_nat64_mapt_bmr_t &r) { return {r.v4_prefix[2], r.v4_prefix_len}; }
        static std::pair<int, int> v6_of(const fwx_nat64_mapt_bmr_t &r) { return {r.v6_prefix[3], r.v6_prefix_len}; }

        uint32_t add(const fwx_nat64_mapt_bmr_t &r) {
            return pending.emplace(rule_key_t{r.rule_id, r.domain_id}, r).second ? 0 : FWX_NAT64_ERR_EXISTS;
        }
        uint32_t reply(rule_key_t key, bool table_exists) {
            if (!table_exists) return FWX_NAT64_ERR_INVALID;
            const auto it = pending.find(key);
            if (it == pending.end()) return 0;
            const fwx_nat64_mapt_bmr_t r = it->second;
            pending.erase(it);
            if (!installed.emplace(key, r).second) return FWX_NAT64_ERR_EXISTS;
            v4.insert(v4_of(r));
            v6.insert(v6_of(r));
            return 0;
        }
        uint32_t del(rule_key_t key) {
            if (pending.erase(key) != 0) return 0;
            const auto it = installed.find(key);
            if (it == installed.end()) return 0;
            if (v4.erase(v4_of(it->second)) == 0 || v6.erase(v6_of(it->second)) == 0) return 22;
            installed.erase(it);
            return 0;
        }
    } reference;
    std::mt19937 random(20241124);
    const auto any = [&random](uint32_t below) { return static_cast<uint32_t>(random() % below); };
    bool table_exists = false;
    fwx_nat64_dbg_error_set(0);
    for (int step = 0; step < 20000; ++step) {
        const fwx_nat64_mapt_bmr_t r =
            rule(1 + any(12), any(3), static_cast<uint8_t>(any(6)), static_cast<uint8_t>(24 + any(2)),
                 static_cast<uint8_t>(any(6)), static_cast<uint8_t>(32 + any(2)));
        const rule_key_t key{r.rule_id, r.domain_id};
        switch (any(200)) {
            case 0:
                fwx_mapt_plu_cleanup();
                reference = {};
                table_exists = false;
                break;
            default:
                switch (step % 3) {
                    case 0:
                        ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&r), reference.add(r));
                        table_exists = true;
                        break;
                    case 1:
                        ASSERT_EQ(fwx_mapt_plu_add_rule(answer(key.first, key.second, any(1000)).data()),
                                  reference.reply(key, table_exists));
                        break;
                    default:
                        ASSERT_EQ(fwx_mapt_plu_del_rule(&r), reference.del(key));
                }
        }
        ASSERT_EQ(live().pool_elements, reference.pending.size() + reference.installed.size());
        ASSERT_EQ(leaves(), reference.v4.size() + reference.v6.size());
        const uint64_t complex_record = fwx_host_memory_blocks_tag(96) - leaves();
        ASSERT_LE(complex_record, 1u);
    }
}

TEST_F(rule_table_test_t, a_thousand_cycles_of_a_hundred_rules_leave_the_process_no_larger) {
    fwx_host_live_t after_first{};
    for (int cycle = 0; cycle < 1000; ++cycle) {
        for (uint32_t i = 0; i < 100; ++i) {
            const auto byte = static_cast<uint8_t>(i);
            ASSERT_EQ(install(rule(i + 1, 1, byte, 24, byte, 32), i), 0u);
        }
        fwx_mapt_plu_cleanup();
        const fwx_host_live_t now = live();
        if (cycle == 0) after_first = now;
        ASSERT_EQ(memcmp(&now, &after_first, sizeof(now)), 0) << cycle;
    }
}

TEST_F(rule_table_test_t, the_server_drives_the_table_through_its_replies) {
    bind_quietly();
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    ASSERT_EQ(fwx_nat64_mapt_bmr_set_a(1, &bmr, this), 0u);
    EXPECT_EQ(fwx_nat64_mapt_bmr_set_a(1, &bmr, this), FWX_NAT64_ERR_EXISTS) << "pending already: nothing is sent";
    pump();
    ASSERT_EQ(received.size(), 1u);
    bytes_t reply = reply_to(received[0], 13, 64, 0x6003); /* the server's own result does not count */
    const bytes_t fields = answer(1, 2, 5);
    std::copy(fields.begin() + 40, fields.end(), reply.begin() + 40);
    deliver(reply);
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].result, 0u);
    EXPECT_EQ(leaves(), 2u);

    bytes_t wrong_type = reply; /* another rule type never reaches the table */
    ASSERT_EQ(fwx_nat64_mapt_bmr_set_a(1, &bmr, this), 0u);
    pump();
    put(wrong_type, 16, get<uint64_t>(received[1], 16));
    put(wrong_type, 48, 1u);
    deliver(wrong_type);
    EXPECT_EQ(calls.back().result, 0u);
    EXPECT_EQ(live().pool_elements, 2u);

    ASSERT_EQ(fwx_nat64_mapt_bmr_set_a(3, &bmr, this), 0u); /* drops the pending one */
    ASSERT_EQ(fwx_nat64_mapt_bmr_set_a(3, &bmr, this), 0u);
    EXPECT_EQ(leaves(), 0u);
    const fwx_nat64_mapt_bmr_t other = rule(7, 7);
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&other), 0u);
    pump();
    reply = reply_to(received.back(), 13, 64);
    put(reply, 52, 3u);
    put(reply, 56, 1u);
    deliver(reply);
    EXPECT_EQ(calls.back().result, 0u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(answer(7, 7, 1).data()), FWX_NAT64_ERR_INVALID) << "the whole table is gone";
    fwx_nat64_clnt_cleanup();
}

TEST_F(rule_table_test_t, the_leaf_contents_callback_wants_a_buffer) {
    EXPECT_EQ(fwx_mapt_tbm_plu_leaf_contents_func_t_v2(nullptr, nullptr, nullptr, nullptr), 1u);
    EXPECT_EQ(logged.back(), "error: \nfwx_mapt_tbm_plu_leaf_contents_func_t_v2: buffer((nil)) app_handle((nil))");
}
