/* Tree bitmap beyond what the library calls: longest match, leaf contents and measures. */
#ifndef FWX_HOST_TBM_H
#define FWX_HOST_TBM_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct tbm;
struct tbm_leaf;

/** What a tree holds. `bytes` is the memory of its nodes and arrays, without the leaves, which are the caller's. */
typedef struct {
    uint64_t leaves;
    uint64_t nodes;
    uint64_t bytes;
} fwx_host_tbm_counts_t;

/** The leaf with the longest key that is a prefix of the `key_len` bits at `key`, or null; its key length goes to
 *  `*match_len` when that is not null. */
struct tbm_leaf *fwx_host_tbm_longest_match(struct tbm *tree, const uint8_t *key, uint32_t key_len,
                                            uint32_t *match_len);
/** The 16 bytes of application data behind a leaf of this tree. */
const uint8_t *fwx_host_tbm_leaf_data(const struct tbm *tree, const struct tbm_leaf *leaf);
void fwx_host_tbm_counts_get(const struct tbm *tree, fwx_host_tbm_counts_t *counts);
/** The tree that was initialised last for a complex mask with this complex's bit, or null. */
struct tbm *fwx_host_tbm_of_complex(uint32_t complex);

#ifdef __cplusplus
}
#endif

#endif
