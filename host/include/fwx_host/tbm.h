/* Tree bitmap operations that the library does not call: longest match, leaf data and counts. */
#ifndef FWX_HOST_TBM_H
#define FWX_HOST_TBM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct tbm;
struct tbm_leaf;

/** Contents of a tree. `bytes` is the memory of its nodes and arrays, without the leaves, which the caller owns. */
typedef struct {
    uint64_t leaves;
    uint64_t nodes;
    uint64_t bytes;
} fwx_host_tbm_counts_t;

/** The leaf with the longest key that is a prefix of the `key_len` bits at `key`, or null. Writes the leaf's key length
 * in bits to `*match_len`, unless `match_len` is null. */
struct tbm_leaf *fwx_host_tbm_longest_match(struct tbm *tree, const uint8_t *key, uint32_t key_len,
                                            uint32_t *match_len);
/** The 16 bytes of application data behind a leaf of this tree. */
const uint8_t *fwx_host_tbm_leaf_data(const struct tbm *tree, const struct tbm_leaf *leaf);
void fwx_host_tbm_counts_get(const struct tbm *tree, fwx_host_tbm_counts_t *counts);
/** The newest tree whose complex mask has the bit of this complex, or null. */
struct tbm *fwx_host_tbm_of_complex(uint32_t complex);

#ifdef __cplusplus
}
#endif

#endif
