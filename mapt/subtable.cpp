/* The two subtables of a lookup tree, for IPv4 and IPv6 prefixes, told apart by a tag in front of every key. One
 * implementation serves both: it makes keys, inserts and deletes leaves, and gives the tree library the data of a new
 * leaf. */
#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "mapt/plu.h"

namespace {

struct lookup_key_t {
    uint8_t prefix[plu_prefix_bytes] = {}; /* the prefix alone, without the tag */
    uint8_t bytes[plu_key_bytes] = {};
    uint32_t len = 0; /* bits */
};

/* The differences between the subtables. */
struct subtable_t {
    uint32_t tag; /* in front of every key */
    size_t prefix_offset;
    size_t prefix_bytes;
    size_t prefix_len_offset;
    const char *add_name;
    const char *del_name;

    const uint8_t *prefix(const fwx_nat64_mapt_bmr_t &rule) const {
        return reinterpret_cast<const uint8_t *>(&rule) + prefix_offset;
    }
    uint8_t prefix_len(const fwx_nat64_mapt_bmr_t &rule) const {
        return reinterpret_cast<const uint8_t *>(&rule)[prefix_len_offset];
    }
    bool is_v4() const { return tag == plu_tag_v4; }
};

constexpr subtable_t v4_subtable = {plu_tag_v4,
                                    offsetof(fwx_nat64_mapt_bmr_t, v4_prefix),
                                    sizeof(fwx_nat64_mapt_bmr_t::v4_prefix),
                                    offsetof(fwx_nat64_mapt_bmr_t, v4_prefix_len),
                                    "fwx_mapt_plu_add_rule_v4_subtable",
                                    "fwx_mapt_plu_del_rule_v4_subtable"};
constexpr subtable_t v6_subtable = {plu_tag_v6,
                                    offsetof(fwx_nat64_mapt_bmr_t, v6_prefix),
                                    sizeof(fwx_nat64_mapt_bmr_t::v6_prefix),
                                    offsetof(fwx_nat64_mapt_bmr_t, v6_prefix_len),
                                    "fwx_mapt_plu_add_rule_v6_subtable",
                                    "fwx_mapt_plu_del_rule_v6_subtable"};

#define TWELVE_BYTES_FORMAT "0x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x"
#define TWELVE_BYTES(b) (b)[0], (b)[1], (b)[2], (b)[3], (b)[4], (b)[5], (b)[6], (b)[7], (b)[8], (b)[9], (b)[10], (b)[11]

uint64_t first_byte_most_significant(const uint8_t *bytes, size_t count) {
    uint64_t value = 0;
    for (size_t i = 0; i < count; ++i)
        value = value << 8 | bytes[i];
    return value;
}

template <const subtable_t &subtable>
uint64_t prefix_number(const fwx_nat64_mapt_bmr_t &rule) {
    return first_byte_most_significant(subtable.prefix(rule), subtable.prefix_bytes);
}

template <const subtable_t &subtable>
void log_adding(const fwx_nat64_mapt_bmr_t &rule, const lookup_key_t &key) {
    if (subtable.is_v4()) {
        NAT64_LOG_INFO("\n%s Prefixes being added BMR V4 prefix(0x%x)/%u Effective prefix:(" TWELVE_BYTES_FORMAT "/%u)",
                       subtable.add_name, static_cast<uint32_t>(prefix_number<subtable>(rule)),
                       subtable.prefix_len(rule), TWELVE_BYTES(key.bytes), key.len);
    } else {
        NAT64_LOG_INFO("\n%s Prefixes being added BMR V6 prefix(0x%lx/%u) Effective prefix:(" TWELVE_BYTES_FORMAT
                       "/%u) Temp prefix:(" TWELVE_BYTES_FORMAT ")",
                       subtable.add_name, prefix_number<subtable>(rule), subtable.prefix_len(rule),
                       TWELVE_BYTES(key.bytes), key.len, TWELVE_BYTES(key.prefix));
    }
}

template <const subtable_t &subtable>
lookup_key_t make_key(const fwx_nat64_mapt_bmr_t &rule) {
    lookup_key_t key;
    const uint8_t prefix_len = subtable.prefix_len(rule);
    fwx_memcpy(key.prefix, subtable.prefix(rule), (prefix_len + 7U) / 8);
    fwx_mapt_plu_make_effective_prefix(subtable.tag, plu_tag_bits, key.prefix, prefix_len, key.bytes, &key.len);
    return key;
}

/* Gets the leaf size of a tree, and the leaf under a key, null when there is none. */
uint32_t look_up(tbm_t *tree, const lookup_key_t &key, const char *caller, uint32_t *leaf_size, tbm_leaf_t **leaf) {
    uint32_t rc = 0;
    *leaf_size = tbm_get_leaf_size(tree, &rc);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: unable to get leaf size, rc(%s) ", caller, xerr_strerror(rc));
        return rc;
    }
    *leaf = tbm_exact_match(tree, key.bytes, key.len, &rc);
    if (rc != 0) NAT64_LOG_ERROR("\n%s: TBM exact match lookup failed , %s", caller, xerr_strerror(rc));
    return rc;
}

