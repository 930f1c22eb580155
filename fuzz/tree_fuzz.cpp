/* Fuzzes the tree bitmap: compares it with a table that is searched linearly. */
#include "input.h"
#include "tests/support/checked_tree.h"

namespace {

constexpr uint32_t max_key_bits = 66;

/** Repeats a byte's bits, so that keys share prefixes. */
bits_t read_key(input_t &input) {
    const uint32_t length = input.below(max_key_bits + 1);
    bits_t key;
    for (uint8_t pattern = input.byte(); key.size() < length; pattern = static_cast<uint8_t>(pattern << 1)) {
        if (key.size() % 8 == 7 && input.flag()) pattern = static_cast<uint8_t>(~pattern);
        key += (pattern & 0x80) != 0 ? '1' : '0';
    }
    return key;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {  // NOLINT(readability-identifier-naming)
    input_t input(data, size);
    const uint32_t widths = input.below(6) + 1; /* bits of each stride, except that the last has the rest */
    std::vector<uint32_t> strides(max_key_bits / widths, widths);
    if (max_key_bits % widths != 0) strides.push_back(max_key_bits % widths);
    checked_tree_t tree(strides, max_key_bits);
    while (!input.is_empty()) {
        const uint8_t action = input.byte();
        const bits_t key = read_key(input);
        if (action % 4 < 2) FUZZ_CHECK(tree.insert(key, action));
        if (action % 4 == 2) FUZZ_CHECK(tree.remove(key));
        if (action % 4 == 3) FUZZ_CHECK(tree.is_counted());
        FUZZ_CHECK(tree.look_up(key));
    }
    FUZZ_CHECK(tree.clear());
    return 0;
}
