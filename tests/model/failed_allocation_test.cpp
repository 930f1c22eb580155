/* Each memory allocation of a command that changes rules or pools fails once. The command must then leave nothing
 * behind, so that it succeeds when it is repeated. */
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <limits>
#include <new>

#include "server/pools.h"
#include "server/rules.h"

namespace {

constexpr size_t unlimited = std::numeric_limits<size_t>::max();
size_t allocations_left = unlimited;

}  // namespace

void *operator new(size_t size) {
    const bool may = allocations_left == unlimited || allocations_left-- != 0;
    void *memory = may ? std::malloc(size) : nullptr;
    if (memory == nullptr) throw std::bad_alloc();
    return memory;
}
void *operator new(size_t size, const std::nothrow_t &) noexcept {
    return std::malloc(size);
}
void operator delete(void *memory) noexcept {
    std::free(memory);
}
void operator delete(void *memory, size_t) noexcept {
    std::free(memory);
}

namespace {

/** Repeats a command until it has the memory that it needs. Returns its result. */
uint32_t repeat(const std::function<uint32_t()> &command) {
    for (size_t count = 0;; ++count) {
        allocations_left = count;
        try {
            const uint32_t result = command();
            allocations_left = unlimited;
            return result;
        } catch (const std::bad_alloc &) {
            allocations_left = unlimited;
        }
    }
}

TEST(failed_allocation, leaves_no_half_of_a_rule) {
    rules_t rules;
    const auto set = [&rules](uint32_t op, uint32_t rule_id, uint32_t expected_index) {
        fwx_nat64_bmr_msg_t command{};
        command.op = op;
        command.rule_id = rule_id;
        fwx_nat64_mapt_reply_t reply{};
        EXPECT_EQ(repeat([&] { return rules.basic_set(command, &reply); }), 0U) << rule_id;
        EXPECT_EQ(reply.bmr_index, expected_index);
    };
    for (uint32_t number = 1; number <= 3; ++number) {
        set(FWX_NAT64_OP_ADD, 10 * number, number);
    }
    kept_rule_t kept{};
    kept.index = 9;
    kept.rule.rule_id = 90;
    EXPECT_EQ(repeat([&] { return rules.basic_restore(kept); }), 0U);
    kept.rule.rule_id = 91;
    EXPECT_EQ(rules.basic_restore(kept), FWX_NAT64_MODEL_ERR_VALUE) << "the index is taken";
    set(FWX_NAT64_OP_DEL, 20, 2);
    set(FWX_NAT64_OP_DEL, 10, 1);
    set(FWX_NAT64_OP_DEL, 30, 3);
    set(FWX_NAT64_OP_ADD, 40, 1);
    EXPECT_EQ(rules.basic.size(), 2U);
    EXPECT_EQ(rules.by_index.entries.size(), 2U);
}

TEST(failed_allocation, leaves_no_half_of_a_pool_or_a_range) {
    pools_t pools;
    const auto pool = [&pools](uint32_t id, uint32_t last) {
        const fwx_nat64_pool_payload_t payload{id, 1, 0, id, 0, last << 24U}; /* the last byte, in network order */
        return repeat([&pools, payload] { return pools.set(payload); });
    };
    EXPECT_EQ(pool(1, 9), 0U);
    EXPECT_EQ(pool(1, 5), 0U) << "modified";
    EXPECT_EQ(pool(2, 7), FWX_NAT64_MODEL_ERR_OVERLAP);
    fwx_nat64_pool_range_del_payload_t range{};
    range.one = 1;
    range.range.id = 1;
    EXPECT_EQ(repeat([&] { return pools.range_add(range.range); }), 0U);
    EXPECT_EQ(repeat([&] { return pools.range_delete(range); }), 0U);
    EXPECT_EQ(repeat([&] { return pools.remove({1, 1}); }), 0U);
    EXPECT_EQ(pool(2, 7), 0U) << "no address of pool 1 is left";
}

}  // namespace
