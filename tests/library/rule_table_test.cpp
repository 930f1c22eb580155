/* The life of rules: pending, installed, deleted, by the exports and by the server's replies. */
#include <map>
#include <random>
#include <set>

#include "rule_table_fixture.h"

namespace {

using rule_key_t = std::pair<uint32_t, uint32_t>; /* Rule ID, Domain ID */

}  // namespace

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

TEST_F(rule_table_test_t, null_arguments_are_refused_and_told) {
    EXPECT_EQ(fwx_mapt_plu_add_pending_rule(nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(logged.back(), "error: \nfwx_mapt_plu_add_pending_rule: BMR is NULL");
    EXPECT_EQ(fwx_mapt_tbm_plu_leaf_contents_func_t_v2(nullptr, nullptr, nullptr, nullptr), 1u);
    EXPECT_EQ(logged.back(), "error: \nfwx_mapt_tbm_plu_leaf_contents_func_t_v2: buffer((nil)) app_handle((nil))");
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2);
    ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&bmr), 0u);
    EXPECT_EQ(fwx_mapt_plu_add_rule(nullptr), FWX_NAT64_ERR_INVALID);
    EXPECT_EQ(fwx_mapt_plu_del_rule(nullptr), FWX_NAT64_ERR_INVALID);
}

TEST_F(rule_table_test_t, the_log_tells_the_life_of_a_rule_line_by_line) {
    static constexpr char adding_v4[] =
        "_add_rule_v4_subtable Prefixes being added BMR V4 prefix(0xc0000200)/24 Effective "
        "prefix:(0xb00000800000000000000000/26)";
    static constexpr char adding_v6[] =
        "_add_rule_v6_subtable Prefixes being added BMR V6 prefix(0x20010db812345678/40) Effective "
        "prefix:(0x4800436e0480000000000000/42) Temp prefix:(0x20010db81200000000000000)";
    static constexpr const char *lines[] = {
        "_init Initialzing PLU for MAPT",
        "_init_stride_map Initialzing Stride MAP ",
        "fwx_mapt_add_pending_rule_hash_elem Added hash elem Rule ID 1,Domain ID 2",
        "fwx_mapt_add_rule_hash_elem Added elem Rule ID 1,Domain ID 2",
        adding_v4,
        "_add_rule_v4_subtable:new TBM leaf(0x",
        " fwx_mapt_tbm_plu_leaf_contents_func_t_v2 : fwx_mapt_app_leaf mapt_bmr 5   app_leaf(",
        adding_v6,
        "_add_rule_v6_subtable:new TBM leaf(0x",
        " fwx_mapt_tbm_plu_leaf_contents_func_t_v2 : fwx_mapt_app_leaf mapt_bmr 5   app_leaf(",
        "_add_rule Adding to PLU successful",
        "_del_rule_v4_subtable Deleting from PLU v4 table successful",
        "_del_rule_v6_subtable Deleting from PLU v6 table successful",
        "_del_rule Deleting rule successful",
        "_cleanup Cleaning up MAPT PLU",
        "_cleanup Cleaning up MAPT PLU",
    };
    fwx_nat64_dbg_info_set(1);
    logged.clear();
    ASSERT_EQ(fwx_mapt_plu_init(), 0u);
    const fwx_nat64_mapt_bmr_t bmr = rule(1, 2, 2, 24, 0xb8, 40);
    ASSERT_EQ(install(bmr, 5), 0u);
    ASSERT_EQ(fwx_mapt_plu_del_rule(&bmr), 0u);
    fwx_mapt_plu_cleanup();
    fwx_mapt_plu_cleanup();
    ASSERT_EQ(logged.size(), std::size(lines)) << testing::PrintToString(logged);
    for (size_t i = 0; i < logged.size(); ++i) {
        EXPECT_EQ(logged[i].find(std::string("info: \n") + (lines[i][0] == '_' ? "fwx_mapt_plu" : "") + lines[i]), 0u)
            << logged[i];
    }
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
        if (any(200) == 0) {
            fwx_mapt_plu_cleanup();
            reference = {};
            table_exists = false;
        } else if (step % 3 == 0) {
            ASSERT_EQ(fwx_mapt_plu_add_pending_rule(&r), reference.add(r));
            table_exists = true;
        } else if (step % 3 == 1) {
            ASSERT_EQ(fwx_mapt_plu_add_rule(answer(key.first, key.second, any(1000)).data()),
                      reference.reply(key, table_exists));
        } else {
            ASSERT_EQ(fwx_mapt_plu_del_rule(&r), reference.del(key));
        }
        ASSERT_EQ(live().pool_elements, reference.pending.size() + reference.installed.size());
        ASSERT_EQ(leaves(), reference.v4.size() + reference.v6.size());
        const uint64_t complex_record = fwx_host_memory_blocks_tag(96) - leaves();
        ASSERT_LE(complex_record, 1u);
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
    const bytes_t fields = answer(1, 2, 5, 1, 1);          /* only a delete has the table cleaned up */
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
