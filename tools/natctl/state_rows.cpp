#include "tools/natctl/state_rows.h"

#include <arpa/inet.h>

#include <string>

#include "fwx_nat64_model/model.h"

namespace {

/* --- Payloads that hold their record as it is, but for IPv4 addresses, which are in network order. --- */

constexpr size_t no_address = SIZE_MAX;

template <size_t at>
void swap_address(uint8_t *record) {
    if constexpr (at != no_address) {
        auto address = from_bytes<fwx_nat64_addr_t>(record + at);
        if (address.family != FWX_NAT64_FAMILY_IPV4) return;
        const uint32_t word = htonl(from_bytes<uint32_t>(address.addr));
        std::memcpy(record + at + offsetof(fwx_nat64_addr_t, addr), &word, sizeof word);
    }
}

template <typename record_t, size_t at, size_t address1, size_t address2>
void copy_out(const uint8_t *payload, uint8_t *record) {
    std::memcpy(record, payload + at, sizeof(record_t));
    swap_address<address1>(record);
    swap_address<address2>(record);
}
template <typename record_t, size_t at, size_t address1, size_t address2>
void copy_in(const uint8_t *record, uint8_t *payload) {
    std::memcpy(payload + at, record, sizeof(record_t));
    swap_address<address1>(payload + at);
    swap_address<address2>(payload + at);
}

/* --- Those that do not. --- */

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

void nvi_out(const uint8_t *payload, uint8_t *record) {
    std::memcpy(record, payload, sizeof(uint32_t));
}
void nvi_in(const uint8_t *record, uint8_t *bytes) {
    fwx_nat64_intf_payload_t payload{};
    payload.ifh = from_bytes<uint32_t>(record);
    payload.enable = payload.nvi = 1;
    std::memcpy(bytes, &payload, sizeof payload);
}

/* An add says its second part twice, a modify has none. */
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

void id_out(const uint8_t *payload, uint8_t *record) {
    std::memcpy(record, payload, sizeof(uint32_t));
}
void id_in(const uint8_t *record, uint8_t *bytes) {
    const fwx_nat64_delete_payload_t payload = {from_bytes<uint32_t>(record), 1};
    std::memcpy(bytes, &payload, sizeof payload);
}

/* --- The table. --- */

constexpr uint32_t add = FWX_NAT64_OP_ADD;
constexpr uint32_t mod = FWX_NAT64_OP_MOD;
constexpr uint32_t del = FWX_NAT64_OP_DEL;

template <typename payload_t, typename record_t = payload_t, size_t at = 0, size_t address1 = no_address,
          size_t address2 = no_address>
constexpr state_row_t copied(uint32_t op_code, std::string_view family, uint32_t op) {
    return {op_code,
            family,
            op,
            sizeof(payload_t),
            copy_out<record_t, at, address1, address2>,
            copy_in<record_t, at, address1, address2>};
}
constexpr state_row_t with(state_row_t row, size_t flag_at, uint32_t flag) {
    row.flag_at = flag_at;
    row.flag = flag;
    return row;
}

constexpr auto service_row =
    copied<fwx_nat64_service_payload_t, fwx_nat64_service_t, offsetof(fwx_nat64_service_payload_t, service)>;
constexpr auto prefix_row =
    copied<fwx_nat64_glb_prefix_payload_t, fwx_nat64_prefix_t, offsetof(fwx_nat64_glb_prefix_payload_t, prefix)>;
constexpr auto rule_row = copied<saved_rule_t, fwx_nat64_mapt_bmr_t, offsetof(saved_rule_t, rule)>;
constexpr auto default_row = copied<fwx_nat64_mapt_dmr_t>;
constexpr size_t first_of_range = offsetof(fwx_nat64_pool_range_t, start_addr);
constexpr size_t last_of_range = offsetof(fwx_nat64_pool_range_t, end_addr);

constexpr state_row_t rows[] = {
    copied<fwx_nat64_timeout_t>(FWX_NAT64_CFG_TIMEOUT_SET, "timeout", add),
    copied<fwx_nat64_limit_t>(FWX_NAT64_CFG_LIMIT_SET, "limit", add),
    copied<fwx_nat64_limit_t>(FWX_NAT64_CFG_LIMIT_DEL, "limit", del),
    with(service_row(FWX_NAT64_CFG_SERVICE_SET, "service", add), 0, 1),
    with(service_row(FWX_NAT64_CFG_SERVICE_SET, "service", del), 0, 0),
    copied<fwx_nat64_adj_t, fwx_nat64_adj_t, 0, offsetof(fwx_nat64_adj_t, address)>(FWX_NAT64_CFG_ADJ_SET, "adj", add),
    with(copied<fwx_nat64_replication_t>(FWX_NAT64_CFG_REPLICATION_SET, "replication", add),
         offsetof(fwx_nat64_replication_t, set), 1),
    copied<fwx_nat64_replication_t>(FWX_NAT64_CFG_REPLICATION_UNSET, "replication", del),
    copied<fwx_nat64_global_settings_t>(FWX_NAT64_CFG_GLOBAL_SETTINGS, "settings", add),
    {FWX_NAT64_CFG_INTF_SET, "interface", add, sizeof(fwx_nat64_intf_payload_t), interface_out, interface_in},
    {FWX_NAT64_CFG_NVI_INTF_ENABLE, "nvi", add, sizeof(fwx_nat64_intf_payload_t), nvi_out, nvi_in},
    with(prefix_row(FWX_NAT64_CFG_GLB_PREFIX, "prefix", add), 0, 1),
    with(prefix_row(FWX_NAT64_CFG_GLB_PREFIX, "prefix", del), 0, 0),
    with(prefix_row(FWX_NAT64_CFG_GLB_PREFIX_KIND2, "prefix", add), 0, 1),
    with(prefix_row(FWX_NAT64_CFG_GLB_PREFIX_KIND2, "prefix", del), 0, 0),
    {FWX_NAT64_CFG_POOL_ADD, "pool", add, sizeof(fwx_nat64_pool_payload_t), pool_out, pool_in},
    {FWX_NAT64_CFG_POOL_DEL, "pool", del, sizeof(fwx_nat64_delete_payload_t), id_out, id_in},
    copied<fwx_nat64_pool_range_t, fwx_nat64_pool_range_t, 0, first_of_range, last_of_range>(
        FWX_NAT64_CFG_POOL_RANGE_ADD, "range", add),
    with(copied<fwx_nat64_pool_range_del_payload_t, fwx_nat64_pool_range_t, 0, first_of_range, last_of_range>(
             FWX_NAT64_CFG_POOL_RANGE_DEL, "range", del),
         offsetof(fwx_nat64_pool_range_del_payload_t, one), 1),
    copied<fwx_nat64_smapping_t, fwx_nat64_smapping_t, 0, offsetof(fwx_nat64_smapping_t, addr1),
           offsetof(fwx_nat64_smapping_t, addr2)>(FWX_NAT64_CFG_SMAPPING_ADD, "smapping", add),
    {FWX_NAT64_CFG_SMAPPING_DEL, "smapping", del, sizeof(fwx_nat64_delete_payload_t), id_out, id_in},
    {FWX_NAT64_CFG_DMAPPING_ADD, "dmapping", add, sizeof(fwx_nat64_dmapping_payload_t), dmapping_out, dmapping_in},
    {FWX_NAT64_CFG_DMAPPING_MOD, "dmapping", mod, sizeof(fwx_nat64_dmapping_payload_t), dmapping_out, dmapping_mod_in},
    {FWX_NAT64_CFG_DMAPPING_DEL, "dmapping", del, sizeof(fwx_nat64_delete_payload_t), id_out, id_in},
    {FWX_NAT64_CFG_LOGGING_ADD, "logging", add, sizeof(fwx_nat64_logging_payload_t), logging_out, logging_in},
    {FWX_NAT64_CFG_LOGGING_MOD, "logging", mod, sizeof(fwx_nat64_logging_payload_t), logging_out, logging_in},
    {FWX_NAT64_CFG_LOGGING_DEL, "logging", del, sizeof(fwx_nat64_logging_payload_t), logging_out, logging_in},
    rule_row(FWX_NAT64_MODEL_SAVED_BASIC_RULE, "mapt bmr", add),
    rule_row(FWX_NAT64_MODEL_SAVED_BASIC_RULE_DEL, "mapt bmr", del),
    default_row(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE, "mapt dmr", add),
    default_row(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_DEL, "mapt dmr", del),
};

}  // namespace

const state_row_t *state_row_of_payload(uint32_t op_code, const uint8_t *payload, size_t size) {
    for (const state_row_t &row : rows) {
        const bool is_this = row.op_code == op_code && row.payload_size == size;
        if (is_this && (row.flag_at == SIZE_MAX || from_bytes<uint32_t>(payload + row.flag_at) == row.flag))
            return &row;
    }
    return nullptr;
}

const state_row_t *state_row_of_command(const record_family_t &family, uint32_t op, const uint8_t *record) {
    const std::string text = record_command_text(family, nullptr);
    const bool is_kind2 = text == "prefix" && from_bytes<fwx_nat64_prefix_t>(record).kind == FWX_NAT64_PREFIX_KIND2;
    for (const state_row_t &row : rows) {
        if (row.family != text || row.op != op) continue;
        if (!is_kind2 || row.op_code == FWX_NAT64_CFG_GLB_PREFIX_KIND2) return &row;
    }
    return nullptr;
}
