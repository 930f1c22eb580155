/* The hash tables of pending and of installed rules. The key is Rule ID and Domain ID; one implementation serves both
 * tables, because they differ only in their handle and their log lines. */
#include "client/log.h"
#include "mapt/plu.h"

namespace {

/* The differences between the two tables. */
struct rule_table_t {
    fwx_cl_hash_t **hash;
    bool is_pending;
    const char *add_name;
    const char *del_name;
};

constexpr rule_table_t pending_table = {&fwx_mapt_plu_pending_hash, true, "fwx_mapt_add_pending_rule_hash_elem",
                                        "fwx_mapt_del_pending_rule_hash_elem"};
constexpr rule_table_t installed_table = {&fwx_mapt_plu_rule_hash, false, "fwx_mapt_add_rule_hash_elem",
                                          "fwx_mapt_del_rule_hash_elem"};

uint64_t key_of(uint32_t rule_id, uint32_t domain_id) {
    return (uint64_t{rule_id} << 32) | domain_id;
}
uint64_t key_of(const fwx_nat64_mapt_bmr_t &rule) {
    return key_of(rule.rule_id, rule.domain_id);
}

fwx_mapt_rule_hash_elem_t *find(fwx_cl_hash_t *hash, uint64_t key) {
    return hash != nullptr ? static_cast<fwx_mapt_rule_hash_elem_t *>(fwx_cl_hash_find(hash, key)) : nullptr;
}

template <const rule_table_t &table>
uint32_t enter(fwx_mapt_rule_hash_elem_t *elem) {
    const uint64_t key = key_of(elem->rule);
    if (find(*table.hash, key) != nullptr) return FWX_NAT64_ERR_EXISTS;
    const uint32_t rc = fwx_cl_hash_add(*table.hash, key, elem);
    if (rc != 0) {
        NAT64_LOG_ERROR_EITHER(table.is_pending,
                               "\n %s:Adding element to Pending MAPT hash failed for Rule ID %d Domain ID %d- %s",
                               "\n %s:Adding element to MAPT hash failed for Rule ID %d Domain ID %d- %s",
                               table.add_name, elem->rule.rule_id, elem->rule.domain_id, xerr_strerror(rc));
        return rc;
    }
    NAT64_LOG_INFO_EITHER(table.is_pending, "\n%s Added hash elem Rule ID %d,Domain ID %d",
                          "\n%s Added elem Rule ID %d,Domain ID %d", table.add_name, elem->rule.rule_id,
                          elem->rule.domain_id);
    return 0;
}

template <const rule_table_t &table>
uint32_t remove(const fwx_mapt_rule_hash_elem_t *elem) {
    const uint64_t key = key_of(elem->rule);
    if (find(*table.hash, key) == nullptr) return FWX_NAT64_ERR_NOT_FOUND;
    const uint32_t rc = fwx_cl_hash_delete(*table.hash, key);
    if (rc != 0) {
        NAT64_LOG_ERROR_EITHER(table.is_pending,
                               "\n%s: Del element to Pending MAPT hash failed for Rule ID %d Domain ID %d- %s",
                               "\n%s: Del element to MAPT hash failed for Rule ID %d Domain ID %d- %s", table.del_name,
                               elem->rule.rule_id, elem->rule.domain_id, xerr_strerror(rc));
    }
    return rc;
}

}  // namespace

fwx_mapt_rule_hash_elem_t *fwx_mapt_find_pending_rule_hash_elem(uint32_t rule_id, uint32_t domain_id) {
    return find(fwx_mapt_plu_pending_hash, key_of(rule_id, domain_id));
}

fwx_mapt_rule_hash_elem_t *fwx_mapt_find_rule_hash_elem(uint32_t rule_id, uint32_t domain_id) {
    return find(fwx_mapt_plu_rule_hash, key_of(rule_id, domain_id));
}

uint32_t fwx_mapt_pending_rule_hash_elem_exists(uint32_t rule_id, uint32_t domain_id) {
    return fwx_mapt_find_pending_rule_hash_elem(rule_id, domain_id) != nullptr ? 1 : 0;
}

uint32_t fwx_mapt_rule_hash_elem_exists(uint32_t rule_id, uint32_t domain_id) {
    return fwx_mapt_find_rule_hash_elem(rule_id, domain_id) != nullptr ? 1 : 0;
}

uint32_t fwx_mapt_add_pending_rule_hash_elem(fwx_mapt_rule_hash_elem_t *elem) {
    return enter<pending_table>(elem);
}
uint32_t fwx_mapt_add_rule_hash_elem(fwx_mapt_rule_hash_elem_t *elem) {
    return enter<installed_table>(elem);
}
uint32_t fwx_mapt_del_pending_rule_hash_elem(fwx_mapt_rule_hash_elem_t *elem) {
    return remove<pending_table>(elem);
}
uint32_t fwx_mapt_del_rule_hash_elem(fwx_mapt_rule_hash_elem_t *elem) {
    return remove<installed_table>(elem);
}

void plu_release_elem(fwx_mapt_rule_hash_elem_t *elem, fwx_cl_hash_t *other) {
    if (plu_elem_may_stand_twice && find(other, key_of(elem->rule)) == elem) return;
    chunk_free(fwx_mapt_plu_rule_chunk, elem);
}
