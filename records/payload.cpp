/* Converters for the payloads that do not contain their record unchanged. `_out` reads a payload, `_in` writes one. */
#include "records/payload.h"

#include <arpa/inet.h>

namespace {

template <typename type_t>
type_t from_bytes(const void *bytes) {
    type_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

void interface_out(const uint8_t *bytes, uint8_t *record) {
    const auto payload = from_bytes<fwx_nat64_intf_payload_t>(bytes);
    const fwx_nat64_intf_info_t info = {payload.ifh,
                                        payload.enable,
                                        payload.sless_prefix_valid,
                                        payload.sless_prefix,
                                        payload.sful_prefix_valid,
                                        payload.sful_prefix,
                                        payload.sless_prefix_v6v4_valid,
                                        payload.sless_prefix_v6v4,
                                        payload.mtu_valid,
                                        payload.mtu};
    std::memcpy(record, &info, sizeof info);
}
void interface_in(const uint8_t *record, uint8_t *bytes) {
    const auto info = from_bytes<fwx_nat64_intf_info_t>(record);
    const fwx_nat64_intf_payload_t payload = {info.ifh,
                                              info.enable,
                                              0,
                                              info.sless_prefix_valid,
                                              info.sful_prefix_valid,
                                              info.sless_prefix_v6v4_valid,
                                              info.sless_prefix,
                                              info.sful_prefix,
                                              info.sless_prefix_v6v4,
                                              info.mtu_valid,
                                              info.mtu,
                                              {}};
    std::memcpy(bytes, &payload, sizeof payload);
}

void ifh_out(const uint8_t *payload, uint8_t *record) {
    std::memcpy(record, payload, sizeof(uint32_t));
}
void nvi_in(const uint8_t *record, uint8_t *bytes) {
    fwx_nat64_intf_payload_t payload{};
    payload.ifh = from_bytes<uint32_t>(record);
    payload.enable = payload.nvi = 1;
    std::memcpy(bytes, &payload, sizeof payload);
}

/* An add has its second part twice, a modify has none. */
void dmapping_out(const uint8_t *bytes, uint8_t *record) {
    std::memcpy(record, bytes, sizeof(fwx_nat64_dmapping_t));
}
void dmapping_in(const uint8_t *record, uint8_t *bytes) {
    fwx_nat64_dmapping_payload_t payload{};
    payload.map = from_bytes<fwx_nat64_dmapping_t>(record);
    std::memcpy(payload.second, payload.map.ext, sizeof payload.second);
    payload.ext_arg = payload.map.ext_arg;
    std::memcpy(bytes, &payload, sizeof payload);
}
void dmapping_mod_in(const uint8_t *record, uint8_t *bytes) {
    fwx_nat64_dmapping_payload_t payload{};
    payload.map = from_bytes<fwx_nat64_dmapping_t>(record);
    payload.second[0] = FWX_NAT64_DMAPPING_NO_SECOND_PART;
    std::memcpy(bytes, &payload, sizeof payload);
}

void pool_out(const uint8_t *bytes, uint8_t *record) {
    const auto payload = from_bytes<fwx_nat64_pool_payload_t>(bytes);
    fwx_nat64_pool_t pool{};
    pool.id = payload.id;
    pool.family = pool.start_addr.family = pool.end_addr.family = FWX_NAT64_FAMILY_IPV4;
    pool.param = payload.param;
    pool.hsl_id = payload.hsl_id;
    const uint32_t words[] = {ntohl(payload.start_addr), ntohl(payload.end_addr)};
    std::memcpy(pool.start_addr.addr, &words[0], sizeof words[0]);
    std::memcpy(pool.end_addr.addr, &words[1], sizeof words[1]);
    std::memcpy(record, &pool, sizeof pool);
}
void pool_in(const uint8_t *record, uint8_t *bytes) {
    const auto pool = from_bytes<fwx_nat64_pool_t>(record);
    const fwx_nat64_pool_payload_t payload = {pool.id,
                                              pool.param,
                                              pool.hsl_id,
                                              pool.id,
                                              htonl(from_bytes<uint32_t>(pool.start_addr.addr)),
                                              htonl(from_bytes<uint32_t>(pool.end_addr.addr))};
    std::memcpy(bytes, &payload, sizeof payload);
}

void logging_out(const uint8_t *bytes, uint8_t *record) {
    const auto payload = from_bytes<fwx_nat64_logging_payload_t>(bytes);
    fwx_nat64_logging_t logging{};
    logging.type = FWX_NAT64_LOGGING_TYPE;
    logging.mode = payload.mode;
    logging.param = payload.param;
    logging.dest.family = FWX_NAT64_FAMILY_IPV4;
    const uint32_t word = ntohl(payload.dest);
    std::memcpy(logging.dest.addr, &word, sizeof word);
    logging.dest_port = payload.dest_port;
    logging.param2 = payload.param2;
    std::memcpy(record, &logging, sizeof logging);
}
void logging_in(const uint8_t *record, uint8_t *bytes) {
    const auto logging = from_bytes<fwx_nat64_logging_t>(record);
    const fwx_nat64_logging_payload_t payload = {htonl(from_bytes<uint32_t>(logging.dest.addr)),
                                                 0,
                                                 logging.dest_port,
                                                 logging.param2,
                                                 logging.mode,
                                                 logging.param,
                                                 {}};
    std::memcpy(bytes, &payload, sizeof payload);
}

}  // namespace

void record_swap_address(uint8_t *address) {
    const auto swapped = from_bytes<fwx_nat64_addr_t>(address);
    if (swapped.family != FWX_NAT64_FAMILY_IPV4) return;
    const uint32_t word = htonl(from_bytes<uint32_t>(swapped.addr));
    std::memcpy(address + offsetof(fwx_nat64_addr_t, addr), &word, sizeof word);
}

const record_payload_t record_interface_payloads[] = {
    {FWX_NAT64_CFG_INTF_SET, FWX_NAT64_OP_ADD, sizeof(fwx_nat64_intf_payload_t), interface_out, interface_in},
};
const record_payload_t record_nvi_payloads[] = {
    {FWX_NAT64_CFG_NVI_INTF_ENABLE, FWX_NAT64_OP_ADD, sizeof(fwx_nat64_intf_payload_t), ifh_out, nvi_in},
};
const record_payload_t record_pool_payloads[] = {
    {FWX_NAT64_CFG_POOL_ADD, FWX_NAT64_OP_ADD, sizeof(fwx_nat64_pool_payload_t), pool_out, pool_in},
    {FWX_NAT64_CFG_POOL_ADD, FWX_NAT64_OP_MOD, sizeof(fwx_nat64_pool_payload_t), pool_out, pool_in},
    record_deleted_by_id(FWX_NAT64_CFG_POOL_DEL),
};
const record_payload_t record_dmapping_payloads[] = {
    {FWX_NAT64_CFG_DMAPPING_ADD, FWX_NAT64_OP_ADD, sizeof(fwx_nat64_dmapping_payload_t), dmapping_out, dmapping_in},
    {FWX_NAT64_CFG_DMAPPING_MOD, FWX_NAT64_OP_MOD, sizeof(fwx_nat64_dmapping_payload_t), dmapping_out, dmapping_mod_in},
    record_deleted_by_id(FWX_NAT64_CFG_DMAPPING_DEL),
};
const record_payload_t record_logging_payloads[] = {
    {FWX_NAT64_CFG_LOGGING_ADD, FWX_NAT64_OP_ADD, sizeof(fwx_nat64_logging_payload_t), logging_out, logging_in},
    {FWX_NAT64_CFG_LOGGING_MOD, FWX_NAT64_OP_MOD, sizeof(fwx_nat64_logging_payload_t), logging_out, logging_in},
    {FWX_NAT64_CFG_LOGGING_DEL, FWX_NAT64_OP_DEL, sizeof(fwx_nat64_logging_payload_t), logging_out, logging_in},
};
