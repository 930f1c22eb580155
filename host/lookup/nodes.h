/*
 * Nodes of the tree bitmap, and the store that allocates them. A node takes the bits of one stride of a key. It holds
 * two bitmaps, which tell the places in use, and behind them one entry for each place in use.
 */
#ifndef HOST_LOOKUP_NODES_H
#define HOST_LOOKUP_NODES_H

#include <cstddef>
#include <cstdint>

#include "host/runtime/slabs.h"
#include "platform/tbm.h"

/* For functions that count many bits. Each is compiled twice, once for processors with a population count instruction.
 */
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__) && defined(__OPTIMIZE__)
#define COUNTS_BITS __attribute__((target_clones("popcnt", "default")))
#else
#define COUNTS_BITS
#endif

struct node_t;

/** The content of one place in a tree: nothing, a leaf, or a node. */
class entry_t {
public:
    entry_t() = default;
    explicit entry_t(tbm_leaf_t *leaf) : bits(reinterpret_cast<uintptr_t>(leaf)) {}
    explicit entry_t(node_t *node) : bits(reinterpret_cast<uintptr_t>(node) | node_tag) {}

    bool is_empty() const { return bits == 0; }
    bool is_node() const { return (bits & node_tag) != 0; }
    bool is_leaf() const { return !is_empty() && !is_node(); }
    /** Requires is_node(). */
    node_t *node() const { return reinterpret_cast<node_t *>(bits - node_tag); }
    /** Requires !is_node(). Null when the entry is empty. */
    tbm_leaf_t *leaf() const { return reinterpret_cast<tbm_leaf_t *>(bits); }

private:
    static constexpr uintptr_t node_tag = 1; /* leaves and nodes are aligned, so the lowest bit is free */
    uintptr_t bits = 0;
};

/** A set of numbers below 64 that can count its members below a given number. */
class bitmap_t {
public:
    bool has(uint32_t bit) const { return ((bits >> bit) & 1) != 0; }
    void set(uint32_t bit) { bits |= uint64_t{1} << bit; }
    void clear(uint32_t bit) { bits &= ~(uint64_t{1} << bit); }
    uint64_t common_with(uint64_t mask) const { return bits & mask; }
    bool is_empty() const { return bits == 0; }
    bool has_one_at_most() const { return (bits & (bits - 1)) == 0; }
    uint32_t count() const { return ones(bits); }
    uint32_t count_below(uint32_t bit) const { return ones(bits & ((uint64_t{1} << bit) - 1)); }

private:
    static uint32_t ones(uint64_t word) { return static_cast<uint32_t>(__builtin_popcountll(word)); }

    uint64_t bits;
};

/**
 * A place in a node. A key that covers the whole stride has the slot numbered by its bits in the stride. A key that
 * ends in the stride after n bits of value v has the prefix number 2^n + v, so that halving a prefix's number gives the
 * number of the prefix that is one bit shorter.
 */
struct place_t {
    bool is_prefix;
    uint32_t bit;

    bool operator!=(const place_t &other) const { return is_prefix != other.is_prefix || bit != other.bit; }
};

/** Two bitmaps, and right behind them one entry for each bit that is set: slots first, then prefixes. */
struct node_t {
    bitmap_t slots;    /* leaves and nodes */
    bitmap_t prefixes; /* leaves only */

    /** Prefetches the node's second cache line, so that it loads in parallel with the first, which holds the bitmaps.
     */
    void prefetch() { __builtin_prefetch(reinterpret_cast<char *>(this) + 64); }
    entry_t *entries() { return reinterpret_cast<entry_t *>(this + 1); }
    uint32_t count() const { return slots.count() + prefixes.count(); }
    /** True when the node's only entry is in a slot. */
    bool is_link_of_chain() const { return prefixes.is_empty() && slots.has_one_at_most(); }
    bool holds(place_t place) const { return bitmap_of(place).has(place.bit); }
    uint32_t index_of(place_t place) const {
        return (place.is_prefix ? slots.count() : 0) + bitmap_of(place).count_below(place.bit);
    }
    const bitmap_t &bitmap_of(place_t place) const { return place.is_prefix ? prefixes : slots; }
    bitmap_t &bitmap_of(place_t place) { return place.is_prefix ? prefixes : slots; }
};

constexpr size_t node_size_classes = 11;

/**
 * The nodes of one tree, in blocks of a few sizes that are cut from slabs. Freed blocks are kept in a free list for
 * each size. Slabs are freed all at once. A store of all zero bytes is empty.
 */
class node_store_t {
public:
    /** Puts `entry` into a free place of the node at `link`, and creates that node if `link` is empty. Moves the node
     * to a larger block when its own is full. Returns false, and changes nothing, when memory is exhausted. */
    bool add(entry_t *link, place_t place, entry_t entry);
    /** Empties an occupied place of the node at `link`, and moves the node when a smaller block can hold the rest. */
    void remove(entry_t *link, place_t place);
    /** Frees the node at `top`, and follows first entries to free further nodes until one is not a node. */
    void free_chain(entry_t top);
    /** Frees all nodes and all memory. */
    void clear();

    uint64_t node_count() const { return nodes; }
    uint64_t byte_count() const { return slabs.byte_count(); }

private:
    struct free_block_t;

    node_t *take(size_t size_class);
    void give_back(node_t *node, size_t size_class);

    free_block_t *free_blocks[node_size_classes];
    slabs_t slabs;
    uint64_t nodes;
};

#endif
