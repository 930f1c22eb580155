/*
 * The node store: adding and removing entries of nodes. A node's block has room for a number of entries that is one of
 * a few size classes. Adding an entry to a full block, or removing one that a smaller block can do without, copies the
 * node into a block of the next class and frees the old one.
 */
#include "host/lookup/nodes.h"

#include <algorithm>
#include <array>

struct node_store_t::free_block_t {
    free_block_t *next;
};

namespace {

constexpr size_t max_entries = 64 + 63; /* slots and prefixes of a stride of six bits */
constexpr std::array<uint8_t, node_size_classes> class_capacity = {2, 4, 6, 10, 14, 22, 30, 46, 62, 94, max_entries};

constexpr std::array<uint8_t, max_entries + 1> make_class_table() {
    std::array<uint8_t, max_entries + 1> table{};
    uint8_t size_class = 0;
    for (size_t count = 0; count < table.size(); count++) {
        if (count > class_capacity[size_class]) size_class++;
        table[count] = size_class;
    }
    return table;
}

/* The size class of a block by its number of entries, so that a node need not store its block's size. */
constexpr auto class_of_count = make_class_table();

size_t block_size(size_t size_class) {
    return sizeof(node_t) + class_capacity[size_class] * sizeof(entry_t);
}

}  // namespace

node_t *node_store_t::take(size_t size_class) {
    void *block = free_blocks[size_class];
    if (block != nullptr) {
        free_blocks[size_class] = free_blocks[size_class]->next;
    } else {
        block = slabs.cut(block_size(size_class));
    }
    return static_cast<node_t *>(block);
}

void node_store_t::give_back(node_t *node, size_t size_class) {
    auto *block = reinterpret_cast<free_block_t *>(node);
    block->next = free_blocks[size_class];
    free_blocks[size_class] = block;
}

COUNTS_BITS bool node_store_t::add(entry_t *link, place_t place, entry_t entry) {
    if (link->is_empty()) {
        node_t *node = take(0);
        if (node == nullptr) return false;
        *node = node_t{};
        *link = entry_t(node);
        nodes++;
    }
    node_t *node = link->node();
    const size_t count = node->count();
    const size_t index = node->index_of(place);
    node_t *grown = node;
    if (class_of_count[count + 1] != class_of_count[count]) {
        grown = take(class_of_count[count + 1]);
        if (grown == nullptr) return false;
        *grown = *node;
        std::copy_n(node->entries(), index, grown->entries());
    }
    std::copy_backward(node->entries() + index, node->entries() + count, grown->entries() + count + 1);
    grown->entries()[index] = entry;
    grown->bitmap_of(place).set(place.bit);
    if (grown != node) {
        give_back(node, class_of_count[count]);
        *link = entry_t(grown);
    }
    return true;
}

COUNTS_BITS void node_store_t::remove(entry_t *link, place_t place) {
    node_t *node = link->node();
    const size_t index = node->index_of(place);
    const size_t rest = node->count() - 1;
    node->bitmap_of(place).clear(place.bit);
    std::copy_n(node->entries() + index + 1, rest - index, node->entries() + index);
    if (class_of_count[rest] == class_of_count[rest + 1]) return;

    node_t *shrunk = take(class_of_count[rest]);
    /* Without memory for a smaller block the node keeps its block, which counts as one of the smaller class from now
     * on.
     */
    if (shrunk == nullptr) return;
    *shrunk = *node;
    std::copy_n(node->entries(), rest, shrunk->entries());
    give_back(node, class_of_count[rest + 1]);
    *link = entry_t(shrunk);
}

void node_store_t::free_chain(entry_t top) {
    while (top.is_node()) {
        node_t *node = top.node();
        top = node->entries()[0];
        give_back(node, class_of_count[node->count()]);
        nodes--;
    }
}

void node_store_t::clear() {
    slabs.clear();
    *this = {};
}
