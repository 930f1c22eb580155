/*
 * Measures the MAP-T rule table with 1,000 to 1,000,000 random rules: a complete install (pending rule, reply, both
 * leaves), a delete, the longest match in the resulting tree, and bytes per rule.
 */
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "platform/tbm.h"
#include "rule_data.h"

namespace {

using clock_type = std::chrono::steady_clock;

double seconds_since(clock_type::time_point start) {
    return std::chrono::duration<double>(clock_type::now() - start).count();
}

void per_rule(benchmark::State &state, size_t rules) {
    state.counters["per_rule"] =
        benchmark::Counter(static_cast<double>(rules) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

/** Resident memory of the process, in bytes. */
size_t resident_bytes() {
    size_t all = 0;
    size_t resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return resident * static_cast<size_t>(sysconf(_SC_PAGESIZE));
}

void install_all(const std::vector<fwx_nat64_mapt_bmr_t> &rules) {
    fwx_nat64_mapt_reply_t reply{};
    reply.op = FWX_NAT64_OP_ADD;
    for (const fwx_nat64_mapt_bmr_t &rule : rules) {
        fwx_mapt_plu_add_pending_rule(&rule);
        reply.rule_id = rule.rule_id;
        reply.domain_id = rule.domain_id;
        reply.bmr_index = rule.rule_id;
        fwx_mapt_plu_add_rule(&reply);
    }
}

void rule_install(benchmark::State &state) {
    const auto rules = random_rules(static_cast<size_t>(state.range(0)));
    fwx_mapt_plu_init();
    double most_bytes = 0; /* the maximum, because later iterations reuse the memory of earlier ones */
    for (auto _ : state) {
        const size_t before = resident_bytes();
        const clock_type::time_point start = clock_type::now();
        install_all(rules);
        state.SetIterationTime(seconds_since(start));
        most_bytes = std::max(most_bytes, static_cast<double>(resident_bytes()) - static_cast<double>(before));
        fwx_mapt_plu_cleanup();
    }
    state.counters["bytes_per_rule"] = most_bytes / static_cast<double>(rules.size());
    per_rule(state, rules.size());
}

void rule_delete(benchmark::State &state) {
    const auto rules = random_rules(static_cast<size_t>(state.range(0)));
    auto shuffled = rules;
    std::shuffle(shuffled.begin(), shuffled.end(), std::mt19937(1));
    fwx_mapt_plu_init();
    for (auto _ : state) {
        install_all(rules);
        const clock_type::time_point start = clock_type::now();
        for (const fwx_nat64_mapt_bmr_t &rule : shuffled)
            fwx_mapt_plu_del_rule(&rule);
        state.SetIterationTime(seconds_since(start));
        fwx_mapt_plu_cleanup();
    }
    per_rule(state, rules.size());
}

/* Keys of random addresses in the rules' IPv6 prefixes. A key is two tag bits followed by the address. */
std::vector<std::array<uint8_t, 16>> lookup_keys(const std::vector<fwx_nat64_mapt_bmr_t> &rules) {
    std::mt19937_64 random(3);
    std::vector<std::array<uint8_t, 16>> keys(1 << 16);
    for (auto &key : keys) {
        const fwx_nat64_mapt_bmr_t &rule = rules[random() % rules.size()];
        uint64_t address = random() >> rule.v6_prefix_len % 64;
        if (rule.v6_prefix_len == 64) address = 0;
        for (int i = 0; i < 8; ++i)
            address |= uint64_t{rule.v6_prefix[i]} << (56 - 8 * i);
        key[0] = static_cast<uint8_t>(0x40 | address >> 58);
        for (int i = 1; i < 9; ++i)
            key[i] = static_cast<uint8_t>(address << 6 >> (64 - 8 * i));
    }
    return keys;
}

void rule_longest_match(benchmark::State &state) {
    const auto rules = random_rules(static_cast<size_t>(state.range(0)));
    const auto keys = lookup_keys(rules);
    fwx_mapt_plu_init();
    install_all(rules);
    tbm_t *tree = fwx_host_tbm_of_complex(0);
    size_t next = 0;
    size_t found = 0;
    for (auto _ : state) {
        found += fwx_host_tbm_longest_match(tree, keys[next++ % keys.size()].data(), 66, nullptr) != nullptr;
    }
    if (found != static_cast<size_t>(state.iterations())) state.SkipWithError("an address of a rule was not found");
    fwx_mapt_plu_cleanup();
}

}  // namespace

#define AT_EACH_SIZE Arg(1000)->Arg(100000)->Arg(1000000)

BENCHMARK(rule_install)->AT_EACH_SIZE->UseManualTime();
BENCHMARK(rule_delete)->AT_EACH_SIZE->UseManualTime();
BENCHMARK(rule_longest_match)->AT_EACH_SIZE;
