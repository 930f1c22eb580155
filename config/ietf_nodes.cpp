/*
 * The rows of the table. The first argument of a row is its depth in the tree; a reason as the last argument means that
 * a document cannot express the node.
 */
#include "config/ietf_nodes.h"

#include <iterator>

namespace {

constexpr ietf_node_t leaf(uint8_t depth, std::string_view name, ietf_kind_t kind, std::string_view why) {
    return {depth, name, kind, {}, 0,  0,  why.empty() ? ietf_place_t::inner : ietf_place_t::nowhere,
            {},    {},   {},   {}, {}, why};
}
constexpr ietf_node_t object(uint8_t depth, std::string_view name) {
    return leaf(depth, name, ietf_kind_t::object, {});
}
constexpr ietf_node_t words_of(ietf_node_t node, std::string_view words) {
    node.words = words;
    return node;
}
constexpr ietf_node_t list(uint8_t depth, std::string_view name, std::string_view key) {
    return words_of(leaf(depth, name, ietf_kind_t::list, {}), key);
}
constexpr ietf_node_t number(uint8_t depth, std::string_view name, uint64_t max, std::string_view why = {}) {
    return leaf(depth, name, ietf_kind_t::number, why).range(0, max);
}
constexpr ietf_node_t boolean(uint8_t depth, std::string_view name, std::string_view why = {},
                              std::string_view words = {}) {
    return words_of(leaf(depth, name, ietf_kind_t::boolean, why), words);
}
constexpr ietf_node_t word(uint8_t depth, std::string_view name, std::string_view words, std::string_view why = {}) {
    return words_of(leaf(depth, name, ietf_kind_t::word, why), words);
}
constexpr ietf_node_t text(uint8_t depth, std::string_view name, std::string_view why = {}) {
    return leaf(depth, name, ietf_kind_t::text, why);
}
constexpr ietf_node_t prefix(uint8_t depth, std::string_view name, ietf_kind_t kind, std::string_view why = {}) {
    return leaf(depth, name, kind, why);
}
constexpr ietf_node_t subtree(uint8_t depth, std::string_view name, std::string_view why) {
    return leaf(depth, name, ietf_kind_t::subtree, why);
}

constexpr auto ipv4_prefix = ietf_kind_t::ipv4_prefix;
constexpr auto ipv6_prefix = ietf_kind_t::ipv6_prefix;
constexpr auto any_prefix = ietf_kind_t::prefix;
constexpr uint64_t uint8 = UINT8_MAX;
constexpr uint64_t uint16 = UINT16_MAX;
constexpr uint64_t uint32 = UINT32_MAX;
constexpr uint64_t percent = 100;
constexpr uint64_t hour = 3600;

/* Reasons that several leaves share. */
constexpr std::string_view state = "it is state, not configuration";
constexpr std::string_view other_nat = "it belongs to another kind of NAT";
constexpr std::string_view servers_choice = "the server chooses, and takes no command about it";
constexpr std::string_view no_notices = "no command sets when the server sends notifications";
constexpr std::string_view sessions_alone = "the one limit is that of sessions";
constexpr std::string_view no_timer = "there is no such timeout";
constexpr std::string_view one_address = "a static mapping is of one address";
constexpr std::string_view whole_addresses = "a static mapping is of whole addresses, for every protocol";

constexpr ietf_node_t nodes[] = {
    object(0, "ietf-nat:nat"),
    object(1, "instances"),
    list(2, "instance", "id").single(),
    number(3, "id", uint32).range(1, uint32).as_constant("1", "the instance is 1"),
    text(3, "name", "the instance has no name"),
    boolean(3, "enable").as_constant("true", "what a document says is in force"),
    words_of(leaf(3, "type", ietf_kind_t::identity, {}), "nat64 basic-nat44 napt44 dst-nat siit clat eam nptv6")
        .as_constant("nat64", "only an instance of type nat64 is this service's")
        .essential(),
    word(3, "per-interface-binding", "disabled layer-2 dslite", servers_choice),
    subtree(3, "capabilities", state),
    subtree(3, "nat-pass-through", other_nat),
    list(3, "policy", "id").single(),
    number(4, "id", uint32).as_constant("1", "the policy is 1"),
    subtree(4, "clat-parameters", other_nat),
    subtree(4, "nptv6-prefixes", other_nat),
    subtree(4, "eam", other_nat),
    list(4, "nat64-prefixes", "nat64-prefix").as_entry(family_kind_t::prefix),
    prefix(5, "nat64-prefix", ipv6_prefix).as_field("prefix"),
    list(5, "destination-ipv4-prefix", "ipv4-prefix"),
    prefix(6, "ipv4-prefix", ipv4_prefix, "a prefix stands for all IPv4 addresses").takes(),
    boolean(5, "stateless-enable", {}, "false=stateful true=stateless").as_field("kind").without("false"),
    list(4, "external-ip-address-pool", "pool-id").as_entry(family_kind_t::pool, "param=1"),
    number(5, "pool-id", uint32).range(1, uint32).as_field("id"),
    prefix(5, "external-ip-pool", ipv4_prefix).as_field("start", ietf_form_t::span),
    object(4, "port-set-restrict"),
    number(5, "start-port-number", uint16, servers_choice),
    number(5, "end-port-number", uint16, servers_choice),
    number(5, "psid-offset", 15, servers_choice),
    number(5, "psid-len", 15, servers_choice),
    number(5, "psid", uint16, servers_choice),
    boolean(4, "dst-nat-enable", other_nat),
    subtree(4, "dst-ip-address-pool", other_nat),
    list(4, "transport-protocols", "protocol-id"),
    number(5, "protocol-id", uint8, servers_choice),
    text(5, "protocol-name", servers_choice),
    number(4, "subscriber-mask-v6", 128, servers_choice),
    subtree(4, "subscriber-match", other_nat),
    word(4, "address-allocation-type", "arbitrary roundrobin paired", servers_choice),
    word(4, "port-allocation-type", "random port-preservation port-parity-preservation port-range-allocation",
         servers_choice),
    word(4, "mapping-type", "eim=endpoint-independent adm=address-dependent edm=address-and-port-dependent")
        .as_item(family_kind_t::dmapping, "id=1", "type"),
    word(4, "filtering-type", "eif adf edf", servers_choice),
    word(4, "fragment-behavior", "drop-all in-order out-of-order", servers_choice)
        .as_constant("out-of-order", "it is said with timers/fragment-min-timeout, as out-of-order")
        .beside_fragments(),
    list(4, "port-quota", "quota-type"),
    number(5, "port-limit", uint16, sessions_alone),
    number(5, "quota-type", uint8, sessions_alone),
    object(4, "port-set"),
    number(5, "port-set-size", uint16, servers_choice),
    number(5, "port-set-timeout", uint32, servers_choice),
    object(4, "timers"),
    number(5, "udp-timeout", uint32).range(1, uint32).as_item(family_kind_t::timeout, "type=udp", "value"),
    number(5, "tcp-idle-timeout", uint32).range(1, uint32).as_item(family_kind_t::timeout, "type=tcp-est", "value"),
    number(5, "tcp-trans-open-timeout", uint32)
        .range(1, uint32)
        .as_item(family_kind_t::timeout, "type=tcp-trans", "value"),
    number(5, "tcp-trans-close-timeout", uint32)
        .range(1, uint32)
        .as_item(family_kind_t::timeout, "type=tcp-trans", "value"),
    number(5, "tcp-in-syn-timeout", uint32)
        .range(1, uint32)
        .as_item(family_kind_t::timeout, "type=tcp-in-syn", "value"),
    number(5, "fragment-min-timeout", uint32)
        .range(1, uint32)
        .as_item(family_kind_t::timeout, "type=fragment-min", "value"),
    number(5, "icmp-timeout", uint32).range(1, uint32).as_item(family_kind_t::timeout, "type=icmp", "value"),
    list(5, "per-port-timeout", "port-number"),
    number(6, "port-number", uint16, no_timer),
    number(6, "protocol", uint8, no_timer),
    number(6, "timeout", uint32, no_timer),
    number(5, "hold-down-timeout", uint32, no_timer),
    number(5, "hold-down-max", uint32, no_timer),
    number(4, "fragments-limit", uint32, sessions_alone),
    subtree(4, "algs", "a service is the port of the one ALG, without a name"),
    boolean(4, "all-algs-enable", "a service is the port of the one ALG"),
    object(4, "notify-pool-usage"),
    number(5, "pool-id", uint32, no_notices),
    number(5, "low-threshold", percent, no_notices),
    number(5, "high-threshold", percent, no_notices),
    number(5, "notify-interval", hour, no_notices).range(1, hour),
    object(4, "external-realm"),
    text(5, "external-interface", "an interface has a number and prefixes, and no side"),
    object(3, "mapping-limits"),
    number(4, "limit-subscribers", uint32, sessions_alone),
    number(4, "limit-address-mappings", uint32, sessions_alone),
    number(4, "limit-port-mappings", uint32).as_item(family_kind_t::limit, "type=sessions", "value"),
    list(4, "limit-per-protocol", "protocol-id"),
    number(5, "protocol-id", uint8, sessions_alone),
    number(5, "limit", uint32, sessions_alone),
    object(3, "connection-limits"),
    number(4, "limit-per-subscriber", uint32, sessions_alone),
    number(4, "limit-per-instance", uint32, sessions_alone),
    list(4, "limit-per-protocol", "protocol-id"),
    number(5, "protocol-id", uint8, sessions_alone),
    number(5, "limit", uint32, sessions_alone),
    object(3, "notification-limits"),
    number(4, "notify-interval", hour, no_notices).range(1, hour),
    number(4, "notify-addresses-usage", percent, no_notices),
    number(4, "notify-ports-usage", percent, no_notices),
    number(4, "notify-subscribers-limit", uint32, no_notices),
    object(3, "mapping-table"),
    list(4, "mapping-entry", "index").as_entry(family_kind_t::smapping),
    number(5, "index", uint32).as_field("id"),
    word(5, "type", "static dynamic-implicit dynamic-explicit")
        .as_constant("static", "a mapping that is made by traffic or a protocol is no configuration")
        .takes(),
    number(5, "transport-protocol", uint8, whole_addresses).takes(),
    prefix(5, "internal-src-address", any_prefix, one_address).as_field("addr1", ietf_form_t::host).takes(),
    object(5, "internal-src-port"),
    number(6, "start-port-number", uint16, whole_addresses).takes(),
    number(6, "end-port-number", uint16, whole_addresses).takes(),
    prefix(5, "external-src-address", any_prefix, one_address).as_field("addr2", ietf_form_t::host).takes(),
    object(5, "external-src-port"),
    number(6, "start-port-number", uint16, whole_addresses).takes(),
    number(6, "end-port-number", uint16, whole_addresses).takes(),
    prefix(5, "internal-dst-address", any_prefix, other_nat).takes(),
    object(5, "internal-dst-port"),
    number(6, "start-port-number", uint16, other_nat).takes(),
    number(6, "end-port-number", uint16, other_nat).takes(),
    prefix(5, "external-dst-address", any_prefix, other_nat).takes(),
    object(5, "external-dst-port"),
    number(6, "start-port-number", uint16, other_nat).takes(),
    number(6, "end-port-number", uint16, other_nat).takes(),
    number(5, "lifetime", uint32, "a static mapping stays until it is deleted").takes(),
    subtree(3, "statistics", state),
    object(0, "ietf-softwire-br:br-instances"),
    subtree(1, "binding", "rules map by an algorithm, not by a table"),
    object(1, "algorithm"),
    list(2, "algo-instance", "name").as_entry(family_kind_t::basic_rule),
    text(3, "name", "a rule is domain-D-rule-R, as numbers").as_field("rule", ietf_form_t::rule_name),
    boolean(3, "enable").as_constant("true", "a rule that is there is in force").takes(),
    object(3, "algo-versioning"),
    text(4, "version", "versions of a document are natctl's"),
    text(4, "date", "versions of a document are natctl's"),
    text(3, "br-ipv6-addr", "packets are translated, not encapsulated").takes(),
    prefix(3, "dmr-ipv6-prefix", ipv6_prefix).as_item(family_kind_t::default_rule, "id=1", "prefix"),
    number(3, "ea-len", uint8).as_field("ea_len").required(),
    prefix(3, "rule-ipv6-prefix", ipv6_prefix).as_field("v6"),
    prefix(3, "rule-ipv4-prefix", ipv4_prefix).as_field("v4"),
    boolean(3, "forwarding").as_constant("true", "the service forwards by every rule").takes().required(),
    object(3, "port-set"),
    number(4, "psid-offset", 16).as_field("psid_offset").without("6"),
    number(4, "psid-len", 15).as_field("psid_len"),
    number(4, "psid", uint16).as_field("psid"),
    subtree(3, "traffic-stat", state),
};

/** The first of a node's words for which `use` returns true. */
template <typename use_t>
ietf_word_t find_word(const ietf_node_t &node, use_t use) {
    std::string_view rest = node.words;
    while (!rest.empty()) {
        const std::string_view token = rest.substr(0, rest.find(' '));
        rest.remove_prefix(token.size() == rest.size() ? token.size() : token.size() + 1);
        const size_t equals = token.find('=');
        const ietf_word_t word = {token.substr(0, equals),
                                  equals == std::string_view::npos ? token : token.substr(equals + 1)};
        if (use(word)) return word;
    }
    return {};
}

}  // namespace

const ietf_node_t *ietf_nodes(size_t *count) {
    *count = std::size(nodes);
    return nodes;
}

size_t ietf_end_of(size_t node) {
    size_t next = node + 1;
    while (next < std::size(nodes) && nodes[next].depth > nodes[node].depth) {
        ++next;
    }
    return next;
}

ietf_fixed_t ietf_fixed_of(const ietf_node_t &node) {
    const size_t equals = node.with.find('=');
    if (equals == std::string_view::npos) return {};
    return {node.with.substr(0, equals), node.with.substr(equals + 1)};
}

ietf_word_t ietf_word_of(const ietf_node_t &node, std::string_view name) {
    return find_word(node, [name](const ietf_word_t &word) { return word.name == name; });
}

ietf_word_t ietf_word_for(const ietf_node_t &node, std::string_view value) {
    return find_word(node, [value](const ietf_word_t &word) { return word.value == value; });
}
