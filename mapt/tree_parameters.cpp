/* Parameters with which the lookup tree of every complex is created. */
#include "client/log.h"
#include "mapt/plu.h"

uint32_t fwx_mapt_plu_init_stride_map(uint32_t *map) {
    constexpr uint32_t stride_bits = 6;
    static_assert(plu_stride_slots * stride_bits >= plu_max_key_bits, "the map has room for the longest key");
    NAT64_LOG_INFO("\n%s Initialzing Stride MAP ", __func__);
    if (map == nullptr) return FWX_NAT64_ERR_INVALID;
    for (uint32_t covered = 0; covered < plu_max_key_bits; covered += stride_bits) {
        *map++ = stride_bits;
    }
    return 0;
}

uint32_t fwx_mapt_plu_init_tbm_info(fwx_mapt_plu_tbm_info_t *info) {
    if (info == nullptr) return EINVAL;
    info->initialised = 1;
    info->param1 = 7;
    info->param2 = 6;
    info->stride_map = fwx_mapt_plu_stride_map;
    info->param3 = 1;
    info->stride_slots = plu_stride_slots;
    info->param4 = 0;
    info->param5 = nullptr;
    info->leaf_contents = fwx_mapt_tbm_plu_leaf_contents_func_t_v2;
    info->param6 = nullptr;
    info->max_key_len = plu_max_key_bits;
    info->param7 = nullptr;
    return 0;
}
