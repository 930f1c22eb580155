/* Look-up, insertion and removal in the multibit trie, and the bit arithmetic of keys. */
#include "host/lookup/trie.h"

#include <array>
#include <cstring>

namespace {

constexpr std::array<uint64_t, 64> make_prefix_paths() {
    std::array<uint64_t, 64> paths{};
    for (uint32_t prefix = 1; prefix < paths.size(); prefix++) {
        paths[prefix] = paths[prefix / 2] | uint64_t{1} << prefix;
    }
    return paths;
}

/* For each prefix number of a node: the set of that prefix and all shorter prefixes of it. */
constexpr auto prefix_paths = make_prefix_paths();

uint8_t last_byte_mask(uint32_t bits) {
    return static_cast<uint8_t>(0xff00 >> bits % 8);
}

/* Returns `count` (1 to 8) bits of the key from bit `first` on. */
uint32_t key_bits(const uint8_t *key, uint32_t first, uint32_t count) {
    const uint32_t last = first + count - 1;
    const uint32_t pair = static_cast<uint32_t>(key[first / 8]) << 8 | key[last / 8];
    const uint32_t shift = (last / 8 == first / 8 ? 15 : 7) - last % 8;
    return (pair >> shift) & ((1u << count) - 1);
}

/* The place of a key in a node whose stride begins at bit `first` of the key. */
place_t place_of(const uint8_t *key, uint32_t key_len, uint32_t first, uint32_t stride) {
    const uint32_t rest = key_len - first;
    if (rest >= stride) return {false, key_bits(key, first, stride)};
    return {true, rest == 0 ? 1 : 1u << rest | key_bits(key, first, rest)};
}

}  // namespace

void tbm_leaf::set_key(const uint8_t *bytes, uint32_t bits) {
    key_len = bits;
    std::memcpy(key(), bytes, (bits + 7) / 8);
    if (bits % 8 != 0) key()[bits / 8] &= last_byte_mask(bits);
}

bool tbm_leaf::is_prefix_of(const uint8_t *bytes, uint32_t bits) const {
    if (key_len > bits) return false;
    const uint32_t whole = key_len / 8;
    if (std::memcmp(key(), bytes, whole) != 0) return false;
    return key_len % 8 == 0 || key()[whole] == (bytes[whole] & last_byte_mask(key_len));
}

tbm_leaf_t *way_end_t::match(const uint8_t *key, uint32_t key_len) const {
    if (!link->is_leaf()) return nullptr;
    tbm_leaf_t *leaf = link->leaf();
    return leaf->key_len == key_len && leaf->is_prefix_of(key, key_len) ? leaf : nullptr;
}

bool trie_t::remembers(const uint8_t *key, uint32_t key_len) const {
    const uint32_t whole = key_len / 8;
    if (remembered_len != key_len || std::memcmp(remembered_key, key, whole) != 0) return false;
    return key_len % 8 == 0 || remembered_key[whole] == (key[whole] & last_byte_mask(key_len));
}

void trie_t::remember(const uint8_t *key, uint32_t key_len, const way_end_t &end) {
    if (key_len > 8 * sizeof(remembered_key)) return;
    remembered_len = key_len;
    std::memcpy(remembered_key, key, (key_len + 7) / 8);
    if (key_len % 8 != 0) remembered_key[key_len / 8] &= last_byte_mask(key_len);
    remembered_end = end;
}

way_end_t trie_t::walk(const uint8_t *key, uint32_t key_len) {
    if (remembers(key, key_len)) return remembered_end;
    const way_end_t end = find_end(key, key_len);
    remember(key, key_len, end);
    return end;
}

