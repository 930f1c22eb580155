/*
 * The rows of the table of families. Each family has its verbs, its fields, the payloads in which a server stores its
 * commands, and its place in documents. Assertions at the end check what other code relies on: ranks and kinds are
 * unique, keys come first.
 */
#include "records/families.h"

#include <netinet/in.h>

#include <algorithm>
#include <iterator>

#include "fwx_nat64/fwx_nat64.h"

namespace {

/* --- Verbs --- */

constexpr record_verb_t add_del[] = {record_add, record_del};
constexpr record_verb_t add_mod_del[] = {record_add, record_mod, record_del};
constexpr record_verb_t set_only[] = {{"set", FWX_NAT64_OP_ADD, "Sets"}};
constexpr record_verb_t set_unset[] = {{"set", FWX_NAT64_OP_ADD, "Sets"}, {"unset", FWX_NAT64_OP_DEL, "Takes back"}};
constexpr record_verb_t enable_only[] = {{"enable", FWX_NAT64_OP_ADD, "Enables"}};

constexpr uint32_t add = FWX_NAT64_OP_ADD;
constexpr uint32_t mod = FWX_NAT64_OP_MOD;
constexpr uint32_t del = FWX_NAT64_OP_DEL;

/* --- Simple settings --- */

constexpr record_field_t timeout_fields[] = {
    RECORD_FIELD("--type", "type", number, fwx_nat64_timeout_t, type, "kind of timeout")
        .within(1, FWX_NAT64_TIMEOUT_TYPE_MAX)
        .named(wire_timeout_names)
        .key(),
    RECORD_FIELD("--value", "value", number, fwx_nat64_timeout_t, value, "the timeout").in_seconds().required(),
};
constexpr record_payload_t timeout_payloads[] = {
    record_copied<fwx_nat64_timeout_t>(FWX_NAT64_CFG_TIMEOUT_SET, add),
};
constexpr record_field_t limit_fields[] = {
    RECORD_FIELD("--type", "type", number, fwx_nat64_limit_t, type, "kind")
        .within(FWX_NAT64_LIMIT_TYPE, FWX_NAT64_LIMIT_TYPE)
        .named(wire_limit_names)
        .key(),
    RECORD_FIELD("--value", "value", number, fwx_nat64_limit_t, value, "greatest value that is allowed")
        .required(record_not_on_delete),
};
constexpr record_payload_t limit_payloads[] = {
    record_copied<fwx_nat64_limit_t>(FWX_NAT64_CFG_LIMIT_SET, add),
    record_copied<fwx_nat64_limit_t>(FWX_NAT64_CFG_LIMIT_SET, mod),
    record_copied<fwx_nat64_limit_t>(FWX_NAT64_CFG_LIMIT_DEL, del),
};
constexpr record_field_t service_fields[] = {
    RECORD_FIELD("--type", "type", number, fwx_nat64_service_t, type, "kind")
        .within(FWX_NAT64_SERVICE_TYPE, FWX_NAT64_SERVICE_TYPE)
        .named(wire_service_names)
        .key(),
    RECORD_FIELD("--value", "value", number, fwx_nat64_service_t, value, "port of its protocol")
        .required(record_not_on_delete),
};
constexpr auto service_payload =
    record_copied<fwx_nat64_service_payload_t, fwx_nat64_service_t, offsetof(fwx_nat64_service_payload_t, service)>;
constexpr record_payload_t service_payloads[] = {
    service_payload(FWX_NAT64_CFG_SERVICE_SET, add).with(offsetof(fwx_nat64_service_payload_t, add), 1),
    service_payload(FWX_NAT64_CFG_SERVICE_SET, del).with(offsetof(fwx_nat64_service_payload_t, add), 0),
};
constexpr record_field_t adj_fields[] = {
    RECORD_FIELD("--type", "type", number, fwx_nat64_adj_t, type, "kind of adjacency")
        .within(1, FWX_NAT64_ADJ_TYPE_MAX)
        .named(wire_adj_names)
        .key(),
    RECORD_FIELD("--address", "address", address, fwx_nat64_adj_t, address, "its address").required(),
};
constexpr record_payload_t adj_payloads[] = {
    record_copied<fwx_nat64_adj_t, fwx_nat64_adj_t, 0, offsetof(fwx_nat64_adj_t, address)>(FWX_NAT64_CFG_ADJ_SET, add),
};
constexpr record_field_t replication_fields[] = {
    RECORD_FIELD("--value", "value", number, fwx_nat64_replication_t, value, "first word, passed to the server"),
    RECORD_FIELD("--value2", "value2", number, fwx_nat64_replication_t, value2, "second word, passed to the server"),
};
constexpr record_payload_t replication_payloads[] = {
    record_copied<fwx_nat64_replication_t>(FWX_NAT64_CFG_REPLICATION_SET, add)
        .with(offsetof(fwx_nat64_replication_t, set), 1),
    record_copied<fwx_nat64_replication_t>(FWX_NAT64_CFG_REPLICATION_UNSET, del),
};
constexpr record_field_t settings_fields[] = {
    RECORD_FIELD("--bytes", "bytes", bytes, fwx_nat64_global_settings_t, opaque, "the settings, passed to the server")
        .in_c("opaque")
        .required(),
};
constexpr record_payload_t settings_payloads[] = {
    record_copied<fwx_nat64_global_settings_t>(FWX_NAT64_CFG_GLOBAL_SETTINGS, add),
};

uint32_t send_replication(uint32_t op, const fwx_nat64_replication_t *record, void *pal_ctx) {
    fwx_nat64_replication_t replication = *record;
    replication.set = op == FWX_NAT64_OP_DEL ? 0 : 1;
    return fwx_nat64_replication_set_a(op, &replication, pal_ctx);
}

/* --- Interfaces, prefixes, mappings, pools, logging --- */

constexpr fwx_nat64_intf_info_t interface_initial = {0, 1, 0, {}, 0, {}, 0, {}, 0, 0}; /* enabled */
constexpr record_field_t interface_fields[] = {
    RECORD_FIELD("--ifh", "ifh", number, fwx_nat64_intf_info_t, ifh, "interface handle").key(),
    RECORD_FIELD("--enable", "enable", number, fwx_nat64_intf_info_t, enable, "1 to translate, 0 not to; 1 by default")
        .within(0, 1),
    RECORD_PREFIX_FIELD("--sless", "sless", fwx_nat64_intf_info_t, sless_prefix, "stateless prefix")
        .in_c("sless_prefix")
        .marked_at(offsetof(fwx_nat64_intf_info_t, sless_prefix_valid))
        .embedding(),
    RECORD_PREFIX_FIELD("--sful", "sful", fwx_nat64_intf_info_t, sful_prefix, "stateful prefix")
        .in_c("sful_prefix")
        .marked_at(offsetof(fwx_nat64_intf_info_t, sful_prefix_valid))
        .embedding(),
    RECORD_PREFIX_FIELD("--sless-v6v4", "sless_v6v4", fwx_nat64_intf_info_t, sless_prefix_v6v4,
                        "stateless prefix from IPv6 to IPv4")
        .in_c("sless_prefix_v6v4")
        .marked_at(offsetof(fwx_nat64_intf_info_t, sless_prefix_v6v4_valid))
        .embedding(),
    RECORD_FIELD("--mtu", "mtu", number, fwx_nat64_intf_info_t, mtu, "MTU in bytes")
        .marked_at(offsetof(fwx_nat64_intf_info_t, mtu_valid)),
};

struct nvi_t {
    uint32_t ifh;
};
constexpr record_field_t nvi_fields[] = {
    RECORD_FIELD("--ifh", "ifh", number, nvi_t, ifh, "interface handle").key(),
};
uint32_t send_nvi(const nvi_t *nvi, void *pal_ctx) {
    return fwx_nat64_nvi_interface_enable_a(nvi->ifh, pal_ctx);
}

constexpr record_field_t prefix_fields[] = {
    RECORD_FIELD("--prefix", "prefix", ipv6_prefix, fwx_nat64_prefix_t, prefix, "the prefix")
        .length_at(offsetof(fwx_nat64_prefix_t, prefix_len))
        .embedding()
        .key(),
    RECORD_FIELD("--kind", "kind", number, fwx_nat64_prefix_t, kind, "purpose of the prefix")
        .in_c("prefix_kind")
        .within(1, FWX_NAT64_PREFIX_KIND_MAX)
        .named(wire_prefix_kind_names)
        .key(),
};
constexpr auto prefix_payload =
    record_copied<fwx_nat64_glb_prefix_payload_t, fwx_nat64_prefix_t, offsetof(fwx_nat64_glb_prefix_payload_t, prefix)>;
constexpr record_payload_t kind2_payload(uint32_t op, uint32_t is_add) {
    return prefix_payload(FWX_NAT64_CFG_GLB_PREFIX_KIND2, op)
        .with(offsetof(fwx_nat64_glb_prefix_payload_t, add), is_add)
        .when(offsetof(fwx_nat64_prefix_t, kind), FWX_NAT64_PREFIX_KIND2);
}
constexpr record_payload_t prefix_payloads[] = {
    kind2_payload(add, 1),
    kind2_payload(mod, 1),
    kind2_payload(del, 0),
    prefix_payload(FWX_NAT64_CFG_GLB_PREFIX, add).with(offsetof(fwx_nat64_glb_prefix_payload_t, add), 1),
    prefix_payload(FWX_NAT64_CFG_GLB_PREFIX, mod).with(offsetof(fwx_nat64_glb_prefix_payload_t, add), 1),
    prefix_payload(FWX_NAT64_CFG_GLB_PREFIX, del).with(offsetof(fwx_nat64_glb_prefix_payload_t, add), 0),
};
uint32_t send_prefix(uint32_t op, const fwx_nat64_prefix_t *prefix, void *pal_ctx) {
    if (op == FWX_NAT64_OP_ADD) return fwx_nat64_glb_prefix_add_a(prefix, pal_ctx);
    if (op == FWX_NAT64_OP_MOD) return fwx_nat64_glb_prefix_mod_a(prefix, pal_ctx);
    return fwx_nat64_glb_prefix_del_a(prefix, pal_ctx);
}

constexpr record_field_t smapping_fields[] = {
    RECORD_FIELD("--id", "id", number, fwx_nat64_smapping_t, id, "identifier of the mapping").key(),
    RECORD_FIELD("--addr1", "addr1", address, fwx_nat64_smapping_t, addr1, "first address")
        .on(record_not_on_delete)
        .required(),
    RECORD_FIELD("--addr2", "addr2", address, fwx_nat64_smapping_t, addr2, "second address")
        .on(record_not_on_delete)
        .required(),
};
constexpr record_payload_t smapping_payloads[] = {
    record_copied<fwx_nat64_smapping_t, fwx_nat64_smapping_t, 0, offsetof(fwx_nat64_smapping_t, addr1),
                  offsetof(fwx_nat64_smapping_t, addr2)>(FWX_NAT64_CFG_SMAPPING_ADD, add),
    record_deleted_by_id(FWX_NAT64_CFG_SMAPPING_DEL),
};
constexpr record_field_t dmapping_fields[] = {
    RECORD_FIELD("--id", "id", number, fwx_nat64_dmapping_t, id, "identifier of the mapping").from(1).key(),
    RECORD_FIELD("--type", "type", number, fwx_nat64_dmapping_t, type, "type of the mapping")
        .within(0, FWX_NAT64_DMAPPING_TYPE_MAX)
        .named(wire_dmapping_names)
        .on(record_not_on_delete)
        .required(),
    RECORD_FIELD("--ext", "ext", bytes, fwx_nat64_dmapping_t, ext, "second part, passed to the server")
        .on(record_not_on_delete)
        .fixed(),
    RECORD_FIELD("--ext-arg", "ext_arg", number, fwx_nat64_dmapping_t, ext_arg, "argument of the second part")
        .on(record_not_on_delete)
        .fixed(),
};
constexpr record_field_t pool_fields[] = {
    RECORD_FIELD("--id", "id", number, fwx_nat64_pool_t, id, "identifier of the pool").from(1).key(),
    RECORD_FIELD("--param", "param", number, fwx_nat64_pool_t, param, "parameter, passed to the server")
        .from(1)
        .on(record_not_on_delete)
        .required(),
    RECORD_FIELD("--start", "start", ipv4, fwx_nat64_pool_t, start_addr, "first address")
        .in_c("start_addr")
        .on(record_not_on_delete)
        .required(),
    RECORD_FIELD("--end", "end", ipv4, fwx_nat64_pool_t, end_addr, "last address")
        .in_c("end_addr")
        .on(record_not_on_delete)
        .required(),
    RECORD_FIELD("--hsl", "hsl", number, fwx_nat64_pool_t, hsl_id, "identifier of its logging")
        .in_c("hsl_id")
        .on(record_not_on_delete),
};
constexpr record_field_t range_fields[] = {
    RECORD_FIELD("--id", "id", number, fwx_nat64_pool_range_t, id, "identifier of the pool").from(1).key(),
    RECORD_FIELD("--start", "start", ipv4, fwx_nat64_pool_range_t, start_addr, "first address")
        .in_c("start_addr")
        .key(),
    RECORD_FIELD("--end", "end", ipv4, fwx_nat64_pool_range_t, end_addr, "last address").in_c("end_addr").key(),
};
constexpr size_t range_start = offsetof(fwx_nat64_pool_range_t, start_addr);
constexpr size_t range_end = offsetof(fwx_nat64_pool_range_t, end_addr);
constexpr record_payload_t range_payloads[] = {
    record_copied<fwx_nat64_pool_range_t, fwx_nat64_pool_range_t, 0, range_start, range_end>(
        FWX_NAT64_CFG_POOL_RANGE_ADD, add),
    record_copied<fwx_nat64_pool_range_del_payload_t, fwx_nat64_pool_range_t, 0, range_start, range_end>(
        FWX_NAT64_CFG_POOL_RANGE_DEL, del)
        .with(offsetof(fwx_nat64_pool_range_del_payload_t, one), 1),
};

constexpr fwx_nat64_logging_t logging_initial = {FWX_NAT64_LOGGING_TYPE, FWX_NAT64_LOGGING_MODE, 0, {}, 0, 0};
constexpr record_field_t logging_fields[] = {
    RECORD_FIELD("--dest", "dest", ipv4, fwx_nat64_logging_t, dest, "address that the records go to").key(),
    RECORD_FIELD("--port", "port", number, fwx_nat64_logging_t, dest_port, "its port").in_c("dest_port").from(1).key(),
    RECORD_FIELD("--transport", "transport", number, fwx_nat64_logging_t, param,
                 "their transport protocol, the server's choice by default")
        .in_c("param")
        .known_as("--param")
        .named(wire_transport_names),
    RECORD_FIELD("--template", "template", number, fwx_nat64_logging_t, param2,
                 "events that are logged, all by default")
        .in_c("param2")
        .known_as("--param2")
        .named(wire_template_names),
};

/* --- MAP-T rules --- */

constexpr record_field_t bmr_fields[] = {
    RECORD_FIELD("--rule", "rule", number, fwx_nat64_mapt_bmr_t, rule_id, "identifier of the rule")
        .in_c("rule_id")
        .from(1)
        .key(),
    RECORD_FIELD("--domain", "domain", number, fwx_nat64_mapt_bmr_t, domain_id, "its mapping domain")
        .in_c("domain_id")
        .key(),
    RECORD_FIELD("--v6", "v6", ipv6_prefix, fwx_nat64_mapt_bmr_t, v6_prefix, "its IPv6 prefix")
        .in_c("v6_prefix")
        .within(0, FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX)
        .length_at(offsetof(fwx_nat64_mapt_bmr_t, v6_prefix_len))
        .required(record_not_on_delete),
    RECORD_FIELD("--v4", "v4", ipv4_prefix, fwx_nat64_mapt_bmr_t, v4_prefix, "its IPv4 prefix")
        .in_c("v4_prefix")
        .within(0, FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX)
        .length_at(offsetof(fwx_nat64_mapt_bmr_t, v4_prefix_len))
        .required(record_not_on_delete),
    RECORD_FIELD("--ea-len", "ea_len", number, fwx_nat64_mapt_bmr_t, rule_params[0],
                 "length of the embedded-address (EA) bits"),
    RECORD_FIELD("--psid-offset", "psid_offset", number, fwx_nat64_mapt_bmr_t, rule_params[1],
                 "bits in front of the port-set identifier"),
    RECORD_FIELD("--psid-len", "psid_len", number, fwx_nat64_mapt_bmr_t, rule_params[2],
                 "bits of the port-set identifier"),
    RECORD_FIELD("--psid", "psid", number, fwx_nat64_mapt_bmr_t, rule_params[3],
                 "the port-set identifier where the EA bits hold none"),
    RECORD_FIELD("--params", "params", numbers, fwx_nat64_mapt_bmr_t, rule_params, "the four parameters above")
        .in_c("rule_params")
        .spelling(),
};
constexpr auto bmr_payload = record_copied<kept_rule_t, fwx_nat64_mapt_bmr_t, offsetof(kept_rule_t, rule)>;
constexpr record_payload_t bmr_payloads[] = {
    bmr_payload(record_kept_basic_rule, add),
    bmr_payload(record_kept_basic_rule_del, del),
};
constexpr record_field_t dmr_fields[] = {
    RECORD_FIELD("--id", "id", number, fwx_nat64_mapt_dmr_t, id, "identifier of the rule").from(1).key(),
    record_field("--prefix", "prefix", record_kind_t::ipv6_prefix, offsetof(fwx_nat64_mapt_dmr_t, opaque),
                 sizeof(in6_addr), "IPv6 prefix that stands for all other IPv4 addresses")
        .length_at(offsetof(fwx_nat64_mapt_dmr_t, opaque) + sizeof(in6_addr))
        .embedding(),
    RECORD_FIELD("--data", "data", bytes, fwx_nat64_mapt_dmr_t, opaque, "the prefix, its length and seven more bytes")
        .in_c("opaque")
        .spelling(),
};
constexpr record_payload_t dmr_payloads[] = {
    record_copied<fwx_nat64_mapt_dmr_t>(record_kept_default_rule, add),
    record_copied<fwx_nat64_mapt_dmr_t>(record_kept_default_rule_del, del),
};

/* --- The table --- */

/** Adapts a setter of the library to record_send_fn_t, which takes records of any type. */
template <auto setter>
struct sender_t;
template <typename type_t, uint32_t (*setter)(uint32_t op, const type_t *record, void *pal_ctx)>
struct sender_t<setter> {
    using record_t = type_t;
    static uint32_t send(uint32_t op, const void *record, void *pal_ctx) {
        return setter(op, static_cast<const record_t *>(record), pal_ctx);
    }
};
/** The same for a setter without an operation. */
template <typename type_t, uint32_t (*setter)(const type_t *record, void *pal_ctx)>
struct sender_t<setter> {
    using record_t = type_t;
    static uint32_t send(uint32_t, const void *record, void *pal_ctx) {
        return setter(static_cast<const record_t *>(record), pal_ctx);
    }
};

struct words_t {
    std::string_view group;
    std::string_view word;
    const char *summary;
    const char *noun;
};
using is_t = family_kind_t;
struct lifecycle_t {
    uint8_t rank;
    uint32_t modify_op;
    family_kind_t kind;
    size_t total_at;        /* see TOTAL */
    const char *unmodelled; /* completes `has no place: ` */
    const void *initial = nullptr;
    bool ends_sessions = false;
    family_kind_t item = is_t::other;
};
constexpr bool ends_sessions = true;
constexpr size_t not_counted = record_nowhere;
#define TOTAL(counter) offsetof(fwx_nat64_stats_sys_entry_t, counter)
constexpr const char *nothing_alike = "ietf-nat has nothing of the kind";

template <auto setter, size_t verb_count, size_t field_count, size_t payload_count>
constexpr record_family_t family(words_t words, const record_verb_t (&verbs)[verb_count],
                                 const record_field_t (&fields)[field_count],
                                 const record_payload_t (&payloads)[payload_count], lifecycle_t lifecycle) {
    using record_t = typename sender_t<setter>::record_t;
    static_assert(field_count <= record_max_fields && sizeof(record_t) <= sizeof(record_buffer_t));
    return {words.group,
            words.word,
            words.summary,
            words.noun,
            verbs,
            verb_count,
            fields,
            field_count,
            sizeof(record_t),
            lifecycle.initial,
            sender_t<setter>::send,
            lifecycle.modify_op,
            lifecycle.rank,
            lifecycle.kind,
            lifecycle.item,
            lifecycle.ends_sessions,
            static_cast<uint16_t>(lifecycle.total_at),
            lifecycle.unmodelled,
            payloads,
            payload_count};
}

constexpr record_family_t families[] = {
    family<fwx_nat64_timeout_set_a>({"", "timeout", "Timeouts of sessions", "a timeout"}, set_only, timeout_fields,
                                    timeout_payloads,
                                    {1, add, is_t::timeout, not_counted, "there is no such timer in ietf-nat"}),
    family<fwx_nat64_limit_set_a>({"", "limit", "Limits of the service", "a limit"}, add_mod_del, limit_fields,
                                  limit_payloads, {2, mod, is_t::limit, not_counted, nothing_alike}),
    family<fwx_nat64_service_set_a>({"", "service", "Services", "a service"}, add_del, service_fields, service_payloads,
                                    {3, 0, is_t::other, not_counted, nothing_alike}),
    family<fwx_nat64_adj_set_a>({"", "adj", "Adjacencies", "an adjacency"}, set_only, adj_fields, adj_payloads,
                                {4, add, is_t::other, not_counted, nothing_alike}),
    family<send_replication>({"", "replication", "Replication of sessions", "the replication"}, set_unset,
                             replication_fields, replication_payloads,
                             {5, add, is_t::other, not_counted, nothing_alike}),
    family<fwx_nat64_global_settings_set_a>({"", "settings", "Global settings", "the global settings"}, set_only,
                                            settings_fields, settings_payloads,
                                            {0, add, is_t::other, not_counted, nothing_alike}),
    family<fwx_nat64_interface_set_a>(
        {"", "interface", "Interfaces that translate", "an interface's prefixes and MTU; omitted ones are removed"},
        set_only, interface_fields, record_interface_payloads,
        {14, add, is_t::interface, TOTAL(interfaces), "ietf-nat has no prefixes and MTU of interfaces",
         &interface_initial}),
    family<send_nvi>({"", "nvi", "NAT virtual interfaces", "an interface"}, enable_only, nvi_fields,
                     record_nvi_payloads,
                     {15, 0, is_t::nvi, TOTAL(interfaces), nothing_alike, nullptr, !ends_sessions, is_t::interface}),
    family<send_prefix>({"", "prefix", "Global prefixes", "a global prefix"}, add_mod_del, prefix_fields,
                        prefix_payloads,
                        {9, mod, is_t::prefix, TOTAL(prefixes),
                         "ietf-nat has each prefix once, for stateful or stateless translation"}),
    family<fwx_nat64_smapping_set_a>(
        {"", "smapping", "Static mappings", "a static mapping"}, add_del, smapping_fields, smapping_payloads,
        {10, 0, is_t::smapping, TOTAL(static_mappings), nothing_alike, nullptr, ends_sessions}),
    family<fwx_nat64_dmapping_set_a>(
        {"", "dmapping", "Dynamic mappings", "a dynamic mapping"}, add_mod_del, dmapping_fields,
        record_dmapping_payloads,
        {11, mod, is_t::dmapping, TOTAL(dynamic_mappings),
         "ietf-nat has one mapping-type, which is that of dynamic mapping 1: eim, adm or edm", nullptr, ends_sessions}),
    family<fwx_nat64_pool_set_a>(
        {"", "pool", "Address pools", "an address pool"}, add_mod_del, pool_fields, record_pool_payloads,
        {7, mod, is_t::pool, TOTAL(pools), "a pool of ietf-nat is one prefix", nullptr, ends_sessions}),
    family<fwx_nat64_pool_range_set_a>(
        {"", "range", "Further address ranges of pools", "a range of a pool"}, add_del, range_fields, range_payloads,
        {8, 0, is_t::pool_range, TOTAL(pool_ranges), "a pool of ietf-nat is one prefix, without further ranges"}),
    family<fwx_nat64_logging_set_a>({"", "logging", "Logging of translations", "a logging destination"}, add_mod_del,
                                    logging_fields, record_logging_payloads,
                                    {6, mod, is_t::logging, TOTAL(loggings), nothing_alike, &logging_initial}),
    family<fwx_nat64_mapt_bmr_set_a>({"mapt", "bmr", "Basic mapping rules", "a basic mapping rule"}, add_del,
                                     bmr_fields, bmr_payloads, {12, 0, is_t::basic_rule, TOTAL(rules), nothing_alike}),
    family<fwx_nat64_mapt_dmr_set_a>({"mapt", "dmr", "Default mapping rules", "a default mapping rule"}, add_del,
                                     dmr_fields, dmr_payloads,
                                     {13, 0, is_t::default_rule, TOTAL(rules),
                                      "ietf-softwire-br says one default rule, which is 1, within its basic rules"}),
};
#undef TOTAL

constexpr bool each_has_a_rank_and_kind_of_its_own() {
    for (const record_family_t &family : families) {
        for (const record_family_t &other : families) {
            const bool has_same_kind = family.kind == other.kind && family.kind != family_kind_t::other;
            if (&family != &other && (family.rank == other.rank || has_same_kind)) return false;
        }
    }
    return true;
}
constexpr bool each_kind_has_a_family() {
    for (auto kind = static_cast<uint8_t>(is_t::other); kind <= static_cast<uint8_t>(is_t::default_rule); ++kind) {
        bool is_found = false;
        for (const record_family_t &family : families) {
            is_found = is_found || family.kind == static_cast<family_kind_t>(kind);
        }
        if (!is_found) return false;
    }
    return true;
}
constexpr bool fields_are_in_order() {
    for (const record_family_t &family : families) {
        for (size_t i = 1; i < family.field_count; ++i) {
            const record_field_t &before = family.fields[i - 1];
            if ((family.fields[i].is_key && !before.is_key) || before.is_spelling) return false;
        }
    }
    return true;
}
static_assert(each_has_a_rank_and_kind_of_its_own(), "two families have one rank or one kind");
static_assert(each_kind_has_a_family(), "record_family_of finds a family of each kind");
static_assert(fields_are_in_order(), "keys come first, and a field that spells others comes last");

}  // namespace

const record_family_t *record_families(size_t *count) {
    *count = std::size(families);
    return families;
}

const record_family_t &record_family_of(family_kind_t kind) {
    return *std::find_if(std::begin(families), std::end(families),
                         [kind](const record_family_t &family) { return family.kind == kind; });
}

record_kept_t record_kept_as(uint32_t op_code, const uint8_t *payload, size_t size) {
    for (const record_family_t &family : families) {
        for (const record_payload_t *row = family.payloads; row != family.payloads + family.payload_count; ++row) {
            const bool is_this = row->op_code == op_code && row->size == size;
            if (is_this && row->word.is_in(payload)) return {&family, row};
        }
    }
    return {nullptr, nullptr};
}

const record_family_t *record_find_family(std::string_view text) {
    for (const record_family_t &family : families) {
        if (record_command_text(family, nullptr) == text) return &family;
    }
    return nullptr;
}
