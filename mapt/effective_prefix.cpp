#include "mapt/plu.h"

void fwx_mapt_plu_make_effective_prefix(uint32_t tag, uint32_t tag_bits, const uint8_t *prefix, uint8_t prefix_len,
                                        uint8_t *key, uint32_t *key_len) {
    const uint32_t prefix_bytes = (prefix_len + 7U) / 8;
    uint32_t carry = tag;
    for (uint32_t i = 0; i < prefix_bytes; ++i) {
        key[i] = static_cast<uint8_t>((carry * 256 + prefix[i]) >> tag_bits);
        carry = prefix[i];
    }
    const bool tag_needs_another_byte = prefix_bytes < (prefix_len + tag_bits + 7U) / 8;
    if (tag_needs_another_byte) key[prefix_bytes] = static_cast<uint8_t>(carry << (8 - tag_bits));
    *key_len = prefix_len + tag_bits;
}
