/* Random MAP-T rules with distinct prefixes of realistic lengths, the same in every run. */
#ifndef BENCH_RULE_DATA_H
#define BENCH_RULE_DATA_H

#include <cstdint>
#include <random>
#include <unordered_set>
#include <vector>

#include "fwx_nat64/mapt.h"

inline std::vector<fwx_nat64_mapt_bmr_t> random_rules(size_t count) {
    std::mt19937_64 random(7599);
    std::unordered_set<uint64_t> v4_taken, v6_taken;
    std::vector<fwx_nat64_mapt_bmr_t> rules;
    rules.reserve(count);
    while (rules.size() < count) {
        fwx_nat64_mapt_bmr_t rule{};
        rule.rule_id = static_cast<uint32_t>(rules.size() + 1);
        rule.domain_id = static_cast<uint32_t>(random() % 64);
        rule.v4_prefix_len = static_cast<uint8_t>(20 + random() % 13);
        rule.v6_prefix_len = static_cast<uint8_t>(36 + random() % 29);
        uint64_t v6 = (random() >> 3 | uint64_t{1} << 61) & ~uint64_t{0} << (64 - rule.v6_prefix_len);
        uint64_t v4 = (random() & 0xffffffff) >> (32 - rule.v4_prefix_len) << (32 - rule.v4_prefix_len);
        if (!v4_taken.insert(v4 << 8 | rule.v4_prefix_len).second) continue;
        if (!v6_taken.insert(v6 ^ rule.v6_prefix_len).second) continue;
        for (int i = 7; i >= 0; --i, v6 >>= 8)
            rule.v6_prefix[i] = static_cast<uint8_t>(v6);
        for (int i = 3; i >= 0; --i, v4 >>= 8)
            rule.v4_prefix[i] = static_cast<uint8_t>(v4);
        rules.push_back(rule);
    }
    return rules;
}

#endif
