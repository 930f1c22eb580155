/*
 * The plan of a configuration: what the kernel must do for it, as plain values. These are nftables objects, chains and
 * map elements as text, the IPv4 networks routed to the translator, and settings of the network namespace.
 *
 * Translation takes two steps. The translator rewrites headers between IPv6 and IPv4 for every address in its own
 * prefix and keeps no state. In front of it IPv6 connection tracking changes addresses and ports: it maps the
 * configured prefixes to the translator's, and sources to addresses in the translator's prefix. So one conntrack
 * entry holds a whole session, and a configuration change does not affect the translator.
 */
#ifndef GATEWAY_PLAN_H
#define GATEWAY_PLAN_H

#include <map>
#include <string>
#include <vector>

#include "server/configuration.h"

using ipv6_bytes_t = std::array<uint8_t, 16>;

/** The only device and prefix of a gateway; a network namespace has at most one gateway. */
inline constexpr const char *translator_device = "fwx_nat64";
inline constexpr ipv6_bytes_t translator_prefix = {0xfd, 0x6e, 0x61, 0x74, 0x36, 0x34};
inline constexpr uint8_t translator_prefix_len = 96;
/** Source of the translator's own ICMP errors: the dummy address of RFC 7600. */
inline constexpr const char *translator_ipv4 = "192.0.0.8";

inline constexpr uint32_t first_pool_port = 1024;
inline constexpr uint32_t most_pool_ports = 65536 - first_pool_port;

struct ipv4_network_t {
    uint32_t address; /* host order */
    uint8_t prefix_len;

    auto operator<=>(const ipv4_network_t &other) const = default;
    bool contains(uint32_t host) const { return prefix_len == 0 || (address ^ host) >> (32 - prefix_len) == 0; }
};
using networks_t = std::vector<ipv4_network_t>; /* disjoint, ascending */

struct chain_t {
    std::string hook; /* `type nat hook ...;` of a base chain */
    std::vector<std::string> rules;

    bool operator==(const chain_t &other) const = default;
};

struct ruleset_t {
    std::map<std::pair<std::string, std::string>, std::string> objects; /* definition by kind and name */
    std::map<std::string, chain_t> chains;                              /* by name */
    /* Elements of the nftables maps of these names, ordered by key. Those of static mappings are kept as bytes, because
     * a change affects few of many thousands, and only these become text. */
    std::vector<std::pair<ipv6_bytes_t, ipv6_bytes_t>> inbound, outbound;
    std::map<std::string, std::string> sources;
};

struct plan_t {
    ruleset_t ruleset;
    networks_t networks;
    std::map<std::string, std::string> settings; /* by path below /proc/sys/net */
};

/** The sources of a dynamic mapping, and the pool that they use. */
struct source_rule_t {
    ipv6_bytes_t prefix;
    uint8_t prefix_len; /* 0: all sources that no other mapping names */
    uint32_t pool_id;   /* 0: all pools that no mapping names */
};
/** Reads the second part of a dynamic mapping: 16 bytes of prefix, its length, zeros; the argument is the pool. All
 * zeros, or FWX_NAT64_DMAPPING_NO_SECOND_PART and zeros, mean all sources. Returns nothing for any other content. */
std::optional<source_rule_t> source_rule_of(const fwx_nat64_dmapping_t &mapping);

/** A span of a pool, and the numbers of its addresses among those of the pool. */
struct pool_span_t {
    uint32_t first, last; /* host order */
    uint64_t first_number, last_number;
};
/** Returns the spans of each pool, by its identifier; the first is the pool's own. */
std::map<uint32_t, std::vector<pool_span_t>> spans_by_pool(const configuration_t &config);

plan_t plan_of(const configuration_t &config);

/** Returns the smallest set of networks that covers every span, given as first and last address in host order. */
networks_t networks_of(std::vector<std::pair<uint32_t, uint32_t>> spans);

/** Returns the text that creates the table and its maps, or empties the maps that exist. */
std::string table_text(const std::string &table);
/** Returns the text of one transaction that changes `from` to `to`. It does not delete unused timeouts, because flows
 * that began with them keep using them. */
std::string changes_text(const std::string &table, const ruleset_t &from, const ruleset_t &to);

#endif
