#include <utility>

#include "tree_bitmap_fixture.h"

namespace {

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
        EXPECT_EQ(code_of(make_tree, map.strides, map.max_key_len, tree_mask), FWX_HOST_ERR_BAD_ARG);
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
        EXPECT_EQ(code_of(tbm_exact_match, bad.tree, bad.key, bad.key_len), FWX_HOST_ERR_BAD_ARG);
        EXPECT_EQ(code_of(tbm_first_leaf, bad.tree, bad.key, bad.key_len), FWX_HOST_ERR_BAD_ARG);
        EXPECT_EQ(code_of(tbm_leaf_init, bad.tree, leaf, bad.key, bad.key_len), FWX_HOST_ERR_BAD_ARG);
        EXPECT_EQ(fwx_host_tbm_longest_match(bad.tree, bad.key, bad.key_len, nullptr), nullptr);
        tbm_exact_match(bad.tree, bad.key, bad.key_len, nullptr);
    }
    const std::pair<tbm_t *, tbm_leaf_t *> leaves[] = {{nullptr, leaf}, {tree_, nullptr}, {tree_, shifted}};
    for (const auto &[tree, bad_leaf] : leaves) {
        EXPECT_EQ(code_of(tbm_leaf_init, tree, bad_leaf, key, 1U), FWX_HOST_ERR_BAD_ARG);
        EXPECT_EQ(code_of(tbm_leaf_insert, tree, bad_leaf), FWX_HOST_ERR_BAD_ARG);
        EXPECT_EQ(code_of(tbm_leaf_delete, tree, bad_leaf), FWX_HOST_ERR_BAD_ARG);
        tbm_leaf_delete(tree, bad_leaf, nullptr);
    }
    EXPECT_EQ(code_of(tbm_first_leaf, tree_, key, 1U), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(code_of(tbm_get_leaf_size, static_cast<tbm_t *>(nullptr)), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(remove(leaf), FWX_HOST_ERR_NO_KEY);
    EXPECT_EQ(counts().leaves, 0u);
}

TEST_F(tree_bitmap_t, an_armed_fault_fails_its_operation_without_effect) {
    make(rule_strides, 66);
    tbm_leaf_t *inside = add("0");
    tbm_leaf_t *outside = prepare("1");
    const uint8_t key = 0;
    fwx_host_fault_arm(FWX_HOST_OP_TBM_LEAF_INIT, 1, 77);
    EXPECT_EQ(code_of(tbm_leaf_init, tree_, outside, &key, 1U), 77u);
    fwx_host_fault_arm(FWX_HOST_OP_TBM_LEAF_INSERT, 1, 78);
    EXPECT_EQ(insert(outside), 78u);
    fwx_host_fault_arm(FWX_HOST_OP_TBM_LEAF_DELETE, 1, 79);
    EXPECT_EQ(remove(inside), 79u);
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
