#include "client/log.h"
#include "mapt/plu.h"

fwx_mapt_plu_t plu;

uint32_t fwx_mapt_plu_init(void) {
    NAT64_LOG_INFO("\n%s Initialzing PLU for MAPT", __func__);
    uint32_t rc = fwx_mapt_plu_init_stride_map(plu.stride_map);
    if (rc != 0) {
        NAT64_LOG_ERROR("\n%s: failed to initialize stride map %s", __func__, xerr_strerror(rc));
        return rc;
    }
    rc = fwx_mapt_plu_init_tbm_info(&plu.tbm_info);
    if (rc != 0) NAT64_LOG_ERROR("\n%s: failed to initialize tbm info %s", __func__, xerr_strerror(rc));
    return rc;
}

namespace {

/* The handle stays null when the facility fails, whatever it writes. */
uint32_t create_hash(const char *name, fwx_cl_hash_t **handle) {
    const uint32_t rc = fwx_cl_hash_create(name, 10, 3, nullptr, nullptr, handle);
    if (rc != 0) *handle = nullptr;
    return rc;
}

}  // namespace

uint32_t fwx_mapt_plu_create_pending_hash(void) {
    return create_hash("FWX MAPT Pending Hash", &plu.pending_hash);
}

uint32_t fwx_mapt_plu_create_rule_hash(void) {
    return create_hash("FWX MAPT Rule Hash", &plu.rule_hash);
}
