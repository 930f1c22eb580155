#include <array>
#include <functional>
#include <map>
#include <utility>

#include "tree_bitmap_fixture.h"

namespace {

TEST_F(tree_bitmap_t, rule_keys_are_matched_by_their_addresses) {
    make(rule_strides, 66);
    const auto add_key = [&](std::vector<uint8_t> key, uint32_t key_len) {
        tbm_leaf_t *leaf = prepare({});
        uint32_t result = 1;
        tbm_leaf_init(tree_, leaf, key.data(), key_len, &result);
        EXPECT_EQ(result, 0u);
        EXPECT_EQ(insert(leaf), 0u);
        return leaf;
    };
    tbm_leaf_t *v4_any = add_key({0x80}, 2);
    tbm_leaf_t *v4_net = add_key({0xb0, 0x00, 0x00, 0x80}, 26);                               /* 192.0.2.0/24 */
    tbm_leaf_t *v6_net = add_key({0x48, 0x00, 0x43, 0x6e, 0x00}, 34);                         /* 2001:db8::/32 */
    tbm_leaf_t *v6_sub = add_key({0x48, 0x00, 0x43, 0x6e, 0x04, 0x8d, 0x15, 0x9e, 0x00}, 66); /* ...:1234:5678::/64 */
    const struct {
        std::array<uint8_t, 9> key;
        uint32_t key_len;
        tbm_leaf_t *leaf;
        uint32_t match_len;
    } cases[] = {
        {{0xb0, 0x00, 0x00, 0xbf, 0xc0}, 34, v4_net, 26},                         /* 192.0.2.255 */
        {{0xb0, 0x00, 0x00, 0xc0, 0x00}, 34, v4_any, 2},                          /* 192.0.3.0 */
        {{0x48, 0x00, 0x43, 0x6e, 0x04, 0x8d, 0x15, 0x9e, 0x3f}, 66, v6_sub, 66}, /* 2001:db8:1234:5678:: */
        {{0x48, 0x00, 0x43, 0x6e, 0x04, 0x8d, 0x15, 0x9e, 0x40}, 66, v6_net, 34}, /* 2001:db8:1234:5679:: */
        {{0x48, 0x00, 0x43, 0x6e, 0x40}, 66, nullptr, 0},                         /* 2001:db9:: */
    };
    for (const auto &match : cases) {
        uint32_t match_len = 0;
        EXPECT_EQ(fwx_host_tbm_longest_match(tree_, match.key.data(), match.key_len, &match_len), match.leaf);
        EXPECT_EQ(match_len, match.match_len);
    }
}

TEST_F(tree_bitmap_t, contents_are_fetched_once_into_the_area_behind_the_leaf) {
    make(rule_strides, 66);
    contents.fill = 0x5a;
    tbm_leaf_t *leaf = add("10110");
    uint8_t *area = reinterpret_cast<uint8_t *>(leaf) + tbm_get_leaf_size(tree_, nullptr);
    EXPECT_EQ(contents.calls, 1u);
    EXPECT_EQ(contents.unused, nullptr);
    EXPECT_EQ(contents.buffer, area);
    EXPECT_EQ(contents.app_leaf, area);
    EXPECT_EQ(fwx_host_tbm_leaf_data(tree_, leaf), area);

    EXPECT_EQ(insert(leaf), FWX_HOST_ERR_KEY_TAKEN);
    EXPECT_EQ(contents.calls, 1u);
}

TEST_F(tree_bitmap_t, a_refusal_by_the_contents_callback_leaves_the_tree_as_it_was) {
    make(rule_strides, 66);
    const bits_t shared(40, '1');
    add(shared + "0");
    const fwx_host_tbm_counts_t before = counts();
    tbm_leaf_t *refused = prepare(shared + "1");
    contents.result = 33;
    EXPECT_EQ(insert(refused), 33u);
    EXPECT_EQ(contents.calls, 2u);
    EXPECT_EQ(exact(shared + "1"), nullptr);
    EXPECT_EQ(counts().leaves, before.leaves);
    EXPECT_EQ(counts().nodes, before.nodes);
    EXPECT_EQ(counts().bytes, before.bytes);
    contents.result = 0;
    EXPECT_EQ(insert(refused), 0u);
}

TEST_F(tree_bitmap_t, stride_maps_of_no_use_and_a_missing_callback_are_refused) {
    const struct {
        std::vector<uint32_t> strides;
        uint32_t max_key_len;
    } maps[] = {{{6, 7}, 8}, {{6, 0, 6}, 8}, {rule_strides, 67}, {{0, 0}, 1}, {{}, 1}};
    for (const auto &map : maps) {
        uint32_t result = 0;
        EXPECT_EQ(make_tree(map.strides, map.max_key_len, tree_mask, &result), nullptr);
        EXPECT_EQ(result, FWX_HOST_ERR_BAD_ARG);
        EXPECT_EQ(make_tree(map.strides, map.max_key_len, tree_mask, nullptr), nullptr);
    }
    uint32_t result = 0;
    tbm_init_v4(7, 6, 12, tree_mask, rule_strides.data(), 1, 0, nullptr, nullptr, nullptr, 66, nullptr, &result);
    EXPECT_EQ(result, FWX_HOST_ERR_BAD_ARG);
}

TEST_F(tree_bitmap_t, malformed_trees_keys_and_leaves_are_refused) {
    make(rule_strides, 66);
    tbm_leaf_t *leaf = prepare("1");
    tbm_leaf_t *shifted = reinterpret_cast<tbm_leaf_t *>(reinterpret_cast<uintptr_t>(leaf) + 1);
    const uint8_t key[9] = {};
    const struct {
        tbm_t *tree;
        const uint8_t *key;
        uint32_t key_len;
    } keys[] = {{nullptr, key, 0}, {tree_, nullptr, 0}, {tree_, key, 67}};
    for (const auto &bad : keys) {
        uint32_t results[3] = {};
        EXPECT_EQ(tbm_exact_match(bad.tree, bad.key, bad.key_len, &results[0]), nullptr);
        EXPECT_EQ(tbm_first_leaf(bad.tree, bad.key, bad.key_len, &results[1]), nullptr);
        EXPECT_EQ(fwx_host_tbm_longest_match(bad.tree, bad.key, bad.key_len, nullptr), nullptr);
        tbm_leaf_init(bad.tree, leaf, bad.key, bad.key_len, &results[2]);
        for (const uint32_t result : results) {
            EXPECT_EQ(result, FWX_HOST_ERR_BAD_ARG);
        }
        tbm_exact_match(bad.tree, bad.key, bad.key_len, nullptr);
    }
    const std::pair<tbm_t *, tbm_leaf_t *> leaves[] = {{nullptr, leaf}, {tree_, nullptr}, {tree_, shifted}};
    for (const auto &[tree, bad_leaf] : leaves) {
        uint32_t results[3] = {};
        tbm_leaf_init(tree, bad_leaf, key, 1, &results[0]);
        tbm_leaf_insert(tree, bad_leaf, &results[1]);
        tbm_leaf_delete(tree, bad_leaf, &results[2]);
        for (const uint32_t result : results) {
            EXPECT_EQ(result, FWX_HOST_ERR_BAD_ARG);
        }
        tbm_leaf_delete(tree, bad_leaf, nullptr);
    }
    uint32_t result = 0;
    EXPECT_EQ(tbm_first_leaf(tree_, key, 1, &result), nullptr);
    EXPECT_EQ(result, FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(tbm_get_leaf_size(nullptr, &result), 0u);
    EXPECT_EQ(result, FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(remove(leaf), FWX_HOST_ERR_NO_KEY);
    EXPECT_EQ(counts().leaves, 0u);
}

TEST_F(tree_bitmap_t, an_armed_fault_fails_its_operation_without_effect) {
    make(rule_strides, 66);
    tbm_leaf_t *inside = add("0");
    tbm_leaf_t *outside = prepare("1");
    const uint8_t key = 0;
    const std::map<fwx_host_op_t, std::function<void(uint32_t *)>> calls = {
        {FWX_HOST_OP_TBM_INIT, [](uint32_t *r) { EXPECT_EQ(make_tree(rule_strides, 66, 1u << 5, r), nullptr); }},
        {FWX_HOST_OP_TBM_LEAF_SIZE, [&](uint32_t *r) { EXPECT_EQ(tbm_get_leaf_size(tree_, r), 0u); }},
        {FWX_HOST_OP_TBM_EXACT_MATCH, [&](uint32_t *r) { EXPECT_EQ(tbm_exact_match(tree_, &key, 1, r), nullptr); }},
        {FWX_HOST_OP_TBM_LEAF_INIT, [&](uint32_t *r) { tbm_leaf_init(tree_, outside, &key, 1, r); }},
        {FWX_HOST_OP_TBM_LEAF_INSERT, [&](uint32_t *r) { tbm_leaf_insert(tree_, outside, r); }},
        {FWX_HOST_OP_TBM_LEAF_DELETE, [&](uint32_t *r) { tbm_leaf_delete(tree_, inside, r); }},
        {FWX_HOST_OP_TBM_FIRST_LEAF, [&](uint32_t *r) { EXPECT_EQ(tbm_first_leaf(tree_, &key, 0, r), nullptr); }},
    };
    for (const auto &[op, call] : calls) {
        uint32_t result = 0;
        fwx_host_fault_arm(op, 1, 77);
        call(&result);
        EXPECT_EQ(result, 77u) << fwx_host_op_name(op);
    }
    EXPECT_EQ(exact("0"), inside);
    EXPECT_EQ(exact("1"), nullptr);
    EXPECT_EQ(insert(outside), 0u);
}

TEST_F(tree_bitmap_t, an_empty_tree_goes_when_its_complex_gets_another) {
    tbm_t *of_another_complex = make_tree(rule_strides, 66, 1u << 5, nullptr);
    make(rule_strides, 66);
    const uint64_t trees = live().trees;
    make(rule_strides, 66);
    EXPECT_EQ(live().trees, trees);
    EXPECT_EQ(fwx_host_tbm_of_complex(4), tree_);

    tbm_t *kept = tree_;
    tbm_leaf_t *leaf = add("1");
    make(rule_strides, 66);
    EXPECT_EQ(live().trees, trees + 1);
    EXPECT_NE(tree_, kept);
    EXPECT_EQ(fwx_host_tbm_of_complex(4), tree_);

    tree_ = kept;
    EXPECT_EQ(exact("1"), leaf);
    remove_all();
    make(rule_strides, 66);
    EXPECT_EQ(live().trees, trees);
    EXPECT_EQ(fwx_host_tbm_of_complex(5), of_another_complex);
    EXPECT_EQ(fwx_host_tbm_of_complex(3), nullptr);
    EXPECT_EQ(fwx_host_tbm_of_complex(32), nullptr);
}

}  // namespace
