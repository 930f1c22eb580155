/* Description of the commands with their own message numbers, and of the synchronous commands: their fields, and below
 * the table of messages. */
#ifndef WIRE_COMMAND_MESSAGES_H
#define WIRE_COMMAND_MESSAGES_H

#include "wire/field.h"

namespace wire_commands {

constexpr wire_field_t init[] = {
    WIRE_FIELD("init_code", fwx_nat64_init_msg_t, init_code, hex),
    WIRE_FIELD("client_id", fwx_nat64_init_msg_t, client_id, bytes),
};
constexpr wire_field_t sync_init[] = {
    WIRE_FIELD("init_code", fwx_nat64_sync_init_msg_t, init_code, hex),
    WIRE_FIELD("client_id", fwx_nat64_sync_init_msg_t, client_id, bytes),
};
constexpr wire_field_t ctrl_end_batch[] = {
    WIRE_FIELD("op_code", fwx_nat64_ctrl_msg_t, op_code, number),
    {"batch_id", sizeof(fwx_nat64_ctrl_msg_t), sizeof(uint32_t), wire_kind_t::number},
};
constexpr wire_field_t ctrl_update[] = {
    WIRE_FIELD("op_code", fwx_nat64_ctrl_msg_t, op_code, number),
    WIRE_FIELD_BASED(sizeof(fwx_nat64_ctrl_msg_t), "data", fwx_nat64_classifier_update_t, data, bytes),
    WIRE_FIELD_BASED(sizeof(fwx_nat64_ctrl_msg_t), "batch_id", fwx_nat64_classifier_update_t, batch_id, number),
};
constexpr wire_field_t stats_sys[] = {
    WIRE_FIELD("sel", fwx_nat64_stats_sys_msg_t, sel, number),
};
constexpr wire_field_t stats_all[] = {
    WIRE_FIELD("sel", fwx_nat64_stats_all_msg_t, sel, number),
    WIRE_FIELD("one", fwx_nat64_stats_all_msg_t, one, number),
    WIRE_FIELD("zero", fwx_nat64_stats_all_msg_t, zero, number),
    WIRE_FIELD("count", fwx_nat64_stats_all_msg_t, count, number),
    WIRE_FIELD("arg", fwx_nat64_stats_all_msg_t, arg, number),
    WIRE_FIELD("cookie", fwx_nat64_stats_all_msg_t, cookie, hex),
};
constexpr wire_field_t stats_limit[] = {
    WIRE_FIELD("sel", fwx_nat64_stats_limit_msg_t, sel, number),
    WIRE_FIELD("one", fwx_nat64_stats_limit_msg_t, one, number),
    WIRE_FIELD("count", fwx_nat64_stats_limit_msg_t, count, number),
};
constexpr wire_field_t session_walk[] = {
    WIRE_FIELD("cookie", fwx_nat64_sess_walk_msg_t, cookie, hex),
    WIRE_FIELD("arg", fwx_nat64_sess_walk_msg_t, arg, number),
    WIRE_FIELD("walk_arg", fwx_nat64_sess_walk_msg_t, walk_arg, number),
    WIRE_FIELD("count", fwx_nat64_sess_walk_msg_t, count, number),
    WIRE_FIELD("opaque0", fwx_nat64_sess_walk_msg_t, filter.opaque0, bytes),
    WIRE_FIELD("src", fwx_nat64_sess_walk_msg_t, filter.src, address),
    WIRE_FIELD("opaque36", fwx_nat64_sess_walk_msg_t, filter.opaque36, bytes),
    WIRE_FIELD("dst", fwx_nat64_sess_walk_msg_t, filter.dst, address),
    WIRE_FIELD("opaque60", fwx_nat64_sess_walk_msg_t, filter.opaque60, bytes),
};
constexpr wire_field_t bmr[] = {
    WIRE_FIELD("rule_type", fwx_nat64_bmr_msg_t, rule_type, number),
    WIRE_FIELD("op", fwx_nat64_bmr_msg_t, op, operation),
    WIRE_FIELD("rule_id", fwx_nat64_bmr_msg_t, rule_id, number),
    WIRE_FIELD("domain_id", fwx_nat64_bmr_msg_t, domain_id, number),
    WIRE_FIELD("v6_prefix", fwx_nat64_bmr_msg_t, v6_prefix, ipv6_swapped),
    WIRE_FIELD("v6_prefix_len", fwx_nat64_bmr_msg_t, v6_prefix_len, number),
    WIRE_FIELD("v4_prefix", fwx_nat64_bmr_msg_t, v4_prefix, ipv4_swapped),
    WIRE_FIELD("v4_prefix_len", fwx_nat64_bmr_msg_t, v4_prefix_len, number),
    WIRE_FIELD("rule_param0", fwx_nat64_bmr_msg_t, rule_params[0], number),
    WIRE_FIELD("rule_param1", fwx_nat64_bmr_msg_t, rule_params[1], number),
    WIRE_FIELD("rule_param2", fwx_nat64_bmr_msg_t, rule_params[2], number),
    WIRE_FIELD("rule_param3", fwx_nat64_bmr_msg_t, rule_params[3], number),
};
constexpr wire_field_t dmr[] = {
    WIRE_FIELD("rule_type", fwx_nat64_dmr_msg_t, rule_type, number),
    WIRE_FIELD("op", fwx_nat64_dmr_msg_t, op, operation),
    WIRE_FIELD("id", fwx_nat64_dmr_msg_t, dmr.id, number),
    WIRE_FIELD("opaque", fwx_nat64_dmr_msg_t, dmr.opaque, bytes),
};

template <size_t n>
constexpr wire_message_t command(const char *name, const char *purpose, wire_route_t route, size_t size,
                                 const wire_field_t (&fields)[n], wire_selector_t selector = wire_unselected) {
    return wire_message(name, purpose, route, selector, size, fields, n);
}
constexpr wire_selector_t ctrl_selector(uint32_t op_code) {
    return {offsetof(fwx_nat64_ctrl_msg_t, op_code), static_cast<int32_t>(op_code)};
}
constexpr wire_selector_t rule_selector(uint32_t rule_type) {
    return {offsetof(fwx_nat64_bmr_msg_t, rule_type), static_cast<int32_t>(rule_type)};
}

}  // namespace wire_commands

