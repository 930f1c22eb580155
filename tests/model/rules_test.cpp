#include <array>

#include "model_fixture.h"
#include "platform/tbm.h"

namespace {

class rules_t : public model_fixture_t {
protected:
    static message_t basic(uint32_t op, uint32_t rule_id, uint32_t domain_id) {
        return command(13, 80).put<uint32_t>(36, op).put<uint32_t>(40, rule_id).put<uint32_t>(44, domain_id);
    }
    static message_t by_default(uint32_t op, uint32_t id) {
        return command(13, 68).put<uint32_t>(32, 1).put<uint32_t>(36, op).put<uint32_t>(40, id);
    }
};

struct outcome_t {
    const char *what;
    message_t command;
    uint32_t result;
    words_t words; /* rule, domain, type, operation, clean-up, index */
};

TEST_F(rules_t, get_the_lowest_free_index_and_after_the_last_the_clean_up_that_was_ordered) {
    const uint32_t exists = FWX_NAT64_MODEL_ERR_EXISTS, no_entry = FWX_NAT64_MODEL_ERR_NO_ENTRY,
                   value = FWX_NAT64_MODEL_ERR_VALUE;
    EXPECT_EQ(result_of(basic(1, 1, 1)), 0u);
    EXPECT_EQ(reply_to(basic(3, 1, 1)).u32(56), 0u) << "no clean-up unless it is told to order one";
    model_->order_cleanup(true);
    const outcome_t outcomes[] = {
        {"first", basic(1, 10, 1), 0, {10, 1, 0, 1, 0, 1}},
        {"same rule in another domain", basic(1, 10, 2), 0, {10, 2, 0, 1, 0, 2}},
        {"third", basic(1, 11, 1), 0, {11, 1, 0, 1, 0, 3}},
        {"added again", basic(1, 10, 2), exists, {10, 2, 0, 1, 0, 2}},
        {"deleted", basic(3, 10, 1), 0, {10, 1, 0, 3, 0, 1}},
        {"deleted again", basic(3, 10, 1), no_entry, {10, 1, 0, 3, 0, 0}},
        {"second deleted", basic(3, 10, 2), 0, {10, 2, 0, 3, 0, 2}},
        {"the lowest free index", basic(1, 12, 0), 0, {12, 0, 0, 1, 0, 1}},
        {"the next one", basic(1, 13, 0), 0, {13, 0, 0, 1, 0, 2}},
        {"behind the last", basic(1, 14, 0), 0, {14, 0, 0, 1, 0, 4}},
        {"rule 0", basic(1, 0, 1), value, {0, 1, 0, 1, 0, 0}},
        {"IPv6 length 65", basic(1, 15, 1).put<uint8_t>(56, 65), value, {15, 1, 0, 1, 0, 0}},
        {"IPv4 length 33", basic(1, 15, 1).put<uint8_t>(64, 33), value, {15, 1, 0, 1, 0, 0}},
        {"modified", basic(2, 14, 0), value, {14, 0, 0, 2, 0, 0}},
        {"default rule", by_default(1, 7), 0, {7, 0, 1, 1, 0, 0}},
        {"default rule again", by_default(1, 7), exists, {7, 0, 1, 1, 0, 0}},
        {"default rule modified", by_default(2, 7), 0, {7, 0, 1, 2, 0, 0}},
        {"default rule 0", by_default(1, 0), value, {0, 0, 1, 1, 0, 0}},
        {"operation 0", by_default(0, 7), value, {7, 0, 1, 0, 0, 0}},
        {"delete of another default rule", by_default(3, 8), no_entry, {8, 0, 1, 3, 0, 0}},
        {"default rule deleted", by_default(3, 7), 0, {7, 0, 1, 3, 0, 0}},
        {"down to two", basic(3, 11, 1), 0, {11, 1, 0, 3, 0, 3}},
        {"down to one", basic(3, 12, 0), 0, {12, 0, 0, 3, 0, 1}},
        {"whatever its lengths", basic(3, 14, 0).put<uint8_t>(56, 65).put<uint8_t>(64, 33), 0, {14, 0, 0, 3, 0, 4}},
        {"the last", basic(3, 13, 0), 0, {13, 0, 0, 3, 1, 2}},
        {"from 1 again", basic(1, 20, 0), 0, {20, 0, 0, 1, 0, 1}},
    };
    for (const outcome_t &expected : outcomes) {
        const message_t reply = reply_to(expected.command);
        EXPECT_EQ(reply.u32(32), expected.result) << expected.what;
        EXPECT_EQ(reply.words(40, 6), expected.words) << expected.what;
    }
    EXPECT_EQ(model_->totals().rules, 1u);
}

/* The lookup tree as a client fills it: leaf data whose bytes 4 to 7 are the index. */
struct tree_t {
    static inline uint8_t index;
    std::array<uint32_t, 12> strides{6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 0};
    uint32_t code = 0;
    tbm_t *tree = tbm_init_v4(7, 0, 12, 1, strides.data(), 6, 1, nullptr, contents, nullptr, 66, nullptr, &code);
    std::vector<std::vector<uint64_t>> leaves;

