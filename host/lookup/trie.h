/* The tree bitmap's trie: the way of a key through the nodes, and leaves linked into them. */
#ifndef HOST_LOOKUP_TRIE_H
#define HOST_LOOKUP_TRIE_H

#include <cstdint>
#include <memory>
#include <utility>

#include "host/lookup/nodes.h"
#include "platform/tbm.h"

/** The bytes of the key follow; bits behind its length that are in its last byte are 0. */
struct tbm_leaf {
    uint32_t key_len; /* bits */

    uint8_t *key() { return reinterpret_cast<uint8_t *>(this + 1); }
    const uint8_t *key() const { return reinterpret_cast<const uint8_t *>(this + 1); }
    void set_key(const uint8_t *bytes, uint32_t bits);
    bool is_prefix_of(const uint8_t *bytes, uint32_t bits) const;
};

/** Where the way of a key through a trie ends. */
struct way_end_t {
    entry_t *link;   /* holds nothing (in an empty trie), a leaf of this key or of another, or a node without the key */
    entry_t *parent; /* holds the node that `link` is in, or nothing: `link` is the root */
    entry_t *chain;  /* `parent`, or what holds the highest node that nothing hangs below but what the one at `parent`
                        holds */
    place_t place;   /* in the node at `link`, or else in the one at `parent` */
    uint32_t level;  /* of the node at `link`, or of one that would be there */
    uint32_t first;  /* its first bit in the key */

    /** The leaf of this very key, or null. */
    tbm_leaf_t *match(const uint8_t *key, uint32_t key_len) const;
};

/**
 * A multibit trie: every node takes the bits of one stride of the key. A leaf hangs as high as it can, in the first
 * place that no other key of the trie shares, and moves down when one comes that does; so each node but those of a
 * chain, whose leaves share more bits, holds two entries at least. Keys must be no longer than the strides together.
 */
class trie_t {
public:
    /** Takes the sizes of the strides, 1 to 6 bits each. */
    explicit trie_t(std::unique_ptr<uint8_t[]> stride_sizes) : strides(std::move(stride_sizes)) {}

    /** Where the way of this key ends; good until the trie changes. The latest one is remembered: who looks whether a
     * key is there often links or unlinks it next. */
    way_end_t walk(const uint8_t *key, uint32_t key_len);
    /** The leaf with the longest key that is a prefix of this one, or null. */
    tbm_leaf_t *longest_match(const uint8_t *key, uint32_t key_len) const;
    /** The leaf that is reached first, or null. */
    tbm_leaf_t *first_leaf() const;
    /** Links a leaf at the end of the way of its key, which the trie has not. False, and no change: memory ended. */
    bool link_leaf(const way_end_t &end, tbm_leaf_t *leaf);
    /** Unlinks the leaf at the end of a way, and nodes of no more use. All memory goes with the last leaf. */
    void unlink_leaf(const way_end_t &end);

    uint64_t leaf_count() const { return leaves; }
    const node_store_t &nodes() const { return store; }

private:
    way_end_t find_end(const uint8_t *key, uint32_t key_len);
    bool remembers(const uint8_t *key, uint32_t key_len) const;
    void remember(const uint8_t *key, uint32_t key_len, const way_end_t &end);
    void forget() { remembered_len = nothing; }
    entry_t make_branch(const way_end_t &end, tbm_leaf_t *leaf, tbm_leaf_t *other);

    entry_t root;
    std::unique_ptr<uint8_t[]> strides;
    node_store_t store{};
    uint64_t leaves = 0;

    static constexpr uint32_t nothing = UINT32_MAX;
    uint32_t remembered_len = nothing; /* bits of a key whose way ends at `remembered_end` */
    uint8_t remembered_key[16]{};
    way_end_t remembered_end{};
};

#endif
