/* Description of all messages from the server: replies, synchronous answers, unsolicited notifications. First the
 * fields of each message and entry, then the table of messages. */
#ifndef WIRE_SERVER_MESSAGES_H
#define WIRE_SERVER_MESSAGES_H

#include "wire/field.h"

namespace wire_server {

#define RESULT WIRE_FIELD("result", fwx_nat64_reply_t, result, code)

constexpr wire_field_t result[] = {RESULT};
constexpr wire_field_t sync_result[] = {WIRE_FIELD("result", fwx_nat64_sync_reply_t, result, code)};
constexpr wire_field_t stats_sys[] = {RESULT, WIRE_FIELD("more", fwx_nat64_stats_sys_reply_t, more, number)};
constexpr wire_field_t stats_sys_selected[] = {
    RESULT,
    WIRE_FIELD("more", fwx_nat64_stats_sys_reply_t, more, number),
    WIRE_FIELD("sel", fwx_nat64_stats_sys_reply_t, sel, number),
};
constexpr wire_field_t stats_intf[] = {
    RESULT,
    WIRE_FIELD("more", fwx_nat64_stats_intf_reply_t, more, number),
    WIRE_FIELD("value", fwx_nat64_stats_intf_reply_t, value, number),
};
constexpr wire_field_t stats_all[] = {
    RESULT,
    WIRE_FIELD("more", fwx_nat64_stats_all_reply_t, more, number),
    WIRE_FIELD("value", fwx_nat64_stats_all_reply_t, value, hex),
    WIRE_FIELD("value2", fwx_nat64_stats_all_reply_t, value2, number),
};
constexpr wire_field_t session_walk[] = {
    RESULT,
    WIRE_FIELD("count", fwx_nat64_sess_walk_reply_t, count, number),
    WIRE_FIELD("more", fwx_nat64_sess_walk_reply_t, more, flag),
    WIRE_FIELD("stopped", fwx_nat64_sess_walk_reply_t, stopped, flag),
    WIRE_FIELD("value", fwx_nat64_sess_walk_reply_t, value, hex),
    WIRE_FIELD("value2", fwx_nat64_sess_walk_reply_t, value2, number),
};
constexpr wire_field_t mapt_rule[] = {
    RESULT,
    WIRE_FIELD("rule_id", fwx_nat64_mapt_reply_t, rule_id, number),
    WIRE_FIELD("domain_id", fwx_nat64_mapt_reply_t, domain_id, number),
    WIRE_FIELD("rule_type", fwx_nat64_mapt_reply_t, rule_type, number),
    WIRE_FIELD("op", fwx_nat64_mapt_reply_t, op, operation),
    WIRE_FIELD("cleanup", fwx_nat64_mapt_reply_t, cleanup, flag),
    WIRE_FIELD("bmr_index", fwx_nat64_mapt_reply_t, bmr_index, number),
};

constexpr wire_field_t sys_entry[] = {
    WIRE_FIELD("interfaces", fwx_nat64_stats_sys_entry_t, interfaces, number),
    WIRE_FIELD("prefixes", fwx_nat64_stats_sys_entry_t, prefixes, number),
    WIRE_FIELD("static_mappings", fwx_nat64_stats_sys_entry_t, static_mappings, number),
    WIRE_FIELD("dynamic_mappings", fwx_nat64_stats_sys_entry_t, dynamic_mappings, number),
    WIRE_FIELD("pools", fwx_nat64_stats_sys_entry_t, pools, number),
    WIRE_FIELD("pool_ranges", fwx_nat64_stats_sys_entry_t, pool_ranges, number),
    WIRE_FIELD("loggings", fwx_nat64_stats_sys_entry_t, loggings, number),
    WIRE_FIELD("rules", fwx_nat64_stats_sys_entry_t, rules, number),
    WIRE_FIELD("sessions", fwx_nat64_stats_sys_entry_t, sessions, number),
};
constexpr wire_field_t counts_entry[] = {
    WIRE_FIELD("commands", fwx_nat64_stats_counts_t, commands, number),
    WIRE_FIELD("malformed", fwx_nat64_stats_counts_t, malformed, number),
    WIRE_FIELD("refused", fwx_nat64_stats_counts_t, refused, number),
    WIRE_FIELD("replies", fwx_nat64_stats_counts_t, replies, number),
    WIRE_FIELD("held", fwx_nat64_stats_counts_t, held, number),
    WIRE_FIELD("clients", fwx_nat64_stats_counts_t, clients, number),
    WIRE_FIELD("queued_bytes", fwx_nat64_stats_counts_t, queued_bytes, number),
    WIRE_FIELD("dropped", fwx_nat64_stats_counts_t, dropped, number),
    WIRE_FIELD("turned_away", fwx_nat64_stats_counts_t, turned_away, number),
};
constexpr wire_field_t boot_entry[] = {
    WIRE_FIELD("boot_id", fwx_nat64_stats_boot_t, boot_id, hex),
    WIRE_FIELD("changes", fwx_nat64_stats_boot_t, changes, number),
};
constexpr wire_field_t config_page[] = {
    WIRE_FIELD("magic", fwx_nat64_config_page_t, magic, hex),
    WIRE_FIELD("bytes", fwx_nat64_config_page_t, bytes, number),
    WIRE_FIELD("entries", fwx_nat64_config_page_t, entries, number),
    WIRE_FIELD("boot_id", fwx_nat64_config_page_t, boot_id, hex),
    WIRE_FIELD("changes", fwx_nat64_config_page_t, changes, number),
};
constexpr wire_field_t system_entry[] = {
    WIRE_FIELD("interfaces", fwx_nat64_stats_system_t, holds.interfaces, number),
    WIRE_FIELD("prefixes", fwx_nat64_stats_system_t, holds.prefixes, number),
    WIRE_FIELD("static_mappings", fwx_nat64_stats_system_t, holds.static_mappings, number),
    WIRE_FIELD("dynamic_mappings", fwx_nat64_stats_system_t, holds.dynamic_mappings, number),
    WIRE_FIELD("pools", fwx_nat64_stats_system_t, holds.pools, number),
    WIRE_FIELD("pool_ranges", fwx_nat64_stats_system_t, holds.pool_ranges, number),
    WIRE_FIELD("loggings", fwx_nat64_stats_system_t, holds.loggings, number),
    WIRE_FIELD("rules", fwx_nat64_stats_system_t, holds.rules, number),
    WIRE_FIELD("sessions", fwx_nat64_stats_system_t, holds.sessions, number),
    WIRE_FIELD("refused_malformed", fwx_nat64_stats_system_t, malformed, number),
    WIRE_FIELD("refused_unknown", fwx_nat64_stats_system_t, unknown, number),
    WIRE_FIELD("refused_no_entry", fwx_nat64_stats_system_t, no_entry, number),
    WIRE_FIELD("refused_exists", fwx_nat64_stats_system_t, exists, number),
    WIRE_FIELD("refused_no_pool", fwx_nat64_stats_system_t, no_pool, number),
    WIRE_FIELD("refused_value", fwx_nat64_stats_system_t, value, number),
    WIRE_FIELD("refused_overlap", fwx_nat64_stats_system_t, overlap, number),
    WIRE_FIELD("refused_has_ranges", fwx_nat64_stats_system_t, has_ranges, number),
    WIRE_FIELD("refused_prefix_len", fwx_nat64_stats_system_t, prefix_len, number),
    WIRE_FIELD("refused_too_many", fwx_nat64_stats_system_t, too_many, number),
    WIRE_FIELD("refused_not_saved", fwx_nat64_stats_system_t, not_saved, number),
    WIRE_FIELD("refused_ordered", fwx_nat64_stats_system_t, ordered, number),
    WIRE_FIELD("refused_not_here", fwx_nat64_stats_system_t, not_here, number),
    WIRE_FIELD("refused_not_in_force", fwx_nat64_stats_system_t, not_in_force, number),
    WIRE_FIELD("refused_in_use", fwx_nat64_stats_system_t, in_use, number),
    WIRE_FIELD("failed_sessions", fwx_nat64_stats_system_t, failed_sessions, number),
};
constexpr wire_field_t intf_entry[] = {
    WIRE_FIELD("ifh", fwx_nat64_stats_intf_entry_t, ifh, number),
    WIRE_FIELD("enabled", fwx_nat64_stats_intf_entry_t, enabled, flag),
    WIRE_FIELD("nvi", fwx_nat64_stats_intf_entry_t, nvi, flag),
    WIRE_FIELD("mtu", fwx_nat64_stats_intf_entry_t, mtu, number),
    WIRE_FIELD("prefixes", fwx_nat64_stats_intf_entry_t, prefixes, number),
};
constexpr wire_field_t limit_entry[] = {
    WIRE_NAMED_FIELD("type", fwx_nat64_stats_limit_entry_t, type, wire_limit_names),
    WIRE_FIELD("value", fwx_nat64_stats_limit_entry_t, value, number),
    WIRE_FIELD("in_use", fwx_nat64_stats_limit_entry_t, in_use, number),
};
constexpr wire_field_t pool_entry[] = {
    WIRE_FIELD("id", fwx_nat64_stats_pool_entry_t, id, number),
    WIRE_FIELD("ranges", fwx_nat64_stats_pool_entry_t, ranges, number),
    WIRE_FIELD("addresses", fwx_nat64_stats_pool_entry_t, addresses, number),
    WIRE_FIELD("sessions", fwx_nat64_stats_pool_entry_t, sessions, number),
};
constexpr wire_field_t mapping_entry[] = {
    WIRE_FIELD("id", fwx_nat64_stats_mapping_entry_t, id, number),
    WIRE_NAMED_FIELD("kind", fwx_nat64_stats_mapping_entry_t, kind, wire_mapping_kind_names),
    WIRE_FIELD("active", fwx_nat64_stats_mapping_entry_t, active, flag),
    WIRE_FIELD("sessions", fwx_nat64_stats_mapping_entry_t, sessions, number),
};
constexpr wire_field_t session_entry[] = {
    WIRE_FIELD("id", fwx_nat64_session_t, id, hex),
    WIRE_FIELD("src", fwx_nat64_session_t, src, address),
    WIRE_FIELD("dst", fwx_nat64_session_t, dst, address),
    WIRE_FIELD("src_port", fwx_nat64_session_t, src_port, number),
    WIRE_FIELD("dst_port", fwx_nat64_session_t, dst_port, number),
    WIRE_NAMED_FIELD("protocol", fwx_nat64_session_t, protocol, wire_protocol_names),
    WIRE_FIELD("mapping_id", fwx_nat64_session_t, mapping_id, number),
    WIRE_FIELD("age_s", fwx_nat64_session_t, age_s, number),
};
constexpr wire_field_t full_session_entry[] = {
    WIRE_FIELD("id", fwx_nat64_session_full_t, id, hex),
    WIRE_NAMED_FIELD("protocol", fwx_nat64_session_full_t, protocol, wire_protocol_names),
    WIRE_NAMED_FIELD("state", fwx_nat64_session_full_t, state, wire_session_state_names),
    WIRE_FIELD("src", fwx_nat64_session_full_t, src, address),
    WIRE_FIELD("dst_ipv6", fwx_nat64_session_full_t, dst_ipv6, address),
    WIRE_FIELD("pool_addr", fwx_nat64_session_full_t, pool_addr, address),
    WIRE_FIELD("dst", fwx_nat64_session_full_t, dst, address),
    WIRE_FIELD("src_port", fwx_nat64_session_full_t, src_port, number),
    WIRE_FIELD("pool_port", fwx_nat64_session_full_t, pool_port, number),
    WIRE_FIELD("dst_port", fwx_nat64_session_full_t, dst_port, number),
    WIRE_FIELD("mapping_id", fwx_nat64_session_full_t, mapping_id, number),
    WIRE_FIELD("pool_id", fwx_nat64_session_full_t, pool_id, number),
    WIRE_FIELD("age_s", fwx_nat64_session_full_t, age_s, number),
    WIRE_FIELD("remaining_s", fwx_nat64_session_full_t, remaining_s, number),
    WIRE_FIELD("packets_out", fwx_nat64_session_full_t, packets_out, number),
    WIRE_FIELD("bytes_out", fwx_nat64_session_full_t, bytes_out, number),
    WIRE_FIELD("packets_in", fwx_nat64_session_full_t, packets_in, number),
    WIRE_FIELD("bytes_in", fwx_nat64_session_full_t, bytes_in, number),
};

#define EVENT WIRE_FIELD("event", fwx_nat64_unsol_msg_t, event, number)

constexpr wire_field_t unsol_bare[] = {EVENT};
constexpr wire_field_t unsol_record[] = {
    EVENT,
    WIRE_FIELD("word2", fwx_nat64_unsol_record_msg_t, word2, number),
    WIRE_FIELD("word1", fwx_nat64_unsol_record_msg_t, word1, number),
    WIRE_FIELD("word3", fwx_nat64_unsol_record_msg_t, word3, number),
    WIRE_FIELD("add", fwx_nat64_unsol_record_msg_t, add, flag),
};
constexpr wire_field_t unsol_mapping[] = {
    EVENT,
    WIRE_FIELD("id", fwx_nat64_unsol_mapping_msg_t, id, number),
    WIRE_FIELD("value", fwx_nat64_unsol_mapping_msg_t, value, number),
    WIRE_FIELD("inactive", fwx_nat64_unsol_mapping_msg_t, inactive, flag),
};
constexpr wire_field_t unsol_debug[] = {
    EVENT,
    WIRE_FIELD("selector", fwx_nat64_unsol_debug_msg_t, selector, number),
    WIRE_FIELD("on", fwx_nat64_unsol_debug_msg_t, on, flag),
};

#undef EVENT
#undef RESULT

template <size_t n>
constexpr wire_message_t bare_reply(const char *name, const char *purpose, uint32_t msgno,
                                    const wire_field_t (&fields)[n]) {
    return wire_message(name, purpose, wire_reply(msgno), wire_unselected, FWX_NAT64_REPLY_MIN_SIZE, fields, n,
                        wire_no_entry, true);
}
template <size_t n>
constexpr wire_message_t entry_reply(const char *name, const char *purpose, uint32_t msgno,
                                     const wire_field_t (&fields)[n], wire_entry_t entry,
                                     wire_selector_t selector = wire_unselected) {
    return wire_message(name, purpose, wire_reply(msgno), selector, entry.offset, fields, n, entry);
}
template <typename record_t, size_t n>
constexpr wire_message_t selected_stats(const char *name, const char *purpose, uint32_t sel, const char *entry_name,
                                        const wire_field_t (&fields)[n]) {
    return entry_reply(name, purpose, FWX_NAT64_MSG_STATS_SYS, stats_sys_selected,
                       wire_entry<record_t>(entry_name, sizeof(fwx_nat64_stats_sys_reply_t), 0, fields),
                       {offsetof(fwx_nat64_stats_sys_reply_t, sel), static_cast<int32_t>(sel)});
}
template <size_t n>
constexpr wire_message_t notification(const char *name, const char *purpose, uint32_t event, size_t least_size,
                                      const wire_field_t (&fields)[n]) {
    return wire_message(name, purpose, wire_reply(FWX_NAT64_MSG_UNSOL_SETUP),
                        {offsetof(fwx_nat64_unsol_msg_t, event), static_cast<int32_t>(event)}, least_size, fields, n,
                        wire_no_entry, true);
}

}  // namespace wire_server