    static uint32_t contents(void *, void *buffer, void *, void *) {
        const uint8_t data[16] = {0, 0, 0, 0, 0, 0, 0, index};
        std::memcpy(buffer, data, sizeof(data));
        return 0;
    }
    void insert(const std::vector<uint8_t> &key, uint32_t key_len, uint8_t rule_index) {
        index = rule_index;
        leaves.emplace_back(tbm_get_leaf_size(tree, &code) / 8 + 4, 0);
        auto *leaf = reinterpret_cast<tbm_leaf_t *>(leaves.back().data());
        tbm_leaf_init(tree, leaf, key.data(), key_len, &code);
        EXPECT_EQ(code, 0u);
        tbm_leaf_insert(tree, leaf, &code);
        EXPECT_EQ(code, 0u);
    }
    ~tree_t() {
        for (auto &leaf : leaves) {
            tbm_leaf_delete(tree, reinterpret_cast<tbm_leaf_t *>(leaf.data()), &code);
        }
    }
};

TEST_F(rules_t, are_found_by_the_longest_match_of_an_address) {
    fwx_nat64_model_match_t match{};
    const fwx_nat64_addr_t address{0, {192, 0, 2, 77}};
    for (uint32_t rule = 1; rule <= 3; ++rule) {
        EXPECT_EQ(result_of(basic(1, 100 + rule, rule)), 0u);
    }
    tree_t tree;
    EXPECT_FALSE(model_->lookup(&address, &match)) << "no prefix yet";
    tree.insert({0xb0, 0x00, 0x00}, 2 + 16, 1);                   /* 192.0.0.0/16 */
    tree.insert({0xb0, 0x00, 0x00, 0x80}, 2 + 24, 2);             /* 192.0.2.0/24 */
    tree.insert({0x48, 0x00, 0x43, 0x6e, 0x00, 0x00}, 2 + 40, 3); /* 2001:db8::/40 */
    tree.insert({0xb2, 0xc0, 0x00}, 2 + 8, 9);                    /* 203.0.0.0/8: no such rule */
    const struct {
        fwx_nat64_addr_t address;
        bool found;
        fwx_nat64_model_match_t match;
    } cases[] = {
        {{0, {192, 0, 2, 77}}, true, {2, 102, 2, 24}},
        {{0, {192, 0, 3, 77}}, true, {1, 101, 1, 16}},
        {{0, {192, 1, 2, 77}}, false, {}},
        {{1, {0x20, 0x01, 0x0d, 0xb8, 0x00, 0x12, 0xff}}, true, {3, 103, 3, 40}},
        {{1, {0x20, 0x01, 0x0d, 0xb8, 0x12}}, false, {}},
        {{0, {203, 0, 113, 1}}, false, {}},
    };
    for (const auto &expected : cases) {
        match = {};
        EXPECT_EQ(model_->lookup(&expected.address, &match), expected.found);
        EXPECT_EQ(std::memcmp(&match, &expected.match, sizeof(match)), 0) << uint32_t{expected.address.addr[2]};
    }
}

}  // namespace
