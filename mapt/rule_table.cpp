/* The operations on MAP-T rules: add as pending, install at the server's reply, delete. Elements come from one pool,
 * and move from the pending to the installed table. */
#include "client/log.h"
#include "fwx_nat64/wire.h"
#include "mapt/plu.h"

namespace {

constexpr char element_pool_name[] = "VKT NAT64 MAPT Rule Hash Chunk";
constexpr uint32_t element_pool_elements = 4096;

uint32_t delete_pending(fwx_mapt_rule_hash_elem_t *elem, const char *caller) {
    const uint32_t rc = fwx_mapt_del_pending_rule_hash_elem(elem);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s : Removing prefix from pending hash failed %s ", caller, xerr_strerror(rc));
        return rc;
    }
    plu_release_elem(elem, fwx_mapt_plu_rule_hash);
    return 0;
}

uint32_t delete_installed(fwx_mapt_rule_hash_elem_t *elem, const fwx_nat64_mapt_bmr_t *bmr, const char *caller) {
    uint32_t rc = fwx_mapt_plu_del_rule_from_fwxs(bmr);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s:plu rule delete failed, rc(%s)", caller, xerr_strerror(rc));
        return rc;
    }
    rc = fwx_mapt_del_rule_hash_elem(elem);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s : Removing prefix from rule hash failed %s ", caller, xerr_strerror(rc));
        return rc;
    }
    plu_release_elem(elem, fwx_mapt_plu_pending_hash);
    return 0;
}

}  // namespace

uint32_t fwx_mapt_plu_add_pending_rule(const fwx_nat64_mapt_bmr_t *bmr) {
    if (bmr == nullptr) {
        NAT64_LOG_ERROR("\n%s: BMR is NULL", __func__);
        return FWX_NAT64_ERR_INVALID;
    }
    if (!plu_fits_its_fields(*bmr)) {
        NAT64_LOG_ERROR("\n%s: prefix lengths %u (V4) and %u (V6) exceed 32 and 64", __func__, bmr->v4_prefix_len,
                        bmr->v6_prefix_len);
        return FWX_NAT64_ERR_INVALID;
    }
    if (fwx_mapt_plu_pending_hash == nullptr) {
        const uint32_t rc = fwx_mapt_plu_create_pending_hash();
        if (rc != 0) {
            NAT64_LOG_ERROR("\n%s: failed to initialize pending rule hash tabe, %s", __func__, xerr_strerror(rc));
            return rc;
        }
    }
    if (fwx_mapt_plu_rule_chunk == nullptr) {
        fwx_mapt_plu_rule_chunk =
            fwx_chunk_create(element_pool_name, sizeof(fwx_mapt_rule_hash_elem_t), element_pool_elements, 257, 4, 0);
        if (fwx_mapt_plu_rule_chunk == nullptr) {
            NAT64_LOG_ERROR("\n%s: failed to create mapt rule hash chunk, %s", __func__, xerr_strerror(ENOMEM));
            return ENOMEM;
        }
    }

    auto *elem = static_cast<fwx_mapt_rule_hash_elem_t *>(chunk_malloc(fwx_mapt_plu_rule_chunk));
    if (elem == nullptr) {
        NAT64_LOG_ERROR("\n%s: no memory available for mapt rule hash chunk, %s", __func__, xerr_strerror(ENOMEM));
        return ENOMEM;
    }
    elem->rule = *bmr;
    const uint32_t rc = fwx_mapt_add_pending_rule_hash_elem(elem);
    if (rc != 0) {
        chunk_free(fwx_mapt_plu_rule_chunk, elem);
        NAT64_LOG_ERROR("\n%s: Add elem failed, %s", __func__, xerr_strerror(rc));
    }
    return rc;
}

uint32_t fwx_mapt_plu_add_rule(const void *reply) {
    if (reply == nullptr || fwx_mapt_plu_pending_hash == nullptr) return FWX_NAT64_ERR_INVALID;

    const auto *answer = static_cast<const fwx_nat64_mapt_reply_t *>(reply);
    fwx_mapt_rule_hash_elem_t *elem = fwx_mapt_find_pending_rule_hash_elem(answer->rule_id, answer->domain_id);
    if (elem == nullptr) return 0; /* deleted while its command was outstanding */
    elem->mapt_bmr = answer->bmr_index;

    uint32_t rc = fwx_mapt_del_pending_rule_hash_elem(elem);
    const bool still_pending = rc != 0;
    if (still_pending) {
        plu_elem_may_stand_twice = true;
        NAT64_LOG_ERROR("\n%s: PLU rule insert failed %s", __func__, xerr_strerror(rc));
    }

    if (fwx_mapt_plu_rule_hash == nullptr) {
        rc = fwx_mapt_plu_create_rule_hash();
        if (rc != 0) {
            if (!still_pending) plu_release_elem(elem, fwx_mapt_plu_rule_hash);
            NAT64_LOG_ERROR("\n%s: failed to initialize rule hash tabe, %s", __func__, xerr_strerror(rc));
            return rc;
        }
    }
    rc = fwx_mapt_add_rule_hash_elem(elem);
    if (rc != 0) {
        if (!still_pending) plu_release_elem(elem, fwx_mapt_plu_rule_hash);
        NAT64_LOG_ERROR("\n%s: Add rule hash elem failed, %s", __func__, xerr_strerror(rc));
        return rc;
    }
    rc = fwx_mapt_plu_rule_insert(elem);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: PLU rule insert failed %s", __func__, xerr_strerror(rc));
        return rc;
    }
    NAT64_LOG_INFO("\n%s Adding to PLU successful", __func__);
    return 0;
}

uint32_t fwx_mapt_plu_del_rule(const fwx_nat64_mapt_bmr_t *bmr) {
    if (bmr == nullptr) return FWX_NAT64_ERR_INVALID;
    fwx_mapt_rule_hash_elem_t *elem = fwx_mapt_find_pending_rule_hash_elem(bmr->rule_id, bmr->domain_id);
    if (elem != nullptr) return delete_pending(elem, __func__);

    elem = fwx_mapt_find_rule_hash_elem(bmr->rule_id, bmr->domain_id);
    const uint32_t rc = elem != nullptr ? delete_installed(elem, bmr, __func__) : 0;
    if (rc != 0) return rc;
    NAT64_LOG_INFO("\n%s Deleting rule successful", __func__);
    return 0;
}
