/*
 * Internals of the MAP-T rule table: global state, hash tables, complexes with their lookup trees, and subtables.
 *
 * Two hash tables hold the pending and the installed rules by Rule ID and Domain ID. The lookup tree of a complex has
 * two subtables, one for IPv4 and one for IPv6 prefixes, told apart by a tag in front of every key. An installed rule
 * has one leaf in each.
 *
 * All state is process-wide; a handle is null while its object does not exist. There are no locks: one operation at a
 * time. Results are 0 for success.
 */
#ifndef MAPT_PLU_H
#define MAPT_PLU_H

#include <cerrno>

#include "fwx_nat64/mapt.h"
#include "fwx_nat64/result.h"
#include "platform/runtime.h"
#include "platform/tbm.h"

constexpr uint32_t plu_memory_tag = 96;

constexpr uint32_t plu_stride_slots = 12;
constexpr uint32_t plu_tag_bits = 2;
constexpr uint32_t plu_tag_v4 = 2;
constexpr uint32_t plu_tag_v6 = 1;
constexpr uint32_t plu_max_key_bits = plu_tag_bits + FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX;
constexpr uint32_t plu_key_bytes = 64;
constexpr uint32_t plu_prefix_bytes = 32;

/** Parameters with which the tree of every complex is created. */
typedef struct {
    uint32_t initialised;
    uint32_t param1;
    uint32_t param2;
    const uint32_t *stride_map;
    uint32_t param3;
    uint16_t stride_slots;
    uint32_t param4;
    void *param5;
    tbm_leaf_contents_fn_t leaf_contents;
    void *param6;
    uint32_t max_key_len; /* bits */
    void *param7;
} fwx_mapt_plu_tbm_info_t;

/** True if no prefix of the rule is longer than its field. Keys are made without checking this again. */
static inline bool plu_fits_its_fields(const fwx_nat64_mapt_bmr_t &rule) {
    return rule.v4_prefix_len <= FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX &&
           rule.v6_prefix_len <= FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX;
}

/** A packet-processor complex and its lookup tree. */
typedef struct {
    fwx_list_link_t link;
    uint8_t complex;
    tbm_t *tree; /* never destroyed: the tree library has no function for it */
} fwx_mapt_plu_complex_t;

/* All state of the rule table, zeroed at load. */
extern fwx_mapt_plu_tbm_info_t fwx_mapt_plu_tbm_info;
extern uint32_t fwx_mapt_plu_stride_map[plu_stride_slots];
extern fwx_cl_hash_t *fwx_mapt_plu_pending_hash;
extern fwx_cl_hash_t *fwx_mapt_plu_rule_hash;
extern fwx_chunk_t *fwx_mapt_plu_rule_chunk;             /* all elements of both tables */
extern fwx_list_t *fwx_mapt_plu_complex_list;            /* owns its records */
extern fwx_mapt_app_leaf_t fwx_mapt_plu_staged_app_leaf; /* leaf data of the insert in progress */
extern bool plu_elem_may_stand_twice; /* a removal failed during an install: an element may be in both tables */

/* --- tree_parameters.cpp: return 0, or a code for a null argument. --- */

uint32_t fwx_mapt_plu_init_stride_map(uint32_t *map);
uint32_t fwx_mapt_plu_init_tbm_info(fwx_mapt_plu_tbm_info_t *info);

/* --- state.cpp --- */

uint32_t fwx_mapt_plu_create_pending_hash(void);
uint32_t fwx_mapt_plu_create_rule_hash(void);

/* --- rule_hash.cpp: functions enter and remove elements, but never free them. --- */

