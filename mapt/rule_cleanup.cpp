/* Empties the MAP-T rule table: the leaves of all trees, the complexes, both hash tables and the pool of elements. A
 * step that fails is logged and the next ones still run, so that the table is usable afterwards. */
#include "client/log.h"
#include "mapt/plu.h"

namespace {

constexpr char name[] = "fwx_mapt_plu_cleanup";

/* Deletes and frees every leaf of the tree of a complex. Returns false when a step failed. */
bool empty_tree(const fwx_mapt_plu_complex_t &record, const uint8_t *key) {
    uint32_t rc = 0;
    tbm_get_leaf_size(record.tree, &rc);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: Unable to get leaf size %s", name, xerr_strerror(rc));
        return false;
    }
    tbm_leaf_t *leaf = tbm_first_leaf(record.tree, key, 0, &rc);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: error reading PLU for complex %u rc(%s)", name, record.complex, xerr_strerror(rc));
        return false;
    }
    bool emptied = true;
    while (leaf != nullptr) {
        rc = 0;
        tbm_leaf_delete(record.tree, leaf, &rc);
        if (rc != 0) {
            NAT64_LOG_ERROR("\n%s: leaf delete failed %s", name, xerr_strerror(rc));
            return false; /* otherwise endless: the leaf would stay the first one */
        }
        fwx_free_named(leaf);
        leaf = tbm_first_leaf(record.tree, key, 0, &rc);
        if (rc != 0) {
            NAT64_LOG_ERROR("\n%s: error reading PLU for  complex %u rc(%s)", name, record.complex, xerr_strerror(rc));
            emptied = false;
        }
    }
    return emptied;
}

void empty_complexes() {
    const uint8_t key[plu_key_bytes] = {};
    plu_complex_masks_t masks;
    fwx_mapt_plu_complex_t *record = nullptr;
    uint32_t rc = plu_first_complex(&record);
    if (rc != 0) NAT64_LOG_ERROR("\n%s: reading the complex list failed, rc(%s)", name, xerr_strerror(rc));
    for (; record != nullptr; record = plu_next_complex(record)) {
        const uint32_t bit = plu_complex_masks_t::bit(record->complex);
        masks.visited |= bit;
        if (!empty_tree(*record, key)) masks.failed |= bit;
    }
    if (masks.some_but_not_all_failed()) {
        NAT64_LOG_ERROR("\n%s: Failed to delete rules from PLU rc(%s)", name, xerr_strerror(FWX_NAT64_ERR_PLU_FAILED));
    }
    rc = fwx_list_destroy(fwx_mapt_plu_complex_list);
    if (rc != 0) NAT64_LOG_ERROR("\n%s: Failed to destroy complex list rc(%s)", name, xerr_strerror(rc));
    fwx_mapt_plu_complex_list = nullptr;
}

/* Returns every element of a table to the pool, except those that `other` holds too, and destroys the table. */
uint32_t destroy_table(fwx_cl_hash_t *table, uint32_t (*remove)(fwx_mapt_rule_hash_elem_t *), fwx_cl_hash_t *other) {
    const uint32_t buckets = fwx_cl_hash_bucket_count(table);
    for (uint32_t bucket = 0; bucket < buckets; ++bucket) {
        fwx_cl_hash_entry_t *next = nullptr;
        for (fwx_cl_hash_entry_t *entry = fwx_cl_hash_bucket_first(table, bucket); entry != nullptr; entry = next) {
            next = fwx_cl_hash_entry_next(entry);
            auto *elem = static_cast<fwx_mapt_rule_hash_elem_t *>(fwx_cl_hash_entry_element(entry));
            const uint32_t rc = remove(elem);
            plu_release_elem(elem, other);
            if (rc != 0) NAT64_LOG_ERROR("\n%s: failed to delete hash element %s", name, xerr_strerror(rc));
        }
    }
    return fwx_cl_hash_destroy(table, 1);
}

}  // namespace

void fwx_mapt_plu_cleanup(void) {
    NAT64_LOG_INFO("\n%s Cleaning up MAPT PLU", name);
    if (fwx_mapt_plu_complex_list != nullptr) empty_complexes();
    if (fwx_mapt_plu_rule_hash != nullptr) {
        const uint32_t rc =
            destroy_table(fwx_mapt_plu_rule_hash, fwx_mapt_del_rule_hash_elem, fwx_mapt_plu_pending_hash);
        if (rc != 0) NAT64_LOG_ERROR("\n%s: failed to delete mapt rule hash table %s", name, xerr_strerror(rc));
        fwx_mapt_plu_rule_hash = nullptr;
    }
    if (fwx_mapt_plu_pending_hash != nullptr) {
        const uint32_t rc = destroy_table(fwx_mapt_plu_pending_hash, fwx_mapt_del_pending_rule_hash_elem, nullptr);
        if (rc != 0) NAT64_LOG_ERROR("\n%s: failed to delete pending mapt rule hash table %s", name, xerr_strerror(rc));
        fwx_mapt_plu_pending_hash = nullptr;
    }
    plu_elem_may_stand_twice = false;
    if (fwx_mapt_plu_rule_chunk != nullptr) {
        fwx_chunk_destroy(fwx_mapt_plu_rule_chunk);
        fwx_mapt_plu_rule_chunk = nullptr;
    }
}