/* The tree library fetches the staged data during the insert. */
void stage_leaf_data(uint32_t bmr_index) {
    fwx_mapt_plu_staged_app_leaf = {};
    fwx_mapt_plu_staged_app_leaf.mapt_bmr = __builtin_bswap32(bmr_index);
}

template <const subtable_t &subtable>
uint32_t add_rule(tbm_t *tree, const fwx_mapt_rule_hash_elem_t *elem) {
    const char *name = subtable.add_name;
    const lookup_key_t key = make_key<subtable>(elem->rule);
    log_adding<subtable>(elem->rule, key);

    uint32_t leaf_size = 0;
    tbm_leaf_t *leaf = nullptr;
    uint32_t rc = look_up(tree, key, name, &leaf_size, &leaf);
    if (rc != 0) return rc;
    if (leaf != nullptr) {
        NAT64_LOG_INFO("\n%s: TBM exact match found tbm leaf %p) leaf app_data (%p) tbm_leaf_size(%u)", name,
                       static_cast<void *>(leaf),
                       reinterpret_cast<void *>(reinterpret_cast<uint8_t *>(leaf) + leaf_size), leaf_size);
        return 0;
    }

    void *memory = fwx_calloc_named(plu_memory_tag, 1, leaf_size + sizeof(fwx_mapt_app_leaf_t));
    if (memory == nullptr) {
        NAT64_LOG_ERROR_EITHER(subtable.is_v4(), "\n%s:TBM leaf allocation failed, rc(%s) ",
                               "\n%s:TBM leaf allocation failed, rc(%s)", name, xerr_strerror(ENOMEM));
        return ENOMEM;
    }
    NAT64_LOG_INFO("\n%s:new TBM leaf(%p) leaf_app_data(%p) tbm_leaf_size(%u)", name, memory,
                   static_cast<void *>(static_cast<uint8_t *>(memory) + leaf_size), leaf_size);
    leaf = static_cast<tbm_leaf_t *>(memory);
    tbm_leaf_init(tree, leaf, key.bytes, key.len, &rc);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s:leaf initialization failed, rc(%s)", name, xerr_strerror(rc));
        fwx_free_named(memory);
        return rc;
    }
    stage_leaf_data(elem->mapt_bmr);
    tbm_leaf_insert(tree, leaf, &rc);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: leaf insert failed  rc(%s)", name, xerr_strerror(FWX_NAT64_ERR_PLU_FAILED));
        fwx_free_named(memory);
        return FWX_NAT64_ERR_PLU_FAILED;
    }
    return 0;
}