fwx_mapt_rule_hash_elem_t *fwx_mapt_find_pending_rule_hash_elem(uint32_t rule_id, uint32_t domain_id);
fwx_mapt_rule_hash_elem_t *fwx_mapt_find_rule_hash_elem(uint32_t rule_id, uint32_t domain_id);
/** Return 1 or 0. */
uint32_t fwx_mapt_pending_rule_hash_elem_exists(uint32_t rule_id, uint32_t domain_id);
uint32_t fwx_mapt_rule_hash_elem_exists(uint32_t rule_id, uint32_t domain_id);
/** Return 0, FWX_NAT64_ERR_EXISTS, or the hash facility's code. */
uint32_t fwx_mapt_add_pending_rule_hash_elem(fwx_mapt_rule_hash_elem_t *elem);
uint32_t fwx_mapt_add_rule_hash_elem(fwx_mapt_rule_hash_elem_t *elem);
/** Return 0, FWX_NAT64_ERR_NOT_FOUND, or the hash facility's code. */
uint32_t fwx_mapt_del_pending_rule_hash_elem(fwx_mapt_rule_hash_elem_t *elem);
uint32_t fwx_mapt_del_rule_hash_elem(fwx_mapt_rule_hash_elem_t *elem);
/** Returns an element that has left one table to the pool, unless `other` still holds this very element. */
void plu_release_elem(fwx_mapt_rule_hash_elem_t *elem, fwx_cl_hash_t *other);

/* --- complex.cpp --- */

uint32_t fwx_mapt_plu_find_tbm(uint8_t complex, tbm_t **tree);
uint32_t fwx_mapt_plu_create_tbm(uint32_t complex, tbm_t **tree);
uint32_t fwx_mapt_plu_del_rule_from_fwxs(const fwx_nat64_mapt_bmr_t *bmr);
/** Writes the first complex record, or null when there is none; plu_next_complex gives the others. Returns the list's
 * code. */
uint32_t plu_first_complex(fwx_mapt_plu_complex_t **first);
static inline fwx_mapt_plu_complex_t *plu_next_complex(const fwx_mapt_plu_complex_t *record) {
    return reinterpret_cast<fwx_mapt_plu_complex_t *>(record->link.next);
}

/** Sets of complexes that were visited and that failed, as bits by complex number modulo 32. */
struct plu_complex_masks_t {
    uint32_t visited = 0;
    uint32_t failed = 0;

    static uint32_t bit(uint8_t complex) { return uint32_t{1} << (complex % 32); }
    bool some_but_not_all_failed() const { return failed != 0 && failed != visited; }
};

/* --- subtable.cpp --- */

uint32_t fwx_mapt_plu_add_rules_to_subtables(tbm_t *tree, fwx_mapt_rule_hash_elem_t *elem, uint32_t complex);
uint32_t fwx_mapt_plu_add_rule_v4_subtable(tbm_t *tree, fwx_mapt_rule_hash_elem_t *elem, uint32_t complex);
uint32_t fwx_mapt_plu_add_rule_v6_subtable(tbm_t *tree, fwx_mapt_rule_hash_elem_t *elem, uint32_t complex);
uint32_t fwx_mapt_plu_del_rule_from_subtables(tbm_t *tree, const fwx_nat64_mapt_bmr_t *bmr);
uint32_t fwx_mapt_plu_del_rule_v4_subtable(tbm_t *tree, const fwx_nat64_mapt_bmr_t *bmr);
uint32_t fwx_mapt_plu_del_rule_v6_subtable(tbm_t *tree, const fwx_nat64_mapt_bmr_t *bmr);

/* --- effective_prefix.cpp --- */

/**
 * Makes a key: puts a tag in front of a prefix.
 * @param prefix  plu_prefix_bytes, zero after the first (prefix_len + 7) / 8 bytes.
 * @param key     plu_key_bytes, cleared; receives the bits, most significant first. Bits after the key length hold the
 *                remaining bits of the prefix's last byte.
 * @param key_len receives prefix_len + tag_bits.
 */
void fwx_mapt_plu_make_effective_prefix(uint32_t tag, uint32_t tag_bits, const uint8_t *prefix, uint8_t prefix_len,
                                        uint8_t *key, uint32_t *key_len);

#endif
