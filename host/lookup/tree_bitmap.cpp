/*
 * The tree bitmap interface of the platform. It checks arguments and injected faults, and keeps the list of trees;
 * trie_t does the look-ups. There is no operation to destroy a tree, so an empty tree is freed when another tree is
 * created for the same complex mask.
 */
#include "platform/tbm.h"

#include <memory>
#include <new>
#include <utility>

#include "fwx_host/errors.h"
#include "fwx_host/tbm.h"
#include "host/lookup/trie.h"
#include "host/runtime/fault.h"
#include "host/runtime/inspect.h"
#include "host/runtime/memory.h"

struct tbm {
    tbm *older;
    trie_t trie;
    tbm_leaf_contents_fn_t leaf_contents;
    uint32_t complex_mask;
    uint32_t max_key_len;
    uint32_t leaf_size;
};

namespace {

constexpr uint32_t max_stride = 6;

tbm_t *newest_tree;

bool is_usable(const tbm_t *tree, const tbm_leaf_t *leaf) {
    return tree != nullptr && leaf != nullptr && reinterpret_cast<uintptr_t>(leaf) % alignof(tbm_leaf_t) == 0;
}

bool is_key(const tbm_t *tree, const uint8_t *key, uint32_t key_len) {
    return tree != nullptr && key != nullptr && key_len <= tree->max_key_len;
}

uint32_t insert(tbm_t *tree, tbm_leaf_t *leaf) {
    if (!is_usable(tree, leaf) || leaf->key_len > tree->max_key_len) return FWX_HOST_ERR_BAD_ARG;
    const way_end_t end = tree->trie.walk(leaf->key(), leaf->key_len); /* a copy, as the callback may walk */
    if (end.match(leaf->key(), leaf->key_len) != nullptr) return FWX_HOST_ERR_KEY_TAKEN;
    uint8_t *app_data = reinterpret_cast<uint8_t *>(leaf) + tree->leaf_size;
    const uint32_t refusal = tree->leaf_contents(nullptr, app_data, app_data, tree);
    if (refusal != 0) return refusal;
    return tree->trie.link_leaf(end, leaf) ? 0 : host_errno_nomem;
}

uint32_t remove(tbm_t *tree, const tbm_leaf_t *leaf) {
    if (!is_usable(tree, leaf)) return FWX_HOST_ERR_BAD_ARG;
    if (leaf->key_len > tree->max_key_len) return FWX_HOST_ERR_NO_KEY;
    const way_end_t &end = tree->trie.walk(leaf->key(), leaf->key_len);
    if (end.match(leaf->key(), leaf->key_len) != leaf) return FWX_HOST_ERR_NO_KEY;
    tree->trie.unlink_leaf(end);
    return 0;
}

/* Number of strides without trailing zeros in the map, or 0 when the map cannot hold keys of that length. */
uint32_t used_strides(const uint32_t *stride_map, uint32_t slots, uint32_t max_key_len) {
    uint32_t bits = 0;
    while (slots > 0 && stride_map[slots - 1] == 0) {
        slots--;
    }
    for (uint32_t slot = 0; slot < slots; slot++) {
        if (stride_map[slot] == 0 || stride_map[slot] > max_stride) return 0;
        bits += stride_map[slot];
    }
    return bits < max_key_len ? 0 : slots;
}

/* Whole units of 16 bytes keep the application data behind a leaf aligned like the leaf. */
uint32_t leaf_size_of(uint32_t max_key_len) {
    const uint32_t bytes = static_cast<uint32_t>(sizeof(tbm_leaf_t)) + (max_key_len + 7) / 8;
    return (bytes + 15) / 16 * 16;
}

void reclaim_empty_trees(uint32_t complex_mask) {
    for (tbm_t **link = &newest_tree; *link != nullptr;) {
        tbm_t *tree = *link;
        if (tree->complex_mask != complex_mask || tree->trie.leaf_count() != 0) {
            link = &tree->older;
            continue;
        }
        *link = tree->older;
        delete tree;
        host_live.trees--;
    }
}

uint32_t make_tree(uint32_t stride_slots, uint32_t complex_mask, const uint32_t *stride_map,
                   tbm_leaf_contents_fn_t leaf_contents, uint32_t max_key_len, tbm_t **made) {
    if (stride_map == nullptr || leaf_contents == nullptr) return FWX_HOST_ERR_BAD_ARG;
    const uint32_t strides = used_strides(stride_map, stride_slots, max_key_len);
    if (strides == 0) return FWX_HOST_ERR_BAD_ARG;
    std::unique_ptr<uint8_t[]> stride_sizes(new (std::nothrow) uint8_t[strides]);
    if (stride_sizes == nullptr) return host_errno_nomem;
    for (uint32_t level = 0; level < strides; level++) {
        stride_sizes[level] = static_cast<uint8_t>(stride_map[level]);
    }
    tbm_t *tree = new (std::nothrow) tbm_t{nullptr,     trie_t(std::move(stride_sizes)), leaf_contents, complex_mask,
                                           max_key_len, leaf_size_of(max_key_len)};
    if (tree == nullptr) return host_errno_nomem;
    reclaim_empty_trees(complex_mask);
    tree->older = newest_tree;
    newest_tree = tree;
    host_live.trees++;
    *made = tree;
    return 0;
}

void report(uint32_t *result, uint32_t code) {
    if (result != nullptr) *result = code;
}

/* Returns the code of an injected fault, FWX_HOST_ERR_BAD_ARG for invalid arguments, or 0. */
uint32_t check_key(fwx_host_op_t op, const tbm_t *tree, const uint8_t *key, uint32_t key_len) {
    const uint32_t fault = host_fault_check(op);
    if (fault != 0) return fault;
    return is_key(tree, key, key_len) ? 0 : FWX_HOST_ERR_BAD_ARG;
}

}  // namespace

