/* A fixture with one tree, which every test leaves empty; keys are written as strings of '0' and '1'. */
#ifndef TESTS_HOST_TREE_BITMAP_FIXTURE_H
#define TESTS_HOST_TREE_BITMAP_FIXTURE_H

#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

#include "host_fixture.h"
#include "platform/tbm.h"

using bits_t = std::string;

inline constexpr uint32_t tree_mask = 1u << 4;
inline const std::vector<uint32_t> rule_strides = {6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 0};

/* What the contents callback gives, and what it was called with. */
struct contents_t {
    uint32_t result;
    uint8_t fill;
    uint32_t calls;
    void *unused, *buffer, *app_leaf;
};
inline contents_t contents;

inline uint32_t give_contents(void *unused, void *buffer, void *app_leaf, void * /*app_handle*/) {
    contents = {contents.result, contents.fill, contents.calls + 1, unused, buffer, app_leaf};
    if (contents.result == 0) std::memset(buffer, contents.fill, 16);
    return contents.result;
}

inline tbm_t *make_tree(const std::vector<uint32_t> &strides, uint32_t max_key_len, uint32_t mask, uint32_t *result) {
    return tbm_init_v4(7, 6, static_cast<uint16_t>(strides.size()), mask, strides.data(), 1, 0, nullptr, give_contents,
                       nullptr, max_key_len, nullptr, result);
}

/** The code of a tree operation, which goes behind its arguments; what it returns is null when it fails. */
template <typename operation_t, typename... args_t>
uint32_t code_of(operation_t operation, args_t... args) {
    uint32_t result = 1;
    if constexpr (std::is_void_v<decltype(operation(args..., &result))>) {
        operation(args..., &result);
    } else {
        const bool is_null = !operation(args..., &result);
        EXPECT_TRUE(is_null || result == 0);
    }
    return result;
}

/* As many bytes as the key has, so that a read behind them is seen; the bits behind its length are garbage. */
inline std::vector<uint8_t> bytes_of(const bits_t &key) {
    std::vector<uint8_t> bytes((key.size() + 7) / 8 + (key.empty() ? 1 : 0), 0xa5);
    for (size_t at = 0; at < key.size(); ++at) {
        const auto bit = static_cast<uint8_t>(0x80 >> at % 8);
        bytes[at / 8] = static_cast<uint8_t>(key[at] == '1' ? bytes[at / 8] | bit : bytes[at / 8] & ~bit);
    }
    return bytes;
}

class tree_bitmap_t : public host_fixture_t {
protected:
    void SetUp() override {
        host_fixture_t::SetUp();
        contents = {};
    }

    void TearDown() override {
        fwx_host_fault_reset();
        if (tree_ != nullptr) remove_all();
        host_fixture_t::TearDown();
    }

    void make(const std::vector<uint32_t> &strides, uint32_t max_key_len) {
        uint32_t result = 1;
        tree_ = make_tree(strides, max_key_len, tree_mask, &result);
        ASSERT_EQ(result, 0u);
        ASSERT_NE(tree_, nullptr);
        empty_ = counts();
        EXPECT_EQ(empty_.leaves + empty_.nodes, 0u);
    }

    void remove_all() {
        while (tbm_leaf_t *leaf = first()) {
            ASSERT_EQ(remove(leaf), 0u);
        }
        EXPECT_EQ(counts().leaves, 0u);
        EXPECT_EQ(counts().nodes, 0u);
        EXPECT_EQ(counts().bytes, empty_.bytes);
    }

    tbm_leaf_t *prepare(const bits_t &key) {
        const uint32_t leaf_size = tbm_get_leaf_size(tree_, nullptr);
        EXPECT_EQ(leaf_size % 16, 0u);
        blocks_.emplace_back(leaf_size + 16);
        auto *leaf = reinterpret_cast<tbm_leaf_t *>(blocks_.back().data());
        const std::vector<uint8_t> bytes = bytes_of(key);
        EXPECT_EQ(code_of(tbm_leaf_init, tree_, leaf, bytes.data(), static_cast<uint32_t>(key.size())), 0u);
        return leaf;
    }
    uint32_t insert(tbm_leaf_t *leaf) { return code_of(tbm_leaf_insert, tree_, leaf); }
    tbm_leaf_t *add(const bits_t &key) {
        tbm_leaf_t *leaf = prepare(key);
        EXPECT_EQ(insert(leaf), 0u);
        return leaf;
    }
    uint32_t remove(tbm_leaf_t *leaf) { return code_of(tbm_leaf_delete, tree_, leaf); }
    tbm_leaf_t *exact(const bits_t &key) {
        uint32_t result = 1;
        tbm_leaf_t *leaf = tbm_exact_match(tree_, bytes_of(key).data(), static_cast<uint32_t>(key.size()), &result);
        EXPECT_EQ(result, 0u);
        return leaf;
    }
    tbm_leaf_t *longest(const bits_t &key, uint32_t *match_len) {
        return fwx_host_tbm_longest_match(tree_, bytes_of(key).data(), static_cast<uint32_t>(key.size()), match_len);
    }
    tbm_leaf_t *first() {
        const uint8_t key = 0xff;
        uint32_t result = 1;
        tbm_leaf_t *leaf = tbm_first_leaf(tree_, &key, 0, &result);
        EXPECT_EQ(result, 0u);
        return leaf;
    }
    fwx_host_tbm_counts_t counts() const {
        fwx_host_tbm_counts_t now;
        fwx_host_tbm_counts_get(tree_, &now);
        return now;
    }

    tbm_t *tree_ = nullptr;
    fwx_host_tbm_counts_t empty_{};
    std::vector<std::vector<uint8_t>> blocks_;
};

#endif
