/*
 * Tree bitmap: a longest-prefix-match tree over bit-string keys, most significant bit first. A platform implements
 * these functions; the library calls them.
 *
 * Conventions: every operation writes its code to `*result`, 0 for success. Key lengths are in bits; bits after the key
 * length are ignored. The caller owns the memory of a leaf: tbm_get_leaf_size bytes, followed by 16 bytes of
 * application data.
 */
#ifndef FWX_PLATFORM_TBM_H
#define FWX_PLATFORM_TBM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tbm tbm_t;
typedef struct tbm_leaf tbm_leaf_t;

/** Called once per insert to fetch the 16 bytes of application data into `buffer`. */
typedef uint32_t (*tbm_leaf_contents_fn_t)(void *unused, void *buffer, void *app_leaf, void *app_handle);

/** Creates an empty tree for the complexes of `complex_mask`. `stride_map` holds the strides in bits, in `stride_slots`
 * entries. */
tbm_t *tbm_init_v4(uint32_t p1, uint32_t p2, uint16_t stride_slots, uint32_t complex_mask, const uint32_t *stride_map,
                   uint32_t p6, uint32_t p7, void *p8, tbm_leaf_contents_fn_t leaf_contents, void *p10,
                   uint32_t max_key_len, void *p12, uint32_t *result);
/** Returns the bytes that a leaf of this tree takes, without its application data. */
uint32_t tbm_get_leaf_size(tbm_t *tree, uint32_t *result);
/** Returns the leaf stored under exactly this key, or null. */
tbm_leaf_t *tbm_exact_match(tbm_t *tree, const uint8_t *key, uint32_t key_len, uint32_t *result);
/** Prepares zeroed leaf memory for a key. */
void tbm_leaf_init(tbm_t *tree, tbm_leaf_t *leaf, const uint8_t *key, uint32_t key_len, uint32_t *result);
/** Links a prepared leaf into the tree. */
void tbm_leaf_insert(tbm_t *tree, tbm_leaf_t *leaf, uint32_t *result);
/** Unlinks a leaf; the caller still owns its memory. */
void tbm_leaf_delete(tbm_t *tree, tbm_leaf_t *leaf, uint32_t *result);
/** With key length 0: returns the first leaf of the tree, or null when it is empty. */
tbm_leaf_t *tbm_first_leaf(tbm_t *tree, const uint8_t *key, uint32_t key_len, uint32_t *result);

#ifdef __cplusplus
}
#endif

#endif
