#include <sys/resource.h>

#include <bitset>
#include <cstdlib>
#include <map>
#include <random>
#include <utility>

#include "tree_bitmap_fixture.h"

namespace {

struct shape_t {
    std::vector<uint32_t> strides;
    uint32_t max_key_len;
};

class tree_bitmap_shape_t : public tree_bitmap_t, public testing::WithParamInterface<shape_t> {
protected:
    /* Mostly a relative of the last key, so that keys share long prefixes, end at one another and meet again. */
    bits_t next_key() {
        bits_t key = last_;
        const size_t at = random_() % (GetParam().max_key_len + 1);
        switch (random_() % 4) {
            case 0:
                key.resize(at, '1');
                break;
            case 1:
                key.resize(GetParam().max_key_len, '0');
                break;
            case 2:
                key = at < key.size() ? key.replace(at, 1, 1, key[at] == '0' ? '1' : '0') : key;
                break;
            default:
                key.resize(random_() % 40 == 0 ? 0 : key.size());
                break;
        }
        return last_ = key;
    }

    std::mt19937_64 random_{11};
    bits_t last_;
};

TEST_P(tree_bitmap_shape_t, random_operations_agree_with_a_table_of_bit_strings) {
    make(GetParam().strides, GetParam().max_key_len);
    std::map<bits_t, std::pair<tbm_leaf_t *, uint8_t>> model;
    const auto model_leaf = [&](const bits_t &key) {
        const auto found = model.find(key);
        return found == model.end() ? nullptr : found->second.first;
    };
    for (uint32_t i = 0; i < 20000; ++i) {
        const bits_t key = next_key();
        tbm_leaf_t *known = model_leaf(key);
        ASSERT_EQ(exact(key), known) << key;

        bits_t prefix = key;
        while (!prefix.empty() && model_leaf(prefix) == nullptr) {
            prefix.pop_back();
        }
        uint32_t match_len = 1000;
        ASSERT_EQ(longest(key, &match_len), model_leaf(prefix)) << key;
        ASSERT_EQ(match_len, model_leaf(prefix) == nullptr ? 1000 : prefix.size()) << key;

        contents.fill = static_cast<uint8_t>(i);
        if (known == nullptr) {
            model[key] = {add(key), contents.fill};
        } else if (random_() % 2 == 0) {
            tbm_leaf_t *same_key = prepare(key);
            ASSERT_EQ(insert(same_key), FWX_HOST_ERR_KEY_TAKEN);
            ASSERT_EQ(remove(same_key), FWX_HOST_ERR_NO_KEY);
        } else {
            ASSERT_EQ(remove(known), 0u);
            ASSERT_EQ(remove(known), FWX_HOST_ERR_NO_KEY);
            model.erase(key);
        }
        ASSERT_EQ(counts().leaves, model.size());
        ASSERT_EQ(first() == nullptr, model.empty());
    }
    EXPECT_GT(model.size(), 10u);
    for (const auto &[key, leaf] : model) {
        ASSERT_EQ(exact(key), leaf.first);
        const uint8_t *data = fwx_host_tbm_leaf_data(tree_, leaf.first);
        ASSERT_EQ(std::vector<uint8_t>(data, data + 16), std::vector<uint8_t>(16, leaf.second)) << key;
    }
}

INSTANTIATE_TEST_SUITE_P(shapes, tree_bitmap_shape_t,
                         testing::Values(shape_t{rule_strides, 66}, shape_t{{6, 6, 6, 6, 6, 6}, 34},
                                         shape_t{{1, 2, 3, 4, 5, 6, 0, 0}, 21}, shape_t{{6, 6}, 7},
                                         shape_t{std::vector<uint32_t>(20, 1), 20}, shape_t{{5, 1, 4}, 10},
                                         shape_t{std::vector<uint32_t>(40, 5), 200}));

TEST_F(tree_bitmap_t, leaves_that_come_and_go_do_not_grow_the_tree) {
    make(rule_strides, 66);
    add("0");
    std::vector<tbm_leaf_t *> leaves;
    for (uint64_t i = 0; i < 2000; ++i) {
        leaves.push_back(prepare("1" + std::bitset<16>(i * 7919).to_string()));
    }
    uint64_t grown_to = 0;
    for (int round = 0; round < 20; ++round) {
        for (tbm_leaf_t *leaf : leaves) {
            ASSERT_EQ(insert(leaf), 0u);
        }
        if (round == 0) grown_to = counts().bytes;
        EXPECT_EQ(counts().bytes, grown_to);
        for (tbm_leaf_t *leaf : leaves) {
            ASSERT_EQ(remove(leaf), 0u);
        }
        EXPECT_EQ(counts().nodes, 0u);
    }
}

#ifndef ADDRESS_SANITIZER /* a sanitizer's own memory would end as well */
/* Inserts until memory ends; 0 when that was refused without a trace and the tree works on. */
class tree_bitmap_memory_t : public tree_bitmap_t {
protected:
    int exhaust() {
        std::mt19937_64 random(3);
        std::vector<tbm_leaf_t *> leaves;
        for (uint32_t i = 0; i < 40000; ++i) {
            const bits_t shared = std::bitset<60>(random()).to_string(); /* so that a leaf needs a chain of nodes */
            for (const char *end : {"0", "1"}) {
                leaves.push_back(prepare(shared + end));
            }
        }
        const rlimit no_more = {0, 0};
        setrlimit(RLIMIT_AS, &no_more);
        uint32_t result = 0;
        fwx_host_tbm_counts_t before = counts();
        while (before.leaves < leaves.size() && (result = insert(leaves[before.leaves])) == 0) {
            before = counts();
        }
        if (result != 12 || counts().leaves != before.leaves || counts().nodes != before.nodes) return 1;
        if (remove(leaves[before.leaves]) != FWX_HOST_ERR_NO_KEY) return 2;
        for (size_t at = 0; at < before.leaves; ++at) {
            if (remove(leaves[at]) != 0) return 3;
        }
        return first() == nullptr && counts().nodes == 0 && counts().bytes == empty_.bytes ? 0 : 4;
    }
};

TEST_F(tree_bitmap_memory_t, exhausted_memory_refuses_a_leaf_and_leaves_the_tree_as_it_was) {
    GTEST_FLAG_SET(death_test_style, "threadsafe"); /* a process of its own, without what earlier tests gave back */
    make(rule_strides, 66);
    EXPECT_EXIT(std::_Exit(exhaust()), testing::ExitedWithCode(0), "");
}
#endif

}  // namespace
