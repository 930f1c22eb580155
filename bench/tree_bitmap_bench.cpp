/* The tree bitmap under the load of a rule table: an IPv4 and an IPv6 leaf a rule, in one tree, told apart by two bits.
 */
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <set>
#include <utility>
#include <vector>

#include "fwx_host/tbm.h"
#include "platform/tbm.h"

namespace {

constexpr uint32_t max_key_len = 66;
constexpr uint32_t app_data_size = 16;

struct bench_key_t {
    std::array<uint8_t, 9> bytes;
    uint32_t len;
};

struct free_t {
    void operator()(void *block) const { std::free(block); }
};
using leaf_block_t = std::unique_ptr<void, free_t>;

void check(uint32_t result) {
    if (result == 0) return;
    std::fprintf(stderr, "tree bitmap operation failed: %#x\n", result);
    std::abort();
}

uint32_t fill_contents(void * /*unused*/, void *buffer, void * /*app_leaf*/, void * /*app_handle*/) {
    std::memset(buffer, 1, app_data_size);
    return 0;
}

/* Bits of `value` behind a two-bit tag, cut to `prefix_len` of them. */
bench_key_t make_key(uint32_t tag, uint64_t value, uint32_t prefix_len) {
    value &= ~uint64_t{0} << (64 - prefix_len);
    bench_key_t key = {{}, prefix_len + 2};
    key.bytes[0] = static_cast<uint8_t>(tag << 6 | value >> 58);
    for (uint32_t at = 1; at < key.bytes.size(); at++) {
        key.bytes[at] = static_cast<uint8_t>(at < 8 ? value >> (58 - 8 * at) : value << 2);
    }
    key.bytes[8] = static_cast<uint8_t>((value & 3) << 6);
    return key;
}

/* Distinct keys, two by two those of a rule. */
std::vector<bench_key_t> make_keys(size_t rules) {
    std::mt19937_64 random(20240607);
    std::set<std::pair<std::array<uint8_t, 9>, uint32_t>> seen;
    std::vector<bench_key_t> keys;
    const auto add_distinct = [&](uint32_t tag, uint32_t shortest, uint32_t longest) {
        for (;;) {
            const auto prefix_len = static_cast<uint32_t>(shortest + random() % (longest - shortest + 1));
            const bench_key_t key = make_key(tag, random(), prefix_len);
            if (!seen.emplace(key.bytes, key.len).second) continue;
            keys.push_back(key);
            return;
        }
    };
    for (size_t rule = 0; rule < rules; rule++) {
        add_distinct(2, 16, 32);
        add_distinct(1, 32, 64);
    }
    return keys;
}

const std::vector<bench_key_t> &keys_of(size_t rules) {
    static std::vector<bench_key_t> keys;
    if (keys.size() != rules * 2) keys = make_keys(rules);
    return keys;
}

class bench_tree_t {
public:
    bench_tree_t() {
        const std::array<uint32_t, 12> strides = {6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 6, 0};
        uint32_t result = 0;
        tree = tbm_init_v4(7, 6, static_cast<uint16_t>(strides.size()), 1, strides.data(), 1, 0, nullptr, fill_contents,
                           nullptr, max_key_len, nullptr, &result);
        check(result);
        leaf_size = tbm_get_leaf_size(tree, &result);
    }
    ~bench_tree_t() { empty(); }
    bench_tree_t(const bench_tree_t &) = delete;
    bench_tree_t &operator=(const bench_tree_t &) = delete;

