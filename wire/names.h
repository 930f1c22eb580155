/* Names of field values. Messages carry numbers, most of which the library does not interpret. The names are those of
 * the server of this project, and of the tools that show or read its configuration. */
#ifndef WIRE_NAMES_H
#define WIRE_NAMES_H

#include <netinet/in.h>

#include <cstddef>
#include <string_view>

#include "fwx_nat64/wire.h"

struct wire_value_name_t {
    uint32_t value;
    const char *name;
};

/** The names of the values of a field; other values have no name. */
struct wire_names_t {
    const wire_value_name_t *names;
    size_t count;

    constexpr const wire_value_name_t *begin() const { return names; }
    constexpr const wire_value_name_t *end() const { return names + count; }
    /** Returns the name of a value, or null. */
    constexpr const char *name_of(uint64_t value) const {
        for (const wire_value_name_t &each : *this) {
            if (each.value == value) return each.name;
        }
        return nullptr;
    }
    /** Returns the entry with that name, or null. */
    constexpr const wire_value_name_t *find(std::string_view name) const {
        for (const wire_value_name_t &each : *this) {
            if (name == each.name) return &each;
        }
        return nullptr;
    }
};

#define WIRE_NAMES(set, ...)                                  \
    constexpr wire_value_name_t set##_list[] = {__VA_ARGS__}; \
    constexpr wire_names_t set = {set##_list, sizeof set##_list / sizeof set##_list[0]}

WIRE_NAMES(wire_operation_names, {FWX_NAT64_OP_ADD, "add"}, {FWX_NAT64_OP_MOD, "modify"}, {FWX_NAT64_OP_DEL, "delete"});
WIRE_NAMES(wire_mapping_kind_names, {FWX_NAT64_MAPPING_UNKNOWN, "unknown"}, {FWX_NAT64_MAPPING_STATIC, "static"},
           {FWX_NAT64_MAPPING_DYNAMIC, "dynamic"});
WIRE_NAMES(wire_debug_selector_names, {FWX_NAT64_UNSOL_DEBUG_INFO, "info"}, {FWX_NAT64_UNSOL_DEBUG_TRACE, "trace"},
           {FWX_NAT64_UNSOL_DEBUG_WARNING, "warning"}, {FWX_NAT64_UNSOL_DEBUG_ERROR, "error"},
           {FWX_NAT64_UNSOL_DEBUG_ALL, "all four"});

WIRE_NAMES(wire_timeout_names, {FWX_NAT64_TIMEOUT_UDP, "udp"}, {FWX_NAT64_TIMEOUT_TCP_TRANS, "tcp-trans"},
           {FWX_NAT64_TIMEOUT_TCP_EST, "tcp-est"}, {FWX_NAT64_TIMEOUT_TCP_IN_SYN, "tcp-in-syn"},
           {FWX_NAT64_TIMEOUT_FRAGMENT_MIN, "fragment-min"}, {FWX_NAT64_TIMEOUT_ICMP, "icmp"},
           {FWX_NAT64_TIMEOUT_UDP_MIN, "udp-min"});
WIRE_NAMES(wire_limit_names, {FWX_NAT64_LIMIT_TYPE, "sessions"});
WIRE_NAMES(wire_service_names, {FWX_NAT64_SERVICE_TYPE, "alg"});
WIRE_NAMES(wire_adj_names, {FWX_NAT64_ADJ_INSIDE, "inside"}, {FWX_NAT64_ADJ_OUTSIDE, "outside"},
           {FWX_NAT64_ADJ_LOGGING, "logging"}, {FWX_NAT64_ADJ_REPLICATION, "replication"});
WIRE_NAMES(wire_prefix_kind_names, {FWX_NAT64_PREFIX_STATEFUL, "stateful"}, {FWX_NAT64_PREFIX_STATELESS, "stateless"},
           {FWX_NAT64_PREFIX_STATELESS_V6V4, "stateless-v6v4"}, {FWX_NAT64_PREFIX_DNS64, "dns64"});
WIRE_NAMES(wire_dmapping_names, {FWX_NAT64_DMAPPING_EIM, "endpoint-independent"},
           {FWX_NAT64_DMAPPING_ADM, "address-dependent"}, {FWX_NAT64_DMAPPING_APDM, "address-and-port-dependent"});
WIRE_NAMES(wire_transport_names, {IPPROTO_UDP, "udp"}, {IPPROTO_TCP, "tcp"}, {IPPROTO_SCTP, "sctp"});
WIRE_NAMES(wire_template_names, {FWX_NAT64_LOGGING_TEMPLATE_ALL, "all"},
           {FWX_NAT64_LOGGING_TEMPLATE_SESSION, "session"}, {FWX_NAT64_LOGGING_TEMPLATE_BIB, "bib"},
           {FWX_NAT64_LOGGING_TEMPLATE_PORTS, "port-block"});
WIRE_NAMES(wire_protocol_names, {IPPROTO_ICMP, "icmp"}, {IPPROTO_TCP, "tcp"}, {IPPROTO_UDP, "udp"},
           {IPPROTO_ICMPV6, "icmpv6"});

WIRE_NAMES(wire_session_state_names, {FWX_NAT64_SESSION_ACTIVE, "active"}, {FWX_NAT64_SESSION_V6_INIT, "v6-init"},
           {FWX_NAT64_SESSION_V4_INIT, "v4-init"}, {FWX_NAT64_SESSION_ESTABLISHED, "established"},
           {FWX_NAT64_SESSION_V6_FIN, "v6-fin"}, {FWX_NAT64_SESSION_V4_FIN, "v4-fin"}, {FWX_NAT64_SESSION_FIN, "fin"},
           {FWX_NAT64_SESSION_TRANS, "trans"});

#undef WIRE_NAMES

#endif
