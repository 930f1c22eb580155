/* The tree bitmap's trie: finds the place of a key, and links leaves, which the caller owns, into the nodes. */
#ifndef HOST_LOOKUP_TRIE_H
#define HOST_LOOKUP_TRIE_H

#include <cstdint>
#include <memory>
#include <utility>

#include "host/lookup/nodes.h"
#include "platform/tbm.h"

/** The bytes of the key follow the leaf. Unused bits of the last byte are 0. */
struct tbm_leaf {
    uint32_t key_len; /* bits */

    uint8_t *key() { return reinterpret_cast<uint8_t *>(this + 1); }
    const uint8_t *key() const { return reinterpret_cast<const uint8_t *>(this + 1); }
    void set_key(const uint8_t *bytes, uint32_t bits);
    bool is_prefix_of(const uint8_t *bytes, uint32_t bits) const;
};

/** A key of 128 bits at most, from which bits are read one stride after the other. */
class short_key_t {
public:
    static constexpr uint32_t most_bits = 128;

    /** Equal to no key. */
    short_key_t() = default;
    short_key_t(const uint8_t *key, uint32_t key_len);
    bool operator==(const short_key_t &other) const {
        return left_ == other.left_ && high_ == other.high_ && low_ == other.low_;
    }

    /** The bits that are left, in the highest bits of a word: as many as a stride has, or all. */
    uint64_t bits() const { return high_; }
    uint32_t left() const { return left_; }
    /** Skips `count` bits: less than 64, and not 0. */
    void skip(uint32_t count) {
        high_ = high_ << count | low_ >> (64 - count);
        low_ <<= count;
        left_ -= count;
    }

private:
    /* Most significant bit first. Bits behind the end of the key are 0. */
    uint64_t high_ = 0;
    uint64_t low_ = 0;
    uint32_t left_ = UINT32_MAX;
};

/** The end of a key's path through a trie. */
struct way_end_t {
    entry_t *link;   /* holds nothing (in an empty trie), a leaf of this key or of another, or a node without the key */
    entry_t *parent; /* holds the node that contains `link`; null when `link` is the root */
    entry_t *chain;  /* the top of the chain of single-entry nodes that leads to the node at `parent`, or `parent` */
    place_t place;   /* in the node at `link`, or in the node at `parent` if `link` holds no node */
    uint32_t level;  /* of the node at `link`, or of a node that would be created there */
    uint32_t first;  /* the first bit of that level in the key */

    /** The leaf of exactly this key, or null. */
    tbm_leaf_t *match(const uint8_t *key, uint32_t key_len) const;
};

/**
 * A multibit trie: every node takes the bits of one stride of the key. A leaf is in the highest place that no other key
 * of the trie shares, and moves down when a key is added that shares it. So each node has at least two entries, except
 * the nodes of a chain, whose leaves share more bits. Keys must not be longer than the sum of the strides.
 */
class trie_t {
public:
    /** Takes ownership of the strides' sizes, 1 to 6 bits each. */
    explicit trie_t(std::unique_ptr<uint8_t[]> stride_sizes) : strides(std::move(stride_sizes)) {}

    /** The end of this key's path, valid until the trie changes, in a record that the next walk overwrites. The latest
     * result is cached, because a caller that looks up a key often links or unlinks it next. */
    const way_end_t &walk(const uint8_t *key, uint32_t key_len);
    /** The leaf with the longest key that is a prefix of this one, or null. */
    tbm_leaf_t *longest_match(const uint8_t *key, uint32_t key_len) const;
    /** The leaf in the first place of the trie, or null. */
    tbm_leaf_t *first_leaf() const;
    /** Links a leaf at the end of its key's path. The key must not be in the trie. Returns false, and changes nothing,
     * when memory is exhausted. */
    bool link_leaf(const way_end_t &end, tbm_leaf_t *leaf);
    /** Unlinks the leaf at the end of a path and frees nodes that are no longer needed. Removing the last leaf frees
     * all memory. */
    void unlink_leaf(const way_end_t &end);

    uint64_t leaf_count() const { return leaves; }
    const node_store_t &nodes() const { return store; }

private:
    void find_end(const short_key_t &key);
    template <typename key_kind_t>
    void find_end_of(key_kind_t key);
    template <typename key_kind_t>
    tbm_leaf_t *longest_match_of(key_kind_t read, const uint8_t *key, uint32_t key_len) const;
    void forget() { remembered_key = {}; }
    entry_t make_branch(const way_end_t &end, tbm_leaf_t *leaf, tbm_leaf_t *other);

    entry_t root;
    std::unique_ptr<uint8_t[]> strides;
    node_store_t store{};
    uint64_t leaves = 0;

    short_key_t remembered_key; /* its path ends at `remembered_end` */
    way_end_t remembered_end{};
};

#endif
