/* The same prefixes in DPDK's rte_rib6: two inserts a rule (the IPv4 prefix mapped into IPv6), and lookups. */
#include <benchmark/benchmark.h>
#include <rte_eal.h>
#include <rte_rib6.h>

#include <array>
#include <chrono>
#include <cstring>
#include <random>

#include "rule_data.h"

namespace {

using address_t = std::array<uint8_t, RTE_RIB6_IPV6_ADDR_SIZE>;

bool start_environment() {
    static const bool started = [] {
        const char *arguments[] = {"rule_bench", "--no-huge", "--no-pci",          "--no-shconf", "--no-telemetry",
                                   "-m",         "3072",      "--log-level=error", "-l",          "0"};
        return rte_eal_init(static_cast<int>(std::size(arguments)), const_cast<char **>(arguments)) >= 0;
    }();
    return started;
}

struct leaf_t {
    address_t address;
    uint8_t depth;
};

std::vector<leaf_t> leaves_of(const std::vector<fwx_nat64_mapt_bmr_t> &rules) {
    std::vector<leaf_t> leaves;
    for (const fwx_nat64_mapt_bmr_t &rule : rules) {
        address_t v6{};
        memcpy(v6.data(), rule.v6_prefix, sizeof(rule.v6_prefix));
        leaves.push_back({v6, rule.v6_prefix_len});
        address_t v4{0x80};
        memcpy(v4.data() + 1, rule.v4_prefix, sizeof(rule.v4_prefix));
        leaves.push_back({v4, static_cast<uint8_t>(8 + rule.v4_prefix_len)});
    }
    return leaves;
}

rte_rib6 *filled(const std::vector<leaf_t> &leaves) {
    rte_rib6_conf conf{};
    conf.ext_sz = 0;
    conf.max_nodes = static_cast<int>(2 * leaves.size() + 2);
    rte_rib6 *rib = rte_rib6_create("bench", 0, &conf);
    if (rib == nullptr) return nullptr;
    for (const leaf_t &leaf : leaves) {
        rte_rib6_node *node = rte_rib6_insert(rib, leaf.address.data(), leaf.depth);
        if (node != nullptr) rte_rib6_set_nh(node, leaf.depth);
    }
    return rib;
}

void rib6_install(benchmark::State &state) {
    if (!start_environment()) return state.SkipWithError("rte_eal_init failed");
    const auto leaves = leaves_of(random_rules(static_cast<size_t>(state.range(0))));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        rte_rib6 *rib = filled(leaves);
        state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        if (rib == nullptr) return state.SkipWithError("rte_rib6_create failed");
        rte_rib6_free(rib);
    }
    state.counters["per_rule"] =
        benchmark::Counter(static_cast<double>(leaves.size() / 2) * static_cast<double>(state.iterations()),
                           benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void rib6_longest_match(benchmark::State &state) {
    if (!start_environment()) return state.SkipWithError("rte_eal_init failed");
    const auto leaves = leaves_of(random_rules(static_cast<size_t>(state.range(0))));
    rte_rib6 *rib = filled(leaves);
    if (rib == nullptr) return state.SkipWithError("rte_rib6_create failed");
    std::mt19937_64 random(3);
    std::vector<address_t> addresses(1 << 16);
    for (address_t &address : addresses)
        address = leaves[random() % leaves.size() / 2 * 2].address;
    size_t next = 0;
    size_t found = 0;
    for (auto _ : state)
        found += rte_rib6_lookup(rib, addresses[next++ % addresses.size()].data()) != nullptr;
    if (found != static_cast<size_t>(state.iterations())) state.SkipWithError("an address of a rule was not found");
    rte_rib6_free(rib);
}

}  // namespace

BENCHMARK(rib6_install)->Arg(1000)->Arg(100000)->Arg(1000000)->UseManualTime();
BENCHMARK(rib6_longest_match)->Arg(1000)->Arg(100000)->Arg(1000000);
