/* Complexes of the packet processor, each with its own lookup tree, and a rule's insertion into and deletion from their
 * trees. A complex and its tree are created at the first insert. The functions handle several complexes; the library
 * uses only one. */
#include "client/log.h"
#include "mapt/plu.h"

namespace {

/* The only complex that the library creates. The code for several ones, including the masks of failed ones, runs only
 * when the guard tests call these functions directly. */
constexpr uint8_t only_complex = 0;
constexpr uint32_t lists_elements = 0; /* list kind: the list owns its records and frees them when it is destroyed */

tbm_t *init_tree(uint32_t complex, uint32_t *rc) {
    const fwx_mapt_plu_tbm_info_t &info = fwx_mapt_plu_tbm_info;
    return tbm_init_v4(info.param1, info.param2, info.stride_slots, uint32_t{1} << complex, info.stride_map,
                       info.param3, info.param4, info.param5, info.leaf_contents, info.param6, info.max_key_len,
                       info.param7, rc);
}

}  // namespace

uint32_t plu_first_complex(fwx_mapt_plu_complex_t **first) {
    void *head = nullptr;
    const uint32_t rc = fwx_list_head(fwx_mapt_plu_complex_list, &head);
    *first = rc == 0 ? static_cast<fwx_mapt_plu_complex_t *>(head) : nullptr;
    return rc;
}

uint32_t fwx_mapt_plu_rule_insert(fwx_mapt_rule_hash_elem_t *elem) {
    if (elem == nullptr || !plu_fits_its_fields(elem->rule)) {
        NAT64_LOG_ERROR("\n%s: no rule, or one with a prefix longer than its field", __func__);
        return FWX_NAT64_ERR_INVALID;
    }
    tbm_t *tree = nullptr;
    uint32_t rc = fwx_mapt_plu_find_tbm(only_complex, &tree);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: error finding TBM handle (%p) for fwx (%d), rc(%s)", __func__, static_cast<void *>(tree),
                        only_complex, xerr_strerror(rc));
        return rc;
    }
    if (tree == nullptr) {
        rc = fwx_mapt_plu_create_tbm(only_complex, &tree);
        if (tree == nullptr) rc = ENOMEM;
        if (rc != 0) {
            NAT64_LOG_ERROR("\n%s: error creating TBM handle (%p) for fwx (%d), rc(%s)", __func__,
                            static_cast<void *>(tree), only_complex, xerr_strerror(rc));
            return rc;
        }
    }
    rc = fwx_mapt_plu_add_rules_to_subtables(tree, elem, only_complex);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: Failed to add rule to subtables for fwx (%d), rc(%s)", __func__, only_complex,
                        xerr_strerror(rc));
    }
    return rc;
}

uint32_t fwx_mapt_plu_find_tbm(uint8_t complex, tbm_t **tree) {
    if (tree == nullptr) return FWX_NAT64_ERR_INVALID;
    *tree = nullptr;
    if (fwx_mapt_plu_complex_list == nullptr) return 0;
    fwx_mapt_plu_complex_t *record = nullptr;
    const uint32_t rc = plu_first_complex(&record);
    while (record != nullptr && record->complex != complex)
        record = plu_next_complex(record);
    if (record != nullptr) *tree = record->tree;
    return rc;
}

uint32_t fwx_mapt_plu_create_tbm(uint32_t complex, tbm_t **tree) {
    if (fwx_mapt_plu_tbm_info.initialised == 0) {
        NAT64_LOG_ERROR("\n%s: TBM info has not been initialized %s", __func__, xerr_strerror(EINVAL));
        return EINVAL;
    }
    if (tree == nullptr) {
        NAT64_LOG_ERROR("\n%s: TBM handle NULL %s", __func__, xerr_strerror(EINVAL));
        return EINVAL;
    }
    *tree = nullptr;
    uint32_t rc = 0;
    if (fwx_mapt_plu_complex_list == nullptr) {
        rc = fwx_list_init(&fwx_mapt_plu_complex_list, lists_elements);
        if (rc != 0) {
            NAT64_LOG_ERROR("\n%s: list initialization failed %s", __func__, xerr_strerror(rc));
            fwx_mapt_plu_complex_list = nullptr;
            return rc;
        }
    }
    const auto number = static_cast<uint8_t>(complex);
    tbm_t *existing = nullptr;
    rc = fwx_mapt_plu_find_tbm(number, &existing);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: find TBM handle failed %s", __func__, xerr_strerror(rc));
        return rc;
    }
    if (existing != nullptr) {
        NAT64_LOG_ERROR("\n%s: TBM handle (%p) exists for fwx(%d) %s", __func__, static_cast<void *>(existing), number,
                        xerr_strerror(EEXIST));
        return EEXIST;
    }

    tbm_t *created = init_tree(complex, &rc);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: Failed to initialize TBM forfwx(%d) %s", __func__, complex, xerr_strerror(rc));
        return rc;
    }
    auto *record =
        static_cast<fwx_mapt_plu_complex_t *>(fwx_calloc_named(plu_memory_tag, 1, sizeof(fwx_mapt_plu_complex_t)));
    if (record == nullptr) {
        NAT64_LOG_ERROR("\n%s: No memory to add elem to complex listfwx(%d) %s", __func__, complex,
                        xerr_strerror(ENOMEM));
        return ENOMEM;
    }
    record->complex = number;
    record->tree = created;
    rc = fwx_list_insert_tail(fwx_mapt_plu_complex_list, record);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: list insert failedfwx(%d) %s", __func__, complex, xerr_strerror(rc));
        fwx_free_named(record);
        return rc;
    }
    *tree = record->tree;
    return 0;
}

uint32_t fwx_mapt_plu_del_rule_from_fwxs(const fwx_nat64_mapt_bmr_t *bmr) {
    if (fwx_mapt_plu_complex_list == nullptr) {
        NAT64_LOG_INFO("\n%s fwx complex list uninitialized", __func__);
        return 0;
    }
    fwx_mapt_plu_complex_t *record = nullptr;
    uint32_t rc = plu_first_complex(&record);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: reading the complex list failed, rc(%s)", __func__, xerr_strerror(rc));
        return rc;
    }
    plu_complex_masks_t masks;
    for (; record != nullptr; record = plu_next_complex(record)) {
        const uint32_t bit = plu_complex_masks_t::bit(record->complex);
        masks.visited |= bit;
        rc = fwx_mapt_plu_del_rule_from_subtables(record->tree, bmr);
        if (rc != 0) {
            NAT64_LOG_ERROR("\n%s: Failed to delete rule from subtables for fwx (%d), rc(%s)", __func__,
                            record->complex, xerr_strerror(rc));
            masks.failed |= bit;
        }
    }
    if (!masks.some_but_not_all_failed()) return rc;
    NAT64_LOG_ERROR("\n%s: Failed to delete rules from PLU rc(%s)", __func__, xerr_strerror(FWX_NAT64_ERR_PLU_FAILED));
    return FWX_NAT64_ERR_PLU_FAILED;
}