COUNTS_BITS way_end_t trie_t::find_end(const uint8_t *key, uint32_t key_len) {
    way_end_t end = {&root, nullptr, &root, {}, 0, 0};
    while (end.link->is_node()) {
        node_t *node = end.link->node();
        node->prefetch();
        const uint32_t stride = strides[end.level];
        end.place = place_of(key, key_len, end.first, stride);
        if (!node->holds(end.place)) return end;
        if (end.parent != nullptr && !end.parent->node()->is_link_of_chain()) end.chain = end.link;
        end.parent = end.link;
        end.link = &node->entries()[node->index_of(end.place)];
        end.level++;
        end.first += stride;
    }
    return end;
}

COUNTS_BITS tbm_leaf_t *trie_t::longest_match(const uint8_t *key, uint32_t key_len) const {
    node_t *best_node = nullptr;
    uint64_t best_prefixes = 0;
    entry_t entry = root;
    uint32_t first = 0;
    for (const uint8_t *stride = strides.get(); entry.is_node(); stride++) {
        node_t *node = entry.node();
        node->prefetch();
        const place_t place = place_of(key, key_len, first, *stride);
        const uint32_t longest = place.is_prefix ? place.bit : (1u << *stride | place.bit) / 2;
        const uint64_t matches = node->prefixes.common_with(prefix_paths[longest]);
        if (matches != 0) {
            best_node = node;
            best_prefixes = matches;
        }
        const bool goes_on = !place.is_prefix && node->slots.has(place.bit);
        entry = goes_on ? node->entries()[node->slots.count_below(place.bit)] : entry_t();
        first += *stride;
    }
    tbm_leaf_t *leaf = entry.leaf();
    if (leaf != nullptr && leaf->is_prefix_of(key, key_len)) return leaf;
    if (best_node == nullptr) return nullptr;
    const auto longest = static_cast<uint32_t>(63 - __builtin_clzll(best_prefixes));
    return best_node->entries()[best_node->index_of({true, longest})].leaf();
}

tbm_leaf_t *trie_t::first_leaf() const {
    entry_t entry = root;
    while (entry.is_node()) {
        entry = entry.node()->entries()[0];
    }
    return entry.leaf();
}

/* Makes nodes below `end` that hold two leaves whose keys share all bits before `end.first`. Returns an empty entry
 * when memory is exhausted. */
entry_t trie_t::make_branch(const way_end_t &end, tbm_leaf_t *leaf, tbm_leaf_t *other) {
    entry_t top;
    entry_t *link = &top;
    uint32_t first = end.first;
    for (const uint8_t *stride = &strides[end.level];; stride++) {
        const place_t place = place_of(leaf->key(), leaf->key_len, first, *stride);
        const place_t other_place = place_of(other->key(), other->key_len, first, *stride);
        if (!store.add(link, place, entry_t(leaf))) break;
        if (place != other_place) {
            if (!store.add(link, other_place, entry_t(other))) break;
            return top;
        }
        link = &link->node()->entries()[0];
        *link = entry_t();
        first += *stride;
    }
    store.free_chain(top);
    return entry_t();
}

bool trie_t::link_leaf(const way_end_t &end, tbm_leaf_t *leaf) {
    forget();
    if (end.link->is_node()) {
        if (!store.add(end.link, end.place, entry_t(leaf))) return false;
    } else {
        const entry_t entry = end.link->is_empty() ? entry_t(leaf) : make_branch(end, leaf, end.link->leaf());
        if (entry.is_empty()) return false;
        *end.link = entry;
    }
    leaves++;
    return true;
}

void trie_t::unlink_leaf(const way_end_t &end) {
    forget();
    if (--leaves == 0) {
        root = entry_t();
        store.clear();
        return;
    }
    node_t *node = end.parent->node();
    const entry_t neighbour = node->entries()[end.link == node->entries() ? 1 : 0];
    if (node->count() > 2 || neighbour.is_node()) {
        store.remove(end.parent, end.place);
        return;
    }
    /* One leaf is left in the node. It moves up to the highest place that no other key shares. */
    store.free_chain(*end.chain);
    *end.chain = neighbour;
}
