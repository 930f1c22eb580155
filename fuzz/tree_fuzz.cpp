/* The tree bitmap against a table that is searched key by key. */
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "fwx_host/inspect.h"
#include "fwx_host/tbm.h"
#include "input.h"
#include "platform/tbm.h"

namespace {

constexpr uint32_t max_key_bits = 66;
constexpr size_t data_bytes = 16;

using bits_t = std::string; /* of '0' and '1' */

uint8_t fill; /* of the application data of the leaf that is inserted next */

uint32_t leaf_contents(void *, void *buffer, void *, void *) {
    std::memset(buffer, fill, data_bytes);
    return 0;
}

/** Few distinct bits, so that keys meet. */
bits_t read_key(input_t &input) {
    const uint32_t length = input.below(max_key_bits + 1);
    bits_t key;
    for (uint8_t pattern = input.byte(); key.size() < length; pattern = static_cast<uint8_t>(pattern << 1)) {
        if (key.size() % 8 == 7 && input.flag()) pattern = static_cast<uint8_t>(~pattern);
        key += (pattern & 0x80) != 0 ? '1' : '0';
    }
    return key;
}

/** In memory of its own length, the bits behind the key set. */
std::vector<uint8_t> bytes_of(const bits_t &key) {
    std::vector<uint8_t> bytes(key.size() / 8 + 1, 0xff);
    for (size_t i = 0; i < key.size(); ++i) {
        if (key[i] == '0') bytes[i / 8] = static_cast<uint8_t>(bytes[i / 8] & ~(0x80 >> i % 8));
    }
    return bytes;
}

class checked_tree_t {
public:
    checked_tree_t(const std::vector<uint32_t> &strides) {
        uint32_t code = 1;
        tree_ = tbm_init_v4(7, 6, static_cast<uint16_t>(strides.size()), 1, strides.data(), 1, 0, nullptr,
                            leaf_contents, nullptr, max_key_bits, nullptr, &code);
        FUZZ_CHECK(code == 0);
    }
    ~checked_tree_t() {
        while (!table_.empty()) {
            remove(table_.begin()->first);
        }
        fwx_host_tbm_counts_t counts;
        fwx_host_tbm_counts_get(tree_, &counts);
        FUZZ_CHECK(counts.leaves == 0 && counts.nodes == 0);
    }
    checked_tree_t(const checked_tree_t &) = delete;
    checked_tree_t &operator=(const checked_tree_t &) = delete;

    void insert(const bits_t &key, uint8_t data) {
        uint32_t code = 1;
        std::vector<uint8_t> memory(tbm_get_leaf_size(tree_, &code) + data_bytes);
        auto *leaf = reinterpret_cast<tbm_leaf_t *>(memory.data());
        tbm_leaf_init(tree_, leaf, bytes_of(key).data(), length_of(key), &code);
        FUZZ_CHECK(code == 0);
        fill = data;
        tbm_leaf_insert(tree_, leaf, &code);
        const bool is_new = table_.count(key) == 0;
        FUZZ_CHECK((code == 0) == is_new);
        if (is_new) table_[key] = {std::move(memory), data};
    }
    void remove(const bits_t &key) {
        const auto found = table_.find(key);
        if (found == table_.end()) return;
        uint32_t code = 1;
        tbm_leaf_delete(tree_, leaf_of(found->second), &code);
        FUZZ_CHECK(code == 0);
        table_.erase(found);
    }
    void look_up(const bits_t &key) {
        uint32_t code = 1;
        const std::vector<uint8_t> bytes = bytes_of(key);
        const auto exact = table_.find(key);
        const tbm_leaf_t *leaf = tbm_exact_match(tree_, bytes.data(), length_of(key), &code);
        FUZZ_CHECK(code == 0 && leaf == (exact == table_.end() ? nullptr : leaf_of(exact->second)));

        const entry_t *longest = nullptr;
        uint32_t longest_len = 0;
        for (auto &[prefix, entry] : table_) {
            const bool is_longer = longest == nullptr || prefix.size() > longest_len;
            if (key.compare(0, prefix.size(), prefix) != 0 || !is_longer) continue;
            longest = &entry;
            longest_len = length_of(prefix);
        }
        uint32_t match_len = 0;
        leaf = fwx_host_tbm_longest_match(tree_, bytes.data(), length_of(key), &match_len);
        FUZZ_CHECK(leaf == (longest == nullptr ? nullptr : leaf_of(*longest)) && match_len == longest_len);
        if (longest != nullptr) FUZZ_CHECK(fwx_host_tbm_leaf_data(tree_, leaf)[data_bytes - 1] == longest->data);
    }
    void check_first() {
        const uint8_t key = 0;
        uint32_t code = 1;
        const tbm_leaf_t *first = tbm_first_leaf(tree_, &key, 0, &code);
        bool is_known = first == nullptr && table_.empty();
        for (auto &[prefix, entry] : table_) {
            is_known = is_known || first == leaf_of(entry);
        }
        fwx_host_tbm_counts_t counts;
        fwx_host_tbm_counts_get(tree_, &counts);
        FUZZ_CHECK(code == 0 && is_known && counts.leaves == table_.size());
    }

private:
    struct entry_t {
        std::vector<uint8_t> memory;
        uint8_t data;
    };
    static tbm_leaf_t *leaf_of(const entry_t &entry) {
        return reinterpret_cast<tbm_leaf_t *>(const_cast<uint8_t *>(entry.memory.data()));
    }
    static uint32_t length_of(const bits_t &key) { return static_cast<uint32_t>(key.size()); }

    tbm_t *tree_;
    std::map<bits_t, entry_t> table_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {  // NOLINT(readability-identifier-naming)
    input_t input(data, size);
    const uint32_t widths = input.below(6) + 1; /* strides of this many bits, and one of the rest */
    std::vector<uint32_t> strides(max_key_bits / widths, widths);
    if (max_key_bits % widths != 0) strides.push_back(max_key_bits % widths);
    checked_tree_t tree(strides);
    while (!input.is_empty()) {
        const uint8_t action = input.byte();
        const bits_t key = read_key(input);
        switch (action % 4) {
            case 0:
            case 1:
                tree.insert(key, action);
                break;
            case 2:
                tree.remove(key);
                break;
            default:
                tree.check_first();
                break;
        }
        tree.look_up(key);
    }
    return 0;
}
