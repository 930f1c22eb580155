/* Description of the configuration commands. All have the same message number and envelope; the op code selects the
 * payload. First the fields of each payload, then the table of messages. */
#ifndef WIRE_CONFIG_MESSAGES_H
#define WIRE_CONFIG_MESSAGES_H

#include "wire/field.h"

namespace wire_config {

#define OP_CODE WIRE_FIELD("op_code", fwx_nat64_cfg_msg_t, op_code, number)

constexpr wire_field_t op_code_only[] = {OP_CODE};
constexpr wire_field_t interface[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("ifh", fwx_nat64_intf_payload_t, ifh, number),
    WIRE_PAYLOAD_FIELD("enable", fwx_nat64_intf_payload_t, enable, flag),
    WIRE_PAYLOAD_FIELD("nvi", fwx_nat64_intf_payload_t, nvi, flag),
    WIRE_PAYLOAD_FIELD("sless_prefix_valid", fwx_nat64_intf_payload_t, sless_prefix_valid, flag),
    WIRE_PAYLOAD_FIELD("sful_prefix_valid", fwx_nat64_intf_payload_t, sful_prefix_valid, flag),
    WIRE_PAYLOAD_FIELD("sless_prefix_v6v4_valid", fwx_nat64_intf_payload_t, sless_prefix_v6v4_valid, flag),
    WIRE_PREFIX_FIELDS("sless_prefix", fwx_nat64_intf_payload_t, sless_prefix),
    WIRE_PREFIX_FIELDS("sful_prefix", fwx_nat64_intf_payload_t, sful_prefix),
    WIRE_PREFIX_FIELDS("sless_prefix_v6v4", fwx_nat64_intf_payload_t, sless_prefix_v6v4),
    WIRE_PAYLOAD_FIELD("mtu_valid", fwx_nat64_intf_payload_t, mtu_valid, flag),
    WIRE_PAYLOAD_FIELD("mtu", fwx_nat64_intf_payload_t, mtu, number),
};
constexpr wire_field_t glb_prefix[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("add", fwx_nat64_glb_prefix_payload_t, add, flag),
    WIRE_PREFIX_FIELD("prefix", fwx_nat64_glb_prefix_payload_t, prefix),
    WIRE_NAMED_PAYLOAD_FIELD("prefix_kind", fwx_nat64_glb_prefix_payload_t, prefix.kind, wire_prefix_kind_names),
};
constexpr wire_field_t pool[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("id", fwx_nat64_pool_payload_t, id, number),
    WIRE_PAYLOAD_FIELD("param", fwx_nat64_pool_payload_t, param, number),
    WIRE_PAYLOAD_FIELD("hsl_id", fwx_nat64_pool_payload_t, hsl_id, number),
    WIRE_PAYLOAD_FIELD("id2", fwx_nat64_pool_payload_t, id2, number),
    WIRE_PAYLOAD_FIELD("start_addr", fwx_nat64_pool_payload_t, start_addr, ipv4),
    WIRE_PAYLOAD_FIELD("end_addr", fwx_nat64_pool_payload_t, end_addr, ipv4),
};
constexpr wire_field_t delete_by_id[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("id", fwx_nat64_delete_payload_t, id, number),
    WIRE_PAYLOAD_FIELD("one", fwx_nat64_delete_payload_t, one, number),
};
constexpr wire_field_t pool_range[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("id", fwx_nat64_pool_range_t, id, number),
    WIRE_PAYLOAD_FIELD("start_addr", fwx_nat64_pool_range_t, start_addr, address),
    WIRE_PAYLOAD_FIELD("end_addr", fwx_nat64_pool_range_t, end_addr, address),
};
constexpr wire_field_t pool_range_del[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("id", fwx_nat64_pool_range_del_payload_t, range.id, number),
    WIRE_PAYLOAD_FIELD("start_addr", fwx_nat64_pool_range_del_payload_t, range.start_addr, address),
    WIRE_PAYLOAD_FIELD("end_addr", fwx_nat64_pool_range_del_payload_t, range.end_addr, address),
    WIRE_PAYLOAD_FIELD("one", fwx_nat64_pool_range_del_payload_t, one, number),
};
constexpr wire_field_t smapping[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("id", fwx_nat64_smapping_t, id, number),
    WIRE_PAYLOAD_FIELD("opaque4", fwx_nat64_smapping_t, opaque4, bytes),
    WIRE_PAYLOAD_FIELD("addr1", fwx_nat64_smapping_t, addr1, address),
    WIRE_PAYLOAD_FIELD("opaque28", fwx_nat64_smapping_t, opaque28, bytes),
    WIRE_PAYLOAD_FIELD("addr2", fwx_nat64_smapping_t, addr2, address),
    WIRE_PAYLOAD_FIELD("opaque64", fwx_nat64_smapping_t, opaque64, bytes),
};
constexpr wire_field_t dmapping[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("id", fwx_nat64_dmapping_payload_t, map.id, number),
    WIRE_PAYLOAD_FIELD("opaque4", fwx_nat64_dmapping_payload_t, map.opaque4, bytes),
    WIRE_NAMED_PAYLOAD_FIELD("type", fwx_nat64_dmapping_payload_t, map.type, wire_dmapping_names),
    WIRE_PAYLOAD_FIELD("ext", fwx_nat64_dmapping_payload_t, map.ext, bytes),
    WIRE_PAYLOAD_FIELD("map_ext_arg", fwx_nat64_dmapping_payload_t, map.ext_arg, number),
    WIRE_PAYLOAD_FIELD("opaque44", fwx_nat64_dmapping_payload_t, map.opaque44, bytes),
    WIRE_PAYLOAD_FIELD("second", fwx_nat64_dmapping_payload_t, second, bytes),
    WIRE_PAYLOAD_FIELD("ext_arg", fwx_nat64_dmapping_payload_t, ext_arg, number),
};
constexpr wire_field_t timeout[] = {
    OP_CODE,
    WIRE_NAMED_PAYLOAD_FIELD("type", fwx_nat64_timeout_t, type, wire_timeout_names),
    WIRE_PAYLOAD_FIELD("value", fwx_nat64_timeout_t, value, number),
};
constexpr wire_field_t limit[] = {
    OP_CODE,
    WIRE_NAMED_PAYLOAD_FIELD("type", fwx_nat64_limit_t, type, wire_limit_names),
    WIRE_PAYLOAD_FIELD("value", fwx_nat64_limit_t, value, number),
};
constexpr wire_field_t session_clear[] = {
    OP_CODE,
    WIRE_NAMED_PAYLOAD_FIELD("value", fwx_nat64_session_filter_t, value, wire_protocol_names),
    WIRE_PAYLOAD_FIELD("src", fwx_nat64_session_filter_t, src, address),
    WIRE_PAYLOAD_FIELD("dst", fwx_nat64_session_filter_t, dst, address),
    WIRE_PAYLOAD_FIELD("opaque", fwx_nat64_session_filter_t, opaque, bytes),
};
constexpr wire_field_t service[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("add", fwx_nat64_service_payload_t, add, flag),
    WIRE_NAMED_PAYLOAD_FIELD("type", fwx_nat64_service_payload_t, service.type, wire_service_names),
    WIRE_PAYLOAD_FIELD("value", fwx_nat64_service_payload_t, service.value, number),
};
constexpr wire_field_t end_batch[] = {
    OP_CODE,
    {"batch_id", offsetof(fwx_nat64_cfg_msg_t, payload), sizeof(uint32_t), wire_kind_t::number},
};
constexpr wire_field_t classifier_update[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("data", fwx_nat64_classifier_update_t, data, bytes),
    WIRE_PAYLOAD_FIELD("batch_id", fwx_nat64_classifier_update_t, batch_id, number),
};
constexpr wire_field_t logging[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("dest", fwx_nat64_logging_payload_t, dest, ipv4),
    WIRE_PAYLOAD_FIELD("dest_port", fwx_nat64_logging_payload_t, dest_port, number),
    WIRE_NAMED_PAYLOAD_FIELD("param2", fwx_nat64_logging_payload_t, param2, wire_template_names),
    WIRE_PAYLOAD_FIELD("mode", fwx_nat64_logging_payload_t, mode, number),
    WIRE_NAMED_PAYLOAD_FIELD("param", fwx_nat64_logging_payload_t, param, wire_transport_names),
};
constexpr wire_field_t adj[] = {
    OP_CODE,
    WIRE_NAMED_PAYLOAD_FIELD("type", fwx_nat64_adj_t, type, wire_adj_names),
    WIRE_PAYLOAD_FIELD("address", fwx_nat64_adj_t, address, address),
};
constexpr wire_field_t global_settings[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("opaque", fwx_nat64_global_settings_t, opaque, bytes),
};
constexpr wire_field_t replication[] = {
    OP_CODE,
    WIRE_PAYLOAD_FIELD("value", fwx_nat64_replication_t, value, number),
    WIRE_PAYLOAD_FIELD("set", fwx_nat64_replication_t, set, flag),
    WIRE_PAYLOAD_FIELD("value2", fwx_nat64_replication_t, value2, number),
};

#undef OP_CODE

template <size_t n>
constexpr wire_message_t config(const char *name, const char *purpose, uint32_t op_code, size_t payload_size,
                                const wire_field_t (&fields)[n]) {
    return wire_message(name, purpose, wire_command(FWX_NAT64_MSG_CONFIG), wire_cfg_selector(op_code),
                        sizeof(fwx_nat64_cfg_msg_t) + payload_size, fields, n);
}

}  // namespace wire_config

