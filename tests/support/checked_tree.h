/* A tree bitmap that is checked: every operation is also done on a table of bit strings, and compared. */
#ifndef TESTS_SUPPORT_CHECKED_TREE_H
#define TESTS_SUPPORT_CHECKED_TREE_H

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "fwx_host/fwx_host.h"
#include "platform/tbm.h"

using bits_t = std::string; /* of '0' and '1' */

inline constexpr size_t leaf_data_bytes = 16;

inline uint8_t leaf_fill; /* the byte with which the contents callback fills a leaf's data */

inline uint32_t give_leaf_contents(void * /*unused*/, void *buffer, void * /*app_leaf*/, void * /*app_handle*/) {
    std::memset(buffer, leaf_fill, leaf_data_bytes);
    return 0;
}

inline tbm_t *make_tree(const std::vector<uint32_t> &strides, uint32_t max_key_len, uint32_t mask, uint32_t *code) {
    return tbm_init_v4(7, 6, static_cast<uint16_t>(strides.size()), mask, strides.data(), 1, 0, nullptr,
                       give_leaf_contents, nullptr, max_key_len, nullptr, code);
}

/** The key's bytes, without a byte more, so that the sanitizer finds a read behind them. The last byte's unused bits
 * are garbage. */
inline std::vector<uint8_t> bytes_of(const bits_t &key) {
    std::vector<uint8_t> bytes((key.size() + 7) / 8 + (key.empty() ? 1 : 0), 0xa5);
    for (size_t at = 0; at < key.size(); ++at) {
        const auto bit = static_cast<uint8_t>(0x80 >> at % 8);
        bytes[at / 8] = static_cast<uint8_t>(key[at] == '1' ? bytes[at / 8] | bit : bytes[at / 8] & ~bit);
    }
    return bytes;
}

/** insert, remove, look_up, is_counted and clear return whether the tree agreed with the table. */
class checked_tree_t {
public:
    checked_tree_t(const std::vector<uint32_t> &strides, uint32_t max_key_len)
        : tree_(make_tree(strides, max_key_len, 1, nullptr)), empty_(counts()) {}
    ~checked_tree_t() { clear(); }
    checked_tree_t(const checked_tree_t &) = delete;
    checked_tree_t &operator=(const checked_tree_t &) = delete;

    /** Also checks that the tree refuses a key that it has already, and a delete with another leaf of that key. */
    bool insert(const bits_t &key, uint8_t data) {
        entry_t entry = {std::vector<uint8_t>(tbm_get_leaf_size(tree_, nullptr) + leaf_data_bytes), data};
        uint32_t code = 1;
        tbm_leaf_init(tree_, leaf_of(entry), bytes_of(key).data(), length_of(key), &code);
        if (code != 0) return false;
        leaf_fill = data;
        tbm_leaf_insert(tree_, leaf_of(entry), &code);
        if (has(key)) return code == FWX_HOST_ERR_KEY_TAKEN && deletion_of(entry) == FWX_HOST_ERR_NO_KEY;
        table_.emplace(key, std::move(entry));
        return code == 0;
    }
    bool remove(const bits_t &key) {
        const auto found = table_.find(key);
        if (found == table_.end()) return true;
        const entry_t entry = std::move(found->second);
        table_.erase(found);
        return deletion_of(entry) == 0 && deletion_of(entry) == FWX_HOST_ERR_NO_KEY;
    }
    /** Checks the exact match, the longest match and the data of the leaf. */
    bool look_up(const bits_t &key) const {
        const std::vector<uint8_t> bytes = bytes_of(key);
        uint32_t code = 1;
        const tbm_leaf_t *exact = tbm_exact_match(tree_, bytes.data(), length_of(key), &code);
        if (code != 0 || exact != leaf_at(key)) return false;
        bits_t prefix = key;
        while (!prefix.empty() && !has(prefix)) {
            prefix.pop_back();
        }
        constexpr uint32_t untouched = 1000;
        uint32_t match_len = untouched;
        const tbm_leaf_t *longest = fwx_host_tbm_longest_match(tree_, bytes.data(), length_of(key), &match_len);
        if (longest != leaf_at(prefix) || match_len != (has(prefix) ? prefix.size() : untouched)) return false;
        return longest == nullptr || has_data(longest, table_.at(prefix).data);
    }
    /** Checks the number of leaves, and that the first leaf is one of the table's. */
    bool is_counted() const {
        const uint8_t no_key = 0xff;
        uint32_t code = 1;
        const tbm_leaf_t *first = tbm_first_leaf(tree_, &no_key, 0, &code);
        bool is_known = table_.empty() && first == nullptr;
        for (const auto &[key, entry] : table_) {
            is_known = is_known || first == leaf_of(entry);
        }
        return code == 0 && is_known && counts().leaves == table_.size();
    }
    bool clear() {
        bool is_right = true;
        while (!table_.empty()) {
            is_right = remove(bits_t(table_.begin()->first)) && is_right;
        }
        return is_right && counts().leaves + counts().nodes == 0 && counts().bytes == empty_.bytes;
    }
    bool has(const bits_t &key) const { return table_.count(key) != 0; }
    size_t size() const { return table_.size(); }
    uint64_t bytes() const { return counts().bytes; }

private:
    struct entry_t {
        std::vector<uint8_t> memory;
        uint8_t data;
    };
    static tbm_leaf_t *leaf_of(const entry_t &entry) {
        return reinterpret_cast<tbm_leaf_t *>(const_cast<uint8_t *>(entry.memory.data()));
    }
    static uint32_t length_of(const bits_t &key) { return static_cast<uint32_t>(key.size()); }
    tbm_leaf_t *leaf_at(const bits_t &key) const { return has(key) ? leaf_of(table_.at(key)) : nullptr; }
    uint32_t deletion_of(const entry_t &entry) {
        uint32_t code = 1;
        tbm_leaf_delete(tree_, leaf_of(entry), &code);
        return code;
    }
    bool has_data(const tbm_leaf_t *leaf, uint8_t data) const {
        const std::vector<uint8_t> expected(leaf_data_bytes, data);
        return std::memcmp(fwx_host_tbm_leaf_data(tree_, leaf), expected.data(), leaf_data_bytes) == 0;
    }
    fwx_host_tbm_counts_t counts() const {
        fwx_host_tbm_counts_t now;
        fwx_host_tbm_counts_get(tree_, &now);
        return now;
    }

    tbm_t *tree_;
    fwx_host_tbm_counts_t empty_;
    std::map<bits_t, entry_t> table_;
};

#endif
