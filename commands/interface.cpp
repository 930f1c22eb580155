/* Configuration commands of interfaces and global prefixes. Fields that the caller does not give travel as zeros. */
#include "client/log.h"
#include "commands/envelope.h"
#include "fwx_nat64/client.h"
#include "fwx_nat64/config.h"
#include "fwx_nat64/result.h"
#include "fwx_nat64/wire.h"
#include "platform/runtime.h"

namespace {

const char *true_or_false(uint32_t value) {
    return value != 0 ? "TRUE" : "FALSE";
}

/* Arguments of one prefix in the log line: its twelve bytes and its length. */
#define PREFIX_ARGS(p)                                                                                       \
    (p).prefix[0], (p).prefix[1], (p).prefix[2], (p).prefix[3], (p).prefix[4], (p).prefix[5], (p).prefix[6], \
        (p).prefix[7], (p).prefix[8], (p).prefix[9], (p).prefix[10], (p).prefix[11], (p).prefix_len
#define PREFIX_FORMAT "(0x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x%02x/%u)"

void copy_if_valid(fwx_nat64_prefix_t *slot, const fwx_nat64_prefix_t &prefix, uint32_t valid) {
    if (valid != 0) *slot = prefix;
}

uint32_t send_glb_prefix(const fwx_nat64_prefix_t *prefix, uint32_t add, void *pal_ctx) {
    if (fwx_nat64_client_info_get() == nullptr) return FWX_NAT64_ERR_NOT_READY;
    if (prefix == nullptr || prefix->kind < 1 || prefix->kind > FWX_NAT64_PREFIX_KIND_MAX) return FWX_NAT64_ERR_INVALID;
    const uint32_t op_code =
        prefix->kind == FWX_NAT64_PREFIX_KIND2 ? FWX_NAT64_CFG_GLB_PREFIX_KIND2 : FWX_NAT64_CFG_GLB_PREFIX;
    const fwx_nat64_glb_prefix_payload_t payload = {add, *prefix};
    return fwx_nat64_client_cfg_cmd_send_a(op_code, &payload, sizeof(payload), pal_ctx);
}

}  // namespace

uint32_t fwx_nat64_interface_set_a(const fwx_nat64_intf_info_t *info, void *pal_ctx) {
    if (fwx_nat64_client_info_get() == nullptr || info == nullptr) return FWX_NAT64_ERR_NOT_READY;

    fwx_nat64_intf_payload_t payload;
    fwx_memset(&payload, 0, sizeof(payload));
    payload.ifh = info->ifh;
    payload.enable = info->enable;
    payload.sless_prefix_valid = info->sless_prefix_valid;
    payload.sful_prefix_valid = info->sful_prefix_valid;
    payload.sless_prefix_v6v4_valid = info->sless_prefix_v6v4_valid;
    payload.mtu_valid = info->mtu_valid;
    if (info->mtu_valid != 0) payload.mtu = info->mtu;
    NAT64_LOG_INFO(
        "\n%s to modify interface prefix for ifh=%d mtu_valid (%s) mtu (%u) sless_prefix_valid (%s) "
        "sful_prefix_valid (%s) sless_prefix_v6v4_valid (%s) sless_prefix" PREFIX_FORMAT " sful_prefix" PREFIX_FORMAT
        " sless_prefix_v6v4" PREFIX_FORMAT,
        __func__, info->ifh, true_or_false(info->mtu_valid), info->mtu, true_or_false(info->sless_prefix_valid),
        true_or_false(info->sful_prefix_valid), true_or_false(info->sless_prefix_v6v4_valid),
        PREFIX_ARGS(info->sless_prefix), PREFIX_ARGS(info->sful_prefix), PREFIX_ARGS(info->sless_prefix_v6v4));
    copy_if_valid(&payload.sless_prefix, info->sless_prefix, info->sless_prefix_valid);
    copy_if_valid(&payload.sful_prefix, info->sful_prefix, info->sful_prefix_valid);
    copy_if_valid(&payload.sless_prefix_v6v4, info->sless_prefix_v6v4, info->sless_prefix_v6v4_valid);
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_INTF_SET, &payload, sizeof(payload), pal_ctx);
}

uint32_t fwx_nat64_nvi_interface_enable_a(uint32_t ifh, void *pal_ctx) {
    if (fwx_nat64_client_info_get() == nullptr) return FWX_NAT64_ERR_NOT_READY;
    fwx_nat64_intf_payload_t payload;
    fwx_memset(&payload, 0, sizeof(payload));
    payload.ifh = ifh;
    payload.enable = 1;
    payload.nvi = 1;
    return fwx_nat64_client_cfg_cmd_send_a(FWX_NAT64_CFG_NVI_INTF_ENABLE, &payload, sizeof(payload), pal_ctx);
}

uint32_t fwx_nat64_glb_prefix_add_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx) {
    return send_glb_prefix(prefix, 1, pal_ctx);
}

/* The server itself distinguishes a modification from an addition. */
uint32_t fwx_nat64_glb_prefix_mod_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx) {
    return send_glb_prefix(prefix, 1, pal_ctx);
}

uint32_t fwx_nat64_glb_prefix_del_a(const fwx_nat64_prefix_t *prefix, void *pal_ctx) {
    return send_glb_prefix(prefix, 0, pal_ctx);
}
