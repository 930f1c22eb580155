/* Rules from pending to installed to deleted, through the exported functions and the server's replies. A random
 * sequence of operations is compared with a simple reference model. */
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