template <const subtable_t &subtable>
uint32_t del_rule(tbm_t *tree, const fwx_nat64_mapt_bmr_t *bmr) {
    const char *name = subtable.del_name;
    if (tree == nullptr) {
        NAT64_LOG_ERROR("\n%s: tbm handle is null, rc(%s) ", name, xerr_strerror(EINVAL));
        return EINVAL;
    }
    const fwx_mapt_rule_hash_elem_t *elem = fwx_mapt_find_rule_hash_elem(bmr->rule_id, bmr->domain_id);
    if (elem == nullptr) {
        NAT64_LOG_ERROR("\n%s: hash elem does not exist, rc(%s) ", name, xerr_strerror(EINVAL));
        return EINVAL;
    }

    const lookup_key_t key = make_key<subtable>(elem->rule);
    uint32_t leaf_size = 0;
    tbm_leaf_t *leaf = nullptr;
    uint32_t rc = look_up(tree, key, name, &leaf_size, &leaf);
    if (rc != 0) return rc;
    if (leaf == nullptr) {
        NAT64_LOG_ERROR("\n%s:TBM leaf not found, rc(%s)", name, xerr_strerror(EINVAL));
        return EINVAL;
    }
    tbm_leaf_delete(tree, leaf, &rc);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s:leaf delete failed, rc(%s)", name, xerr_strerror(rc));
        return rc;
    }
    fwx_free_named(leaf);
    NAT64_LOG_INFO_EITHER(subtable.is_v4(), "\n%s Deleting from PLU v4 table successful",
                          "\n%s Deleting from PLU v6 table successful", name);
    return 0;
}

}  // namespace

uint32_t fwx_mapt_plu_add_rule_v4_subtable(tbm_t *tree, fwx_mapt_rule_hash_elem_t *elem, uint32_t /*complex*/) {
    return add_rule<v4_subtable>(tree, elem);
}

uint32_t fwx_mapt_plu_add_rule_v6_subtable(tbm_t *tree, fwx_mapt_rule_hash_elem_t *elem, uint32_t /*complex*/) {
    return add_rule<v6_subtable>(tree, elem);
}

uint32_t fwx_mapt_plu_add_rules_to_subtables(tbm_t *tree, fwx_mapt_rule_hash_elem_t *elem, uint32_t complex) {
    uint32_t rc = fwx_mapt_plu_add_rule_v4_subtable(tree, elem, complex);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: Failed to add rule to V4 subtable rc(%s)", __func__, xerr_strerror(rc));
        return rc;
    }
    rc = fwx_mapt_plu_add_rule_v6_subtable(tree, elem, complex);
    if (rc != 0) NAT64_LOG_ERROR("\n%s: Failed to add rule to V6 subtable rc(%s)", __func__, xerr_strerror(rc));
    return rc;
}

uint32_t fwx_mapt_plu_del_rule_v4_subtable(tbm_t *tree, const fwx_nat64_mapt_bmr_t *bmr) {
    return del_rule<v4_subtable>(tree, bmr);
}

uint32_t fwx_mapt_plu_del_rule_v6_subtable(tbm_t *tree, const fwx_nat64_mapt_bmr_t *bmr) {
    return del_rule<v6_subtable>(tree, bmr);
}

uint32_t fwx_mapt_plu_del_rule_from_subtables(tbm_t *tree, const fwx_nat64_mapt_bmr_t *bmr) {
    uint32_t rc = fwx_mapt_plu_del_rule_v4_subtable(tree, bmr);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: Failed to delete rule to V4 subtable rc(%s)", __func__, xerr_strerror(rc));
        return rc;
    }
    rc = fwx_mapt_plu_del_rule_v6_subtable(tree, bmr);
    if (rc != 0) NAT64_LOG_ERROR("\n%s: Failed to delete rule to V6 subtable rc(%s)", __func__, xerr_strerror(rc));
    return rc;
}

uint32_t fwx_mapt_tbm_plu_leaf_contents_func_t_v2(void * /*unused*/, void *buffer, void *app_leaf, void *app_handle) {
    if (buffer == nullptr) {
        NAT64_LOG_ERROR("\n%s: buffer(%p) app_handle(%p)", __func__, buffer, app_handle);
        return 1;
    }
    NAT64_LOG_INFO("\n %s : fwx_mapt_app_leaf mapt_bmr %d   app_leaf(%p)", __func__,
                   __builtin_bswap32(fwx_mapt_plu_staged_app_leaf.mapt_bmr), app_leaf);
    fwx_memcpy(buffer, &fwx_mapt_plu_staged_app_leaf, sizeof(fwx_mapt_plu_staged_app_leaf));
    return 0;
}