constexpr wire_message_t wire_command_messages[] = {
    wire_message("unsol_setup", "asks for unsolicited notifications", wire_command(FWX_NAT64_MSG_UNSOL_SETUP),
                 wire_unselected, sizeof(fwx_nat64_msg_hdr_t)),
    wire_commands::command("init", "announces the client after a reconnection", wire_command(FWX_NAT64_MSG_INIT),
                           sizeof(fwx_nat64_init_msg_t), wire_commands::init),
    wire_commands::command("stats_sys", "queries the system statistics", wire_command(FWX_NAT64_MSG_STATS_SYS),
                           sizeof(fwx_nat64_stats_sys_msg_t), wire_commands::stats_sys),
    wire_message("stats_intf", "queries the statistics of all interfaces", wire_command(FWX_NAT64_MSG_STATS_INTF),
                 wire_unselected, sizeof(fwx_nat64_msg_hdr_t)),
    wire_commands::command("stats_pool_all", "queries the statistics of all pools",
                           wire_command(FWX_NAT64_MSG_STATS_POOL_ALL), sizeof(fwx_nat64_stats_all_msg_t),
                           wire_commands::stats_all),
    wire_commands::command("stats_mapping_all", "queries the statistics of all mappings",
                           wire_command(FWX_NAT64_MSG_STATS_MAPPING_ALL), sizeof(fwx_nat64_stats_all_msg_t),
                           wire_commands::stats_all),
    wire_commands::command("stats_limit_all", "queries the statistics of all limits",
                           wire_command(FWX_NAT64_MSG_STATS_LIMIT_ALL), sizeof(fwx_nat64_stats_limit_msg_t),
                           wire_commands::stats_limit),
    wire_commands::command("session_walk", "walks the sessions", wire_command(FWX_NAT64_MSG_SESSION_WALK),
                           sizeof(fwx_nat64_sess_walk_msg_t), wire_commands::session_walk),
    wire_message("cmd_q_resume", "answers a command-queue wakeup", wire_command(FWX_NAT64_MSG_PAL_CMD_Q_RESUME),
                 wire_unselected, sizeof(fwx_nat64_msg_hdr_t)),
    wire_commands::command("mapt_bmr", "adds or deletes a basic mapping rule", wire_command(FWX_NAT64_MSG_MAPT_RULE),
                           sizeof(fwx_nat64_bmr_msg_t), wire_commands::bmr,
                           wire_commands::rule_selector(FWX_NAT64_MAPT_RULE_BMR)),
    wire_commands::command("mapt_dmr", "adds, modifies or deletes a default mapping rule",
                           wire_command(FWX_NAT64_MSG_MAPT_RULE), FWX_NAT64_DMR_MSG_SIZE, wire_commands::dmr,
                           wire_commands::rule_selector(FWX_NAT64_MAPT_RULE_DMR)),
    wire_commands::command("sync_init", "announces the client at bind", wire_sync_command(FWX_NAT64_MSG_INIT),
                           sizeof(fwx_nat64_sync_init_msg_t), wire_commands::sync_init),
    wire_commands::command("ctrl_end_batch", "ends a classifier batch and waits",
                           wire_sync_command(FWX_NAT64_MSG_CONFIG), sizeof(fwx_nat64_ctrl_msg_t) + sizeof(uint32_t),
                           wire_commands::ctrl_end_batch, wire_commands::ctrl_selector(FWX_NAT64_CFG_END_BATCH)),
    wire_commands::command("ctrl_classifier_update", "hands on a classifier update and waits",
                           wire_sync_command(FWX_NAT64_MSG_CONFIG),
                           sizeof(fwx_nat64_ctrl_msg_t) + sizeof(fwx_nat64_classifier_update_t),
                           wire_commands::ctrl_update, wire_commands::ctrl_selector(FWX_NAT64_CFG_CLASSIFIER_UPDATE)),
};

#endif