    leaf_block_t insert(const bench_key_t &key) {
        leaf_block_t block(std::calloc(1, leaf_size + app_data_size));
        auto *leaf = static_cast<tbm_leaf_t *>(block.get());
        uint32_t result = 0;
        tbm_leaf_init(tree, leaf, key.bytes.data(), key.len, &result);
        check(result);
        tbm_leaf_insert(tree, leaf, &result);
        check(result);
        return block;
    }
    tbm_leaf_t *exact_match(const bench_key_t &key) {
        uint32_t result = 0;
        return tbm_exact_match(tree, key.bytes.data(), key.len, &result);
    }
    tbm_leaf_t *longest_match(const bench_key_t &key) {
        return fwx_host_tbm_longest_match(tree, key.bytes.data(), key.len, nullptr);
    }
    void remove(tbm_leaf_t *leaf) {
        uint32_t result = 0;
        tbm_leaf_delete(tree, leaf, &result);
        check(result);
    }
    void empty() {
        const uint8_t no_key = 0;
        uint32_t result = 0;
        while (tbm_leaf_t *leaf = tbm_first_leaf(tree, &no_key, 0, &result)) {
            remove(leaf);
        }
    }
    double bytes_per_leaf() const {
        fwx_host_tbm_counts_t counts;
        fwx_host_tbm_counts_get(tree, &counts);
        return static_cast<double>(counts.bytes) / static_cast<double>(counts.leaves);
    }

private:
    tbm_t *tree;
    uint32_t leaf_size;
};

std::vector<leaf_block_t> fill(bench_tree_t &tree, const std::vector<bench_key_t> &keys) {
    std::vector<leaf_block_t> leaves;
    leaves.reserve(keys.size());
    for (const bench_key_t &key : keys) {
        leaves.push_back(tree.insert(key));
    }
    return leaves;
}

/* Time per rule: both leaves' blocks, and before each the look whether it is there. */
void insert_rule(benchmark::State &state) {
    const auto &keys = keys_of(static_cast<size_t>(state.range(0)));
    std::vector<leaf_block_t> leaves(keys.size());
    double bytes_per_leaf = 0;
    while (state.KeepRunning()) {
        bench_tree_t tree;
        for (size_t at = 0; at < keys.size(); at++) {
            if (tree.exact_match(keys[at]) == nullptr) leaves[at] = tree.insert(keys[at]);
        }
        state.PauseTiming();
        bytes_per_leaf = tree.bytes_per_leaf();
        tree.empty();
        for (auto leaf = leaves.rbegin(); leaf != leaves.rend(); ++leaf) {
            leaf->reset();
        }
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.counters["bytes_per_leaf"] = bytes_per_leaf;
}

void delete_rule(benchmark::State &state) {
    const auto &keys = keys_of(static_cast<size_t>(state.range(0)));
    while (state.KeepRunning()) {
        state.PauseTiming();
        bench_tree_t tree;
        std::vector<leaf_block_t> leaves = fill(tree, keys);
        state.ResumeTiming();
        for (const bench_key_t &key : keys) {
            tree.remove(tree.exact_match(key));
        }
        state.PauseTiming();
        leaves.clear();
        state.ResumeTiming();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

template <tbm_leaf_t *(bench_tree_t::*look_up)(const bench_key_t &)>
void match(benchmark::State &state, const std::vector<bench_key_t> &wanted) {
    bench_tree_t tree;
    const std::vector<leaf_block_t> leaves = fill(tree, keys_of(static_cast<size_t>(state.range(0))));
    size_t at = 0;
    while (state.KeepRunning()) {
        benchmark::DoNotOptimize((tree.*look_up)(wanted[at]));
        at = at + 1 == wanted.size() ? 0 : at + 1;
    }
    state.SetItemsProcessed(state.iterations());
    tree.empty();
}

void exact_match(benchmark::State &state) {
    std::vector<bench_key_t> wanted = keys_of(static_cast<size_t>(state.range(0)));
    std::shuffle(wanted.begin(), wanted.end(), std::mt19937_64(1));
    match<&bench_tree_t::exact_match>(state, wanted);
}

/* Addresses of the rules' prefixes: every look-up finds a leaf. */
void longest_match(benchmark::State &state) {
    std::vector<bench_key_t> wanted = keys_of(static_cast<size_t>(state.range(0)));
    std::mt19937_64 random(1);
    std::shuffle(wanted.begin(), wanted.end(), random);
    for (bench_key_t &key : wanted) {
        const uint32_t address_len = (key.bytes[0] & 0x80) != 0 ? 34 : max_key_len;
        for (uint32_t bit = key.len; bit < address_len; bit++) {
            key.bytes[bit / 8] = static_cast<uint8_t>(key.bytes[bit / 8] | (random() & 1) << (7 - bit % 8));
        }
        key.len = address_len;
    }
    match<&bench_tree_t::longest_match>(state, wanted);
}

void rule_counts(benchmark::internal::Benchmark *bench) {
    bench->Arg(1000)->Arg(100000)->Arg(1000000);
}

BENCHMARK(insert_rule)->Apply(rule_counts)->Unit(benchmark::kMillisecond);
BENCHMARK(delete_rule)->Apply(rule_counts)->Unit(benchmark::kMillisecond);
BENCHMARK(exact_match)->Apply(rule_counts);
BENCHMARK(longest_match)->Apply(rule_counts);

}  // namespace