tbm_t *tbm_init_v4(uint32_t /*p1*/, uint32_t /*p2*/, uint16_t stride_slots, uint32_t complex_mask,
                   const uint32_t *stride_map, uint32_t /*p6*/, uint32_t /*p7*/, void * /*p8*/,
                   tbm_leaf_contents_fn_t leaf_contents, void * /*p10*/, uint32_t max_key_len, void * /*p12*/,
                   uint32_t *result) {
    tbm_t *tree = nullptr;
    uint32_t code = host_fault_check(FWX_HOST_OP_TBM_INIT);
    if (code == 0) code = make_tree(stride_slots, complex_mask, stride_map, leaf_contents, max_key_len, &tree);
    report(result, code);
    return tree;
}

uint32_t tbm_get_leaf_size(tbm_t *tree, uint32_t *result) {
    uint32_t code = host_fault_check(FWX_HOST_OP_TBM_LEAF_SIZE);
    if (code == 0 && tree == nullptr) code = FWX_HOST_ERR_BAD_ARG;
    report(result, code);
    return code == 0 ? tree->leaf_size : 0;
}

tbm_leaf_t *tbm_exact_match(tbm_t *tree, const uint8_t *key, uint32_t key_len, uint32_t *result) {
    const uint32_t code = check_key(FWX_HOST_OP_TBM_EXACT_MATCH, tree, key, key_len);
    report(result, code);
    return code == 0 ? tree->trie.walk(key, key_len).match(key, key_len) : nullptr;
}

void tbm_leaf_init(tbm_t *tree, tbm_leaf_t *leaf, const uint8_t *key, uint32_t key_len, uint32_t *result) {
    uint32_t code = check_key(FWX_HOST_OP_TBM_LEAF_INIT, tree, key, key_len);
    if (code == 0 && !is_usable(tree, leaf)) code = FWX_HOST_ERR_BAD_ARG;
    report(result, code);
    if (code == 0) leaf->set_key(key, key_len);
}

void tbm_leaf_insert(tbm_t *tree, tbm_leaf_t *leaf, uint32_t *result) {
    const uint32_t fault = host_fault_check(FWX_HOST_OP_TBM_LEAF_INSERT);
    report(result, fault != 0 ? fault : insert(tree, leaf));
}

void tbm_leaf_delete(tbm_t *tree, tbm_leaf_t *leaf, uint32_t *result) {
    const uint32_t fault = host_fault_check(FWX_HOST_OP_TBM_LEAF_DELETE);
    report(result, fault != 0 ? fault : remove(tree, leaf));
}

tbm_leaf_t *tbm_first_leaf(tbm_t *tree, const uint8_t *key, uint32_t key_len, uint32_t *result) {
    uint32_t code = check_key(FWX_HOST_OP_TBM_FIRST_LEAF, tree, key, key_len);
    if (code == 0 && key_len != 0) code = FWX_HOST_ERR_BAD_ARG;
    report(result, code);
    return code == 0 ? tree->trie.first_leaf() : nullptr;
}

tbm_leaf_t *fwx_host_tbm_longest_match(tbm_t *tree, const uint8_t *key, uint32_t key_len, uint32_t *match_len) {
    if (!is_key(tree, key, key_len)) return nullptr;
    tbm_leaf_t *leaf = tree->trie.longest_match(key, key_len);
    if (leaf != nullptr && match_len != nullptr) *match_len = leaf->key_len;
    return leaf;
}

const uint8_t *fwx_host_tbm_leaf_data(const tbm_t *tree, const tbm_leaf_t *leaf) {
    if (!is_usable(tree, leaf)) return nullptr;
    return reinterpret_cast<const uint8_t *>(leaf) + tree->leaf_size;
}

void fwx_host_tbm_counts_get(const tbm_t *tree, fwx_host_tbm_counts_t *counts) {
    if (counts == nullptr) return;
    *counts = {};
    if (tree == nullptr) return;
    const trie_t &trie = tree->trie;
    *counts = {trie.leaf_count(), trie.nodes().node_count(), sizeof(tbm_t) + trie.nodes().byte_count()};
}

tbm_t *fwx_host_tbm_of_complex(uint32_t complex) {
    if (complex >= 32) return nullptr;
    tbm_t *tree = newest_tree;
    while (tree != nullptr && (tree->complex_mask >> complex & 1) == 0) {
        tree = tree->older;
    }
    return tree;
}
