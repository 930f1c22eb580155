/* The tree bitmap, compared with a table of bit strings for many shapes, and the lifetime of trees. */
#include <bitset>
#include <random>

#include "host_fixture.h"
#include "tests/support/checked_tree.h"

namespace {

const std::vector<uint32_t> rule_strides = {6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 0};

class tree_bitmap_t : public host_fixture_t {
protected:
    static tbm_t *make(uint32_t mask) { return make_tree(rule_strides, 66, mask, nullptr); }
    /** Inserts the test's only leaf, whose key has eight bits. */
    tbm_leaf_t *insert(tbm_t *tree) {
        memory_.resize(tbm_get_leaf_size(tree, nullptr) + leaf_data_bytes);
        EXPECT_EQ(memory_.size() % 16, 0u);
        auto *leaf = reinterpret_cast<tbm_leaf_t *>(memory_.data());
        uint32_t code = 1;
        tbm_leaf_init(tree, leaf, memory_.data(), 8, nullptr);
        tbm_leaf_insert(tree, leaf, &code);
        EXPECT_EQ(code, 0u);
        return leaf;
    }

    std::vector<uint8_t> memory_;
};

TEST_F(tree_bitmap_t, an_empty_tree_is_freed_when_its_complex_gets_another) {
    tbm_t *of_another_complex = make(1u << 5);
    make(1u << 4);
    const uint64_t trees = live().trees;
    tbm_t *kept = make(1u << 4);
    EXPECT_EQ(live().trees, trees);
    EXPECT_EQ(fwx_host_tbm_of_complex(4), kept);

    tbm_leaf_t *leaf = insert(kept);
    tbm_t *newer = make(1u << 4);
    EXPECT_EQ(live().trees, trees + 1);
    EXPECT_NE(newer, kept);
    EXPECT_EQ(fwx_host_tbm_of_complex(4), newer);

    const uint8_t key = 0;
    EXPECT_EQ(tbm_first_leaf(kept, &key, 0, nullptr), leaf);
    tbm_leaf_delete(kept, leaf, nullptr);
    make(1u << 4);
    EXPECT_EQ(live().trees, trees);
    EXPECT_EQ(fwx_host_tbm_of_complex(5), of_another_complex);
    EXPECT_EQ(fwx_host_tbm_of_complex(3), nullptr);
    EXPECT_EQ(fwx_host_tbm_of_complex(32), nullptr);
}

TEST_F(tree_bitmap_t, inserting_and_removing_leaves_repeatedly_does_not_grow_the_tree) {
    checked_tree_t tree(rule_strides, 66);
    ASSERT_TRUE(tree.insert("0", 0)); /* because an empty tree frees its memory */
    uint64_t grown_to = 0;
    for (int round = 0; round < 5; ++round) {
        for (uint64_t i = 0; i < 4000; ++i) { /* inserts 2000 keys, then removes the same keys */
            const bits_t key = "1" + std::bitset<16>(i % 2000 * 7919).to_string();
            ASSERT_TRUE(i < 2000 ? tree.insert(key, 0) : tree.remove(key));
            if (i == 1999 && round == 0) grown_to = tree.bytes();
            EXPECT_TRUE(i != 1999 || tree.bytes() == grown_to);
        }
    }
}

/* The stride of each level in bits, and the key length in bits. */
using shape_t = std::pair<std::vector<uint32_t>, uint32_t>;

class tree_bitmap_shape_t : public host_fixture_t, public testing::WithParamInterface<shape_t> {
protected:
    /** Derives a key from the last one, so that keys share long prefixes, are prefixes of each other and repeat. */
    bits_t next_key() {
        const uint32_t longest = GetParam().second;
        const size_t at = random_() % (longest + 1);
        const uint64_t choice = random_() % 4;
        if (choice == 0) last_.resize(at, '1');
        if (choice == 1) last_.resize(longest, '0');
        if (choice == 2 && at < last_.size()) last_[at] = last_[at] == '0' ? '1' : '0';
        if (choice == 3 && random_() % 40 == 0) last_.clear();
        return last_;
    }

    std::mt19937_64 random_{11};
    bits_t last_;
};

TEST_P(tree_bitmap_shape_t, random_operations_agree_with_a_table_of_bit_strings) {
    checked_tree_t tree(GetParam().first, GetParam().second);
    for (uint32_t i = 0; i < 20000; ++i) {
        const bits_t key = next_key();
        ASSERT_TRUE(tree.look_up(key)) << key;
        const bool is_removal = tree.has(key) && random_() % 2 == 0;
        ASSERT_TRUE(is_removal ? tree.remove(key) : tree.insert(key, static_cast<uint8_t>(i))) << key;
        if (i % 16 == 0) {
            ASSERT_TRUE(tree.is_counted());
        }
    }
    EXPECT_GT(tree.size(), 10u);
    EXPECT_TRUE(tree.clear());
}

INSTANTIATE_TEST_SUITE_P(shapes, tree_bitmap_shape_t,
                         testing::Values(shape_t{rule_strides, 66}, shape_t{{6, 6, 6, 6, 6, 6}, 34},
                                         shape_t{{1, 2, 3, 4, 5, 6, 0, 0}, 21}, shape_t{{6, 6}, 7},
                                         shape_t{std::vector<uint32_t>(20, 1), 20}, shape_t{{5, 1, 4}, 10},
                                         shape_t{std::vector<uint32_t>(40, 5), 200}));

}  // namespace