constexpr wire_message_t wire_server_messages[] = {
    wire_server::bare_reply("result", "result of a command", FWX_NAT64_MSG_RESULT, wire_server::result),
    wire_server::selected_stats<fwx_nat64_stats_counts_t>("stats_sys_counts_reply", "what the server has counted",
                                                          FWX_NAT64_SEL_COUNTS, "counts", wire_server::counts_entry),
    wire_server::selected_stats<fwx_nat64_stats_boot_t>("stats_sys_boot_reply", "which run of the server it is",
                                                        FWX_NAT64_SEL_BOOT, "boot", wire_server::boot_entry),
    wire_server::selected_stats<fwx_nat64_stats_system_t>("stats_sys_system_reply",
                                                          "system statistics and what was refused",
                                                          FWX_NAT64_SEL_SYSTEM, "system", wire_server::system_entry),
    wire_server::selected_stats<fwx_nat64_config_page_t>("stats_sys_config_reply",
                                                         "a page of the configuration, whose entries follow",
                                                         FWX_NAT64_SEL_CONFIG, "page", wire_server::config_page),
    wire_server::entry_reply("stats_sys_reply", "system statistics", FWX_NAT64_MSG_STATS_SYS, wire_server::stats_sys,
                             wire_entry<fwx_nat64_stats_sys_entry_t>("system", sizeof(fwx_nat64_stats_sys_reply_t), 0,
                                                                     wire_server::sys_entry)),
    wire_server::entry_reply(
        "stats_intf_reply", "statistics of interfaces", FWX_NAT64_MSG_STATS_INTF, wire_server::stats_intf,
        wire_entry<fwx_nat64_stats_intf_entry_t>("interfaces", sizeof(fwx_nat64_stats_intf_reply_t),
                                                 offsetof(fwx_nat64_stats_intf_reply_t, value),
                                                 wire_server::intf_entry)),
    wire_server::entry_reply("stats_pool_all_reply", "statistics of pools", FWX_NAT64_MSG_STATS_POOL_ALL,
                             wire_server::stats_all,
                             wire_entry<fwx_nat64_stats_pool_entry_t>("pools", sizeof(fwx_nat64_stats_all_reply_t),
                                                                      offsetof(fwx_nat64_stats_all_reply_t, value2),
                                                                      wire_server::pool_entry)),
    wire_server::entry_reply(
        "stats_mapping_all_reply", "statistics of mappings", FWX_NAT64_MSG_STATS_MAPPING_ALL, wire_server::stats_all,
        wire_entry<fwx_nat64_stats_mapping_entry_t>("mappings", sizeof(fwx_nat64_stats_all_reply_t),
                                                    offsetof(fwx_nat64_stats_all_reply_t, value2),
                                                    wire_server::mapping_entry)),
    wire_server::entry_reply("stats_limit_all_reply", "statistics of limits", FWX_NAT64_MSG_STATS_LIMIT_ALL,
                             wire_server::stats_intf,
                             wire_entry<fwx_nat64_stats_limit_entry_t>("limits", sizeof(fwx_nat64_stats_intf_reply_t),
                                                                       offsetof(fwx_nat64_stats_intf_reply_t, value),
                                                                       wire_server::limit_entry)),
    wire_server::entry_reply("session_walk_full_reply", "sessions of a walk in full", FWX_NAT64_MSG_SESSION_WALK,
                             wire_server::session_walk,
                             wire_entry<fwx_nat64_session_full_t>("sessions", sizeof(fwx_nat64_sess_walk_reply_t),
                                                                  offsetof(fwx_nat64_sess_walk_reply_t, count),
                                                                  wire_server::full_session_entry),
                             {offsetof(fwx_nat64_sess_walk_reply_t, value2), FWX_NAT64_WALK_FULL}),
    wire_server::entry_reply(
        "session_walk_reply", "sessions of a walk", FWX_NAT64_MSG_SESSION_WALK, wire_server::session_walk,
        wire_entry<fwx_nat64_session_t>("sessions", sizeof(fwx_nat64_sess_walk_reply_t),
                                        offsetof(fwx_nat64_sess_walk_reply_t, count), wire_server::session_entry)),
    wire_server::bare_reply("end_batch_reply", "result of the end of a classifier batch", FWX_NAT64_MSG_CGM_REPLY,
                            wire_server::result),
    wire_server::bare_reply("classifier_update_reply", "result of a classifier update", FWX_NAT64_MSG_CGM_REPLY2,
                            wire_server::result),
    wire_message("mapt_reply", "outcome of a MAP-T rule command", wire_reply(FWX_NAT64_MSG_MAPT_RULE), wire_unselected,
                 sizeof(fwx_nat64_mapt_reply_t), wire_server::mapt_rule, std::size(wire_server::mapt_rule)),
    wire_message("sync_init_answer", "answer to the client's announcement", wire_answer(FWX_NAT64_MSG_INIT),
                 wire_unselected, sizeof(fwx_nat64_sync_reply_t), wire_server::sync_result,
                 std::size(wire_server::sync_result)),
    wire_message("ctrl_answer", "answer to a control command", wire_answer(FWX_NAT64_MSG_CONFIG), wire_unselected,
                 sizeof(fwx_nat64_sync_reply_t), wire_server::sync_result, std::size(wire_server::sync_result)),
    wire_server::notification("unsol_record", "a record was added or deleted", FWX_NAT64_UNSOL_RECORD,
                              FWX_NAT64_UNSOL_RECORD_MIN_SIZE, wire_server::unsol_record),
    wire_server::notification("unsol_event", "something happened", FWX_NAT64_UNSOL_EVENT, sizeof(fwx_nat64_unsol_msg_t),
                              wire_server::unsol_bare),
    wire_server::notification("unsol_wakeup", "the server takes commands again", FWX_NAT64_UNSOL_EV_PAL_CMD_Q_WAKEUP,
                              sizeof(fwx_nat64_unsol_msg_t), wire_server::unsol_bare),
    wire_server::notification("unsol_mapping", "a mapping has changed", FWX_NAT64_UNSOL_MAPPING,
                              FWX_NAT64_UNSOL_MAPPING_MIN_SIZE, wire_server::unsol_mapping),
    wire_server::notification("unsol_debug", "switches debug classes of the client", FWX_NAT64_UNSOL_DEBUG,
                              sizeof(fwx_nat64_unsol_debug_msg_t), wire_server::unsol_debug),
};

#endif
