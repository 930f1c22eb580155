#include "records/families.h"

#include <netinet/in.h>

#include <iterator>

#include "fwx_nat64/fwx_nat64.h"

namespace {

/* --- Verbs --- */

constexpr record_verb_t add_del[] = {record_add, record_del};
constexpr record_verb_t add_mod_del[] = {record_add, record_mod, record_del};
constexpr record_verb_t set_only[] = {{"set", FWX_NAT64_OP_ADD, "Sets"}};
constexpr record_verb_t set_unset[] = {{"set", FWX_NAT64_OP_ADD, "Sets"}, {"unset", FWX_NAT64_OP_DEL, "Takes back"}};
constexpr record_verb_t enable_only[] = {{"enable", FWX_NAT64_OP_ADD, "Enables"}};

/* --- Simple settings --- */

constexpr record_field_t timeout_fields[] = {
    RECORD_FIELD("--type", "type", number, fwx_nat64_timeout_t, type, "kind of timeout")
        .within(1, FWX_NAT64_TIMEOUT_TYPE_MAX)
        .named(wire_timeout_names)
        .key(),
    RECORD_FIELD("--value", "value", number, fwx_nat64_timeout_t, value, "the timeout").in_seconds().required(),
};
constexpr record_field_t limit_fields[] = {
    RECORD_FIELD("--type", "type", number, fwx_nat64_limit_t, type, "kind")
        .within(FWX_NAT64_LIMIT_TYPE, FWX_NAT64_LIMIT_TYPE)
        .named(wire_limit_names)
        .key(),
    RECORD_FIELD("--value", "value", number, fwx_nat64_limit_t, value, "most that is allowed")
        .required(record_not_on_delete),
};
constexpr record_field_t service_fields[] = {
    RECORD_FIELD("--type", "type", number, fwx_nat64_service_t, type, "kind")
        .within(FWX_NAT64_SERVICE_TYPE, FWX_NAT64_SERVICE_TYPE)
        .named(wire_service_names)
        .key(),
    RECORD_FIELD("--value", "value", number, fwx_nat64_service_t, value, "port of its protocol")
        .required(record_not_on_delete),
};
constexpr record_field_t adj_fields[] = {
    RECORD_FIELD("--type", "type", number, fwx_nat64_adj_t, type, "kind of adjacency")
        .within(1, FWX_NAT64_ADJ_TYPE_MAX)
        .named(wire_adj_names)
        .key(),
    RECORD_FIELD("--address", "address", address, fwx_nat64_adj_t, address, "its address").required(),
};
constexpr record_field_t replication_fields[] = {
    RECORD_FIELD("--value", "value", number, fwx_nat64_replication_t, value, "first word, passed to the server"),
    RECORD_FIELD("--value2", "value2", number, fwx_nat64_replication_t, value2, "second word, passed to the server"),
};
constexpr record_field_t settings_fields[] = {
    RECORD_FIELD("--bytes", "opaque", bytes, fwx_nat64_global_settings_t, opaque, "the settings, passed to the server")
        .required(),
};

uint32_t send_replication(uint32_t op, const fwx_nat64_replication_t *record, void *pal_ctx) {
    fwx_nat64_replication_t replication = *record;
    replication.set = op == FWX_NAT64_OP_DEL ? 0 : 1;
    return fwx_nat64_replication_set_a(op, &replication, pal_ctx);
}

/* --- What is translated --- */

constexpr fwx_nat64_intf_info_t interface_initial = {0, 1, 0, {}, 0, {}, 0, {}, 0, 0}; /* enabled */
constexpr record_field_t interface_fields[] = {
    RECORD_FIELD("--ifh", "ifh", number, fwx_nat64_intf_info_t, ifh, "interface handle").key(),
    RECORD_FIELD("--enable", "enable", number, fwx_nat64_intf_info_t, enable, "whether it translates, 1 without it")
        .within(0, 1),
    RECORD_PREFIX_FIELD("--sless", "sless_prefix", fwx_nat64_intf_info_t, sless_prefix, "stateless prefix")
        .marked_at(offsetof(fwx_nat64_intf_info_t, sless_prefix_valid))
        .embedding(),
    RECORD_PREFIX_FIELD("--sful", "sful_prefix", fwx_nat64_intf_info_t, sful_prefix, "stateful prefix")
        .marked_at(offsetof(fwx_nat64_intf_info_t, sful_prefix_valid))
        .embedding(),
    RECORD_PREFIX_FIELD("--sless-v6v4", "sless_prefix_v6v4", fwx_nat64_intf_info_t, sless_prefix_v6v4,
                        "stateless prefix from IPv6 to IPv4")
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
    RECORD_FIELD("--kind", "prefix_kind", number, fwx_nat64_prefix_t, kind, "what it is for")
        .within(1, FWX_NAT64_PREFIX_KIND_MAX)
        .named(wire_prefix_kind_names)
        .key(),
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
constexpr record_field_t dmapping_fields[] = {
    RECORD_FIELD("--id", "id", number, fwx_nat64_dmapping_t, id, "identifier of the mapping").from(1).key(),
    RECORD_FIELD("--type", "type", number, fwx_nat64_dmapping_t, type, "how it maps")
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
    RECORD_FIELD("--start", "start_addr", ipv4, fwx_nat64_pool_t, start_addr, "first address")
        .on(record_not_on_delete)
        .required(),
    RECORD_FIELD("--end", "end_addr", ipv4, fwx_nat64_pool_t, end_addr, "last address")
        .on(record_not_on_delete)
        .required(),
    RECORD_FIELD("--hsl", "hsl_id", number, fwx_nat64_pool_t, hsl_id, "identifier of its logging")
        .on(record_not_on_delete),
};
constexpr record_field_t range_fields[] = {
    RECORD_FIELD("--id", "id", number, fwx_nat64_pool_range_t, id, "identifier of the pool").from(1).key(),
    RECORD_FIELD("--start", "start_addr", ipv4, fwx_nat64_pool_range_t, start_addr, "first address").key(),
    RECORD_FIELD("--end", "end_addr", ipv4, fwx_nat64_pool_range_t, end_addr, "last address").key(),
};

constexpr fwx_nat64_logging_t logging_initial = {FWX_NAT64_LOGGING_TYPE, FWX_NAT64_LOGGING_MODE, 0, {}, 0, 0};
constexpr record_field_t logging_fields[] = {
    RECORD_FIELD("--dest", "dest", ipv4, fwx_nat64_logging_t, dest, "address that the records go to").key(),
    RECORD_FIELD("--port", "dest_port", number, fwx_nat64_logging_t, dest_port, "its port").from(1).key(),
    RECORD_FIELD("--transport", "param", number, fwx_nat64_logging_t, param,
                 "protocol that they travel by, the server's choice without it")
        .known_as("--param")
        .named(wire_transport_names),
    RECORD_FIELD("--template", "param2", number, fwx_nat64_logging_t, param2, "what is logged, all without it")
        .known_as("--param2")
        .named(wire_template_names),
};

/* --- MAP-T rules --- */

constexpr record_field_t bmr_fields[] = {
    RECORD_FIELD("--rule", "rule_id", number, fwx_nat64_mapt_bmr_t, rule_id, "identifier of the rule").from(1).key(),
    RECORD_FIELD("--domain", "domain_id", number, fwx_nat64_mapt_bmr_t, domain_id, "its mapping domain").key(),
    RECORD_FIELD("--v6", "v6_prefix", ipv6_prefix, fwx_nat64_mapt_bmr_t, v6_prefix, "its IPv6 prefix")
        .within(0, FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX)
        .length_at(offsetof(fwx_nat64_mapt_bmr_t, v6_prefix_len))
        .required(record_not_on_delete),
    RECORD_FIELD("--v4", "v4_prefix", ipv4_prefix, fwx_nat64_mapt_bmr_t, v4_prefix, "its IPv4 prefix")
        .within(0, FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX)
        .length_at(offsetof(fwx_nat64_mapt_bmr_t, v4_prefix_len))
        .required(record_not_on_delete),
    RECORD_FIELD("--ea-len", "ea_len", number, fwx_nat64_mapt_bmr_t, rule_params[0], "bits that embed an address"),
    RECORD_FIELD("--psid-offset", "psid_offset", number, fwx_nat64_mapt_bmr_t, rule_params[1],
                 "bits in front of the port-set identifier"),
    RECORD_FIELD("--psid-len", "psid_len", number, fwx_nat64_mapt_bmr_t, rule_params[2],
                 "bits of the port-set identifier"),
    RECORD_FIELD("--psid", "psid", number, fwx_nat64_mapt_bmr_t, rule_params[3],
                 "the port-set identifier where the EA bits hold none"),
    RECORD_FIELD("--params", "rule_params", numbers, fwx_nat64_mapt_bmr_t, rule_params, "these four").spelling(),
};
constexpr record_field_t dmr_fields[] = {
    RECORD_FIELD("--id", "id", number, fwx_nat64_mapt_dmr_t, id, "identifier of the rule").from(1).key(),
    record_field("--prefix", "prefix", record_kind_t::ipv6_prefix, offsetof(fwx_nat64_mapt_dmr_t, opaque),
                 sizeof(in6_addr), "IPv6 prefix that stands for all other IPv4 addresses")
        .length_at(offsetof(fwx_nat64_mapt_dmr_t, opaque) + sizeof(in6_addr))
        .embedding(),
    RECORD_FIELD("--data", "opaque", bytes, fwx_nat64_mapt_dmr_t, opaque, "the same as bytes, and seven more")
        .spelling(),
};

/* --- The table --- */

/** Calls a setter with a record whose type it does not show. */
template <auto setter>
struct sender_t;
template <typename type_t, uint32_t (*setter)(uint32_t op, const type_t *record, void *pal_ctx)>
struct sender_t<setter> {
    using record_t = type_t;
    static uint32_t send(uint32_t op, const void *record, void *pal_ctx) {
        return setter(op, static_cast<const record_t *>(record), pal_ctx);
    }
};
/** A setter of one operation. */
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
struct life_t {
    uint8_t rank;
    uint32_t modify_op;
    const char *item = nullptr;
    const void *initial = nullptr;
    bool ends_sessions = false;
};
constexpr bool ends_sessions = true;

template <auto setter, size_t verb_count, size_t field_count>
constexpr record_family_t family(words_t words, const record_verb_t (&verbs)[verb_count],
                                 const record_field_t (&fields)[field_count], life_t life) {
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
            life.initial,
            sender_t<setter>::send,
            life.modify_op,
            life.rank,
            life.item,
            life.ends_sessions};
}

constexpr record_family_t families[] = {
    family<fwx_nat64_timeout_set_a>({"", "timeout", "Timeouts of sessions", "a timeout"}, set_only, timeout_fields,
                                    {1, FWX_NAT64_OP_ADD}),
    family<fwx_nat64_limit_set_a>({"", "limit", "Limits of the service", "a limit"}, add_mod_del, limit_fields,
                                  {2, FWX_NAT64_OP_MOD}),
    family<fwx_nat64_service_set_a>({"", "service", "Services", "a service"}, add_del, service_fields, {3, 0}),
    family<fwx_nat64_adj_set_a>({"", "adj", "Adjacencies", "an adjacency"}, set_only, adj_fields,
                                {4, FWX_NAT64_OP_ADD}),
    family<send_replication>({"", "replication", "Replication of sessions", "the replication"}, set_unset,
                             replication_fields, {5, FWX_NAT64_OP_ADD}),
    family<fwx_nat64_global_settings_set_a>({"", "settings", "Global settings", "the global settings"}, set_only,
                                            settings_fields, {0, FWX_NAT64_OP_ADD}),
    family<fwx_nat64_interface_set_a>({"", "interface", "Interfaces that translate",
                                       "an interface's prefixes and MTU; those that are not given are dropped"},
                                      set_only, interface_fields, {14, FWX_NAT64_OP_ADD, nullptr, &interface_initial}),
    family<send_nvi>({"", "nvi", "NAT virtual interfaces", "an interface"}, enable_only, nvi_fields,
                     {15, 0, "interface"}),
    family<send_prefix>({"", "prefix", "Global prefixes", "a global prefix"}, add_mod_del, prefix_fields,
                        {9, FWX_NAT64_OP_MOD}),
    family<fwx_nat64_smapping_set_a>({"", "smapping", "Static mappings", "a static mapping"}, add_del, smapping_fields,
                                     {10, 0, nullptr, nullptr, ends_sessions}),
    family<fwx_nat64_dmapping_set_a>({"", "dmapping", "Dynamic mappings", "a dynamic mapping"}, add_mod_del,
                                     dmapping_fields, {11, FWX_NAT64_OP_MOD, nullptr, nullptr, ends_sessions}),
    family<fwx_nat64_pool_set_a>({"", "pool", "Address pools", "an address pool"}, add_mod_del, pool_fields,
                                 {7, FWX_NAT64_OP_MOD, nullptr, nullptr, ends_sessions}),
    family<fwx_nat64_pool_range_set_a>({"", "range", "Further address ranges of pools", "a range of a pool"}, add_del,
                                       range_fields, {8, 0}),
    family<fwx_nat64_logging_set_a>({"", "logging", "Logging of translations", "a logging destination"}, add_mod_del,
                                    logging_fields, {6, FWX_NAT64_OP_MOD, nullptr, &logging_initial}),
    family<fwx_nat64_mapt_bmr_set_a>({"mapt", "bmr", "Basic mapping rules", "a basic mapping rule"}, add_del,
                                     bmr_fields, {12, 0}),
    family<fwx_nat64_mapt_dmr_set_a>({"mapt", "dmr", "Default mapping rules", "a default mapping rule"}, add_del,
                                     dmr_fields, {13, 0}),
};

constexpr bool each_has_a_rank_of_its_own() {
    for (const record_family_t &family : families) {
        for (const record_family_t &other : families) {
            if (&family != &other && family.rank == other.rank) return false;
        }
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
static_assert(fields_are_in_order(), "keys come first, and a field that spells others comes last");

static_assert(each_has_a_rank_of_its_own(), "the order of two families is not settled");

}  // namespace

const record_family_t *record_families(size_t *count) {
    *count = std::size(families);
    return families;
}

const record_family_t *record_find_family(std::string_view text) {
    for (const record_family_t &family : families) {
        if (record_command_text(family, nullptr) == text) return &family;
    }
    return nullptr;
}
