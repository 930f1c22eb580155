#include "mapt/plu.h"

namespace {

/* Load and store eight bytes as a big-endian number. */
uint64_t load_word(const uint8_t *bytes) {
    uint64_t word = 0;
    __builtin_memcpy(&word, bytes, sizeof(word));
    return __builtin_bswap64(word);
}
void store_word(uint8_t *bytes, uint64_t word) {
    word = __builtin_bswap64(word);
    __builtin_memcpy(bytes, &word, sizeof(word));
}

}  // namespace

void fwx_mapt_plu_make_effective_prefix(uint32_t tag, uint32_t tag_bits, const uint8_t *prefix, uint8_t prefix_len,
                                        uint8_t *key, uint32_t *key_len) {
    *key_len = prefix_len + tag_bits;
    const uint32_t key_bytes = (*key_len + 7) / 8;
    uint64_t carry = tag;
    for (uint32_t at = 0; at < key_bytes; at += sizeof(carry)) {
        const uint64_t word = at < plu_prefix_bytes ? load_word(prefix + at) : 0;
        store_word(key + at, carry << (64 - tag_bits) | word >> tag_bits);
        carry = word;
    }
    key[key_bytes] = 0; /* the last word may have carried bits on */
}
