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

uint64_t load_four(const uint8_t *bytes) {
    uint32_t word = 0;
    std::memcpy(&word, bytes, sizeof word);
    return __builtin_bswap32(word);
}

/* A word of up to 8 bytes, the first one most significant. */
uint64_t load_word(const uint8_t *bytes, uint32_t count) {
    if (count >= 8) return load_four(bytes) << 32 | load_four(bytes + 4);
    if (count >= 4) return load_four(bytes) << 32 | load_four(bytes + count - 4) << (64 - 8 * count); /* may overlap */
    uint64_t word = 0;
    for (uint32_t i = 0; i < count; i++) {
        word |= uint64_t{bytes[i]} << (56 - 8 * i);
    }
    return word;
}

uint32_t bytes_of_bits(uint32_t bits) {
    return (bits + 7) / 8;
}

/* Bits of the key from bit `first` on, in the highest bits of a word: as many as a stride has, or all that are left. */
uint64_t bits_from(const uint8_t *key, uint32_t key_len, uint32_t first) {
    const uint32_t at = first / 8;
    return load_word(key + at, bytes_of_bits(key_len) - at) << first % 8;
}

/* The place of a key in a node. `bits` begins with the key's bits from the node's stride on, of which there are
 * `rest`. */
place_t place_in(uint64_t bits, uint32_t rest, uint32_t stride) {
    constexpr uint64_t highest = uint64_t{1} << 63;
    if (rest >= stride) return {false, static_cast<uint32_t>(bits >> (64 - stride))};
    return {true, static_cast<uint32_t>((bits >> 1 | highest) >> (63 - rest))};
}

/* The place of a key in a node whose stride begins at bit `first` of the key. */
place_t place_of(const uint8_t *key, uint32_t key_len, uint32_t first, uint32_t stride) {
    return place_in(bits_from(key, key_len, first), key_len - first, stride);
}

/* A key of any length, with the functions of a short_key_t. */
class long_key_t {
public:
    long_key_t(const uint8_t *key, uint32_t key_len) : key_(key), key_len_(key_len) {}

    uint64_t bits() const { return bits_from(key_, key_len_, first_); }
    uint32_t left() const { return key_len_ - first_; }
    void skip(uint32_t count) { first_ += count; }

private:
    const uint8_t *key_;
    uint32_t key_len_;
    uint32_t first_ = 0;
};

}  // namespace

short_key_t::short_key_t(const uint8_t *key, uint32_t key_len) : left_(key_len) {
    const uint32_t bytes = bytes_of_bits(key_len);
    high_ = load_word(key, bytes);
    if (bytes > sizeof high_) low_ = load_word(key + sizeof high_, bytes - static_cast<uint32_t>(sizeof high_));
    uint64_t &last = bytes > sizeof high_ ? low_ : high_;
    const uint32_t unused = (most_bits - key_len) % 64;
    last = last >> unused << unused;
}

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

/* Inline, so that find_end() is compiled for each kind of processor as a whole. */
template <typename key_kind_t>
[[gnu::always_inline]] inline void trie_t::find_end_of(key_kind_t key) {
    const uint32_t key_len = key.left();
    entry_t *link = &root;
    entry_t *parent = nullptr;
    entry_t *chain = &root;
    bool is_in_chain = true; /* the node above has one entry, or there is none */
    place_t place{};
    const uint8_t *stride = strides.get();
    for (; link->is_node(); stride++) {
        node_t *node = link->node();
        node->prefetch();
        place = place_in(key.bits(), key.left(), *stride);
        if (!node->holds(place)) break;
        if (!is_in_chain) chain = link;
        is_in_chain = node->is_link_of_chain();
        parent = link;
        link = &node->entries()[node->index_of(place)];
        key.skip(*stride);
    }
    remembered_end = {link, parent, chain, place, static_cast<uint32_t>(stride - strides.get()), key_len - key.left()};
}

const way_end_t &trie_t::walk(const uint8_t *key, uint32_t key_len) {
    if (key_len > short_key_t::most_bits) {
        forget();
        find_end_of(long_key_t(key, key_len));
        return remembered_end;
    }
    const short_key_t read(key, key_len);
    if (read == remembered_key) return remembered_end;
    remembered_key = read;
    find_end(read);
    return remembered_end;
}

COUNTS_BITS void trie_t::find_end(const short_key_t &key) {
    find_end_of(key);
}

/* Finds the leaf in the last place of the key's path, or else the longest prefix in a node of the path. */
template <typename key_kind_t>
[[gnu::always_inline]] inline tbm_leaf_t *trie_t::longest_match_of(key_kind_t read, const uint8_t *key,
                                                                   uint32_t key_len) const {
    node_t *best_node = nullptr;
    uint64_t best_prefixes = 0;
    entry_t entry = root;
    for (const uint8_t *stride = strides.get(); entry.is_node(); stride++) {
        node_t *node = entry.node();
        node->prefetch();
        const place_t place = place_in(read.bits(), read.left(), *stride);
        const uint32_t longest = place.is_prefix ? place.bit : (1u << *stride | place.bit) / 2;
        const uint64_t matches = node->prefixes.common_with(prefix_paths[longest]);
        if (matches != 0) {
            best_node = node;
            best_prefixes = matches;
        }
        const bool goes_on = !place.is_prefix && node->slots.has(place.bit);
        entry = goes_on ? node->entries()[node->slots.count_below(place.bit)] : entry_t();
        read.skip(*stride);
    }
    tbm_leaf_t *leaf = entry.leaf();
    if (leaf != nullptr && leaf->is_prefix_of(key, key_len)) return leaf;
    if (best_node == nullptr) return nullptr;
    const auto longest = static_cast<uint32_t>(63 - __builtin_clzll(best_prefixes));
    return best_node->entries()[best_node->index_of({true, longest})].leaf();
}

COUNTS_BITS tbm_leaf_t *trie_t::longest_match(const uint8_t *key, uint32_t key_len) const {
    if (key_len > short_key_t::most_bits) return longest_match_of(long_key_t(key, key_len), key, key_len);
    return longest_match_of(short_key_t(key, key_len), key, key_len);
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
