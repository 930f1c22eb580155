#include "client/log.h"
#include "mapt/plu.h"

fwx_mapt_plu_tbm_info_t fwx_mapt_plu_tbm_info;
uint32_t fwx_mapt_plu_stride_map[plu_stride_slots];
fwx_cl_hash_t *fwx_mapt_plu_pending_hash;
fwx_cl_hash_t *fwx_mapt_plu_rule_hash;
fwx_chunk_t *fwx_mapt_plu_rule_chunk;
fwx_list_t *fwx_mapt_plu_complex_list;
fwx_mapt_app_leaf_t fwx_mapt_plu_staged_app_leaf;
bool plu_elem_may_stand_twice;

uint32_t fwx_mapt_plu_init(void) {
    NAT64_LOG_INFO("\n%s Initialzing PLU for MAPT", __func__);
    uint32_t rc = fwx_mapt_plu_init_stride_map(fwx_mapt_plu_stride_map);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: failed to initialize stride map %s", __func__, xerr_strerror(rc));
        return rc;
    }
    rc = fwx_mapt_plu_init_tbm_info(&fwx_mapt_plu_tbm_info);
    if (rc != 0) NAT64_LOG_ERROR("\n%s: failed to initialize tbm info %s", __func__, xerr_strerror(rc));
    return rc;
}

namespace {

/* Leaves the handle null when the facility fails, whatever it has written. */
uint32_t create_hash(const char *name, fwx_cl_hash_t **handle) {
    const uint32_t rc = fwx_cl_hash_create(name, 10, 3, nullptr, nullptr, handle);
    if (rc != 0) *handle = nullptr;
    return rc;
}

}  // namespace

uint32_t fwx_mapt_plu_create_pending_hash(void) {
    return create_hash("FWX MAPT Pending Hash", &fwx_mapt_plu_pending_hash);
}

uint32_t fwx_mapt_plu_create_rule_hash(void) {
    return create_hash("FWX MAPT Rule Hash", &fwx_mapt_plu_rule_hash);
}