constexpr wire_message_t wire_config_messages[] = {
    wire_config::config("interface_set", "sets an interface's prefixes and MTU", FWX_NAT64_CFG_INTF_SET,
                        sizeof(fwx_nat64_intf_payload_t), wire_config::interface),
    wire_config::config("nvi_interface_enable", "enables an NVI interface", FWX_NAT64_CFG_NVI_INTF_ENABLE,
                        sizeof(fwx_nat64_intf_payload_t), wire_config::interface),
    wire_config::config("glb_prefix", "adds, modifies or deletes a global prefix of kind 1, 3 or 4",
                        FWX_NAT64_CFG_GLB_PREFIX, sizeof(fwx_nat64_glb_prefix_payload_t), wire_config::glb_prefix),
    wire_config::config("pool_add", "adds or modifies an address pool", FWX_NAT64_CFG_POOL_ADD,
                        sizeof(fwx_nat64_pool_payload_t), wire_config::pool),
    wire_config::config("pool_del", "deletes an address pool", FWX_NAT64_CFG_POOL_DEL,
                        sizeof(fwx_nat64_delete_payload_t), wire_config::delete_by_id),
    wire_config::config("pool_range_add", "adds a range to a pool", FWX_NAT64_CFG_POOL_RANGE_ADD,
                        sizeof(fwx_nat64_pool_range_t), wire_config::pool_range),
    wire_config::config("pool_range_del", "deletes a range of a pool", FWX_NAT64_CFG_POOL_RANGE_DEL,
                        sizeof(fwx_nat64_pool_range_del_payload_t), wire_config::pool_range_del),
    wire_config::config("smapping_add", "adds a static mapping", FWX_NAT64_CFG_SMAPPING_ADD,
                        sizeof(fwx_nat64_smapping_t), wire_config::smapping),
    wire_config::config("smapping_del", "deletes a static mapping", FWX_NAT64_CFG_SMAPPING_DEL,
                        sizeof(fwx_nat64_delete_payload_t), wire_config::delete_by_id),
    wire_config::config("dmapping_add", "adds a dynamic mapping", FWX_NAT64_CFG_DMAPPING_ADD,
                        sizeof(fwx_nat64_dmapping_payload_t), wire_config::dmapping),
    wire_config::config("dmapping_del", "deletes a dynamic mapping", FWX_NAT64_CFG_DMAPPING_DEL,
                        sizeof(fwx_nat64_delete_payload_t), wire_config::delete_by_id),
    wire_config::config("dmapping_mod", "modifies a dynamic mapping", FWX_NAT64_CFG_DMAPPING_MOD,
                        sizeof(fwx_nat64_dmapping_payload_t), wire_config::dmapping),
    wire_config::config("timeout_set", "sets a timeout", FWX_NAT64_CFG_TIMEOUT_SET, sizeof(fwx_nat64_timeout_t),
                        wire_config::timeout),
    wire_config::config("limit_set", "adds or modifies a limit", FWX_NAT64_CFG_LIMIT_SET, sizeof(fwx_nat64_limit_t),
                        wire_config::limit),
    wire_config::config("limit_del", "deletes a limit", FWX_NAT64_CFG_LIMIT_DEL, sizeof(fwx_nat64_limit_t),
                        wire_config::limit),
    wire_config::config("ipalias_upload", "has the server upload its IP aliases", FWX_NAT64_CFG_IPALIAS_UPLOAD, 0,
                        wire_config::op_code_only),
    wire_config::config("session_clear", "clears the sessions that a filter names", FWX_NAT64_CFG_SESSION_CLEAR,
                        sizeof(fwx_nat64_session_filter_t), wire_config::session_clear),
    wire_config::config("service_set", "adds or deletes a service", FWX_NAT64_CFG_SERVICE_SET,
                        sizeof(fwx_nat64_service_payload_t), wire_config::service),
    wire_config::config("end_batch", "ends a classifier batch", FWX_NAT64_CFG_END_BATCH, sizeof(uint32_t),
                        wire_config::end_batch),
    wire_config::config("classifier_update", "hands on a classifier update", FWX_NAT64_CFG_CLASSIFIER_UPDATE,
                        sizeof(fwx_nat64_classifier_update_t), wire_config::classifier_update),
    wire_config::config("logging_add", "adds a logging destination", FWX_NAT64_CFG_LOGGING_ADD,
                        sizeof(fwx_nat64_logging_payload_t), wire_config::logging),
    wire_config::config("logging_mod", "modifies a logging destination", FWX_NAT64_CFG_LOGGING_MOD,
                        sizeof(fwx_nat64_logging_payload_t), wire_config::logging),
    wire_config::config("logging_del", "deletes a logging destination", FWX_NAT64_CFG_LOGGING_DEL,
                        sizeof(fwx_nat64_logging_payload_t), wire_config::logging),
    wire_config::config("adj_set", "sets an adjacency", FWX_NAT64_CFG_ADJ_SET, sizeof(fwx_nat64_adj_t),
                        wire_config::adj),
    wire_config::config("glb_prefix_kind2", "adds, modifies or deletes a global prefix of kind 2",
                        FWX_NAT64_CFG_GLB_PREFIX_KIND2, sizeof(fwx_nat64_glb_prefix_payload_t),
                        wire_config::glb_prefix),
    wire_config::config("global_settings", "sets the global settings", FWX_NAT64_CFG_GLOBAL_SETTINGS,
                        sizeof(fwx_nat64_global_settings_t), wire_config::global_settings),
    wire_config::config("replication_set", "sets the replication", FWX_NAT64_CFG_REPLICATION_SET,
                        sizeof(fwx_nat64_replication_t), wire_config::replication),
    wire_config::config("replication_unset", "takes the replication back", FWX_NAT64_CFG_REPLICATION_UNSET,
                        sizeof(fwx_nat64_replication_t), wire_config::replication),
};

#endif
