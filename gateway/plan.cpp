/* Turns a configuration into the plan of a gateway, and two plans into the text of one nftables transaction. The chains
 * and maps that every gateway has come from add_hooks; timeouts, prefixes, pools, mappings and the session limit fill
 * them. */
#include "gateway/plan.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <iterator>

#include "records/value.h"

namespace {

std::string text_of(const ipv6_bytes_t &address) {
    return address_text(AF_INET6, address.data());
}
const std::string &text_of(const std::string &text) {
    return text;
}
/** Returns the IPv6 address that embeds an IPv4 address (host order) in the translator's prefix. */
ipv6_bytes_t translated(uint32_t ipv4) {
    ipv6_bytes_t address;
    const uint32_t word = htonl(ipv4);
    std::copy(translator_prefix.begin(), translator_prefix.end(), address.begin());
    std::memcpy(address.data() + translator_prefix.size(), &word, sizeof word);
    return address;
}
std::string prefix_96(const uint8_t *twelve_bytes) {
    return prefix_text(AF_INET6, twelve_bytes, translator_prefix.size(), translator_prefix_len);
}

struct span_of_pool_t {
    uint32_t first, last; /* host order */
    uint64_t size() const { return uint64_t{last} - first + 1; }
};

std::map<uint32_t, std::vector<span_of_pool_t>> spans_by_pool(const configuration_t &config) {
    std::map<uint32_t, std::vector<span_of_pool_t>> spans;
    for (const auto &[id, pool] : config.pools.pools.entries) {
        spans[id].push_back({ntohl(pool.start_addr), ntohl(pool.end_addr)});
    }
    for (const auto &[span, range] : config.pools.ranges.entries) {
        spans[range.id].push_back({ipv4_of(range.start_addr.addr), ipv4_of(range.end_addr.addr)});
    }
    return spans;
}

void add_element(std::string &list, const std::string &key, const std::string &value) {
    if (!list.empty()) list += ", ";
    list.append(key).append(" : ").append(value);
}

std::string pool_name(uint32_t id) {
    return "pool_" + std::to_string(id);
}

/* --- Timeouts --- */

uint32_t timeout_of(const configuration_t &config, uint32_t type, uint32_t default_s) {
    const auto set = config.settings.timeouts.get(type);
    return set && set->value != 0 ? set->value : default_s;
}

/** Adds a timeout object and returns the rule that sets it. The name holds the values, because the kernel cannot change
 * a timeout object. */
std::string add_timeout(ruleset_t &ruleset, const std::string &protocol, const std::string &name,
                        const std::string &policy) {
    ruleset.objects["ct timeout " + name] = "{ protocol " + protocol + "; l3proto ip6; policy = { " + policy + " }; }";
    return "meta l4proto " + protocol + " ct timeout set \"" + name + "\"";
}

void add_tcp_timeout(ruleset_t &ruleset, const char *direction, const std::string &name, const std::string &opening,
                     const std::string &passing, const std::string &established) {
    std::string policy = "syn_sent : " + opening + ", established : " + established;
    for (const char *state : {"syn_recv", "fin_wait", "close_wait", "last_ack", "time_wait", "close"}) {
        policy += std::string(", ") + state + " : " + passing;
    }
    ruleset.chains["lifetimes"].rules.push_back(std::string(direction) + " \"" + translator_device + "\" " +
                                                add_timeout(ruleset, "tcp", name, policy));
}

void add_timeouts(plan_t &plan, const configuration_t &config) {
    const auto seconds = [&config](uint32_t type, uint32_t default_s) {
        return std::to_string(timeout_of(config, type, default_s));
    };
    ruleset_t &ruleset = plan.ruleset;
    const uint32_t udp_s =
        std::max(timeout_of(config, FWX_NAT64_TIMEOUT_UDP, 300), timeout_of(config, FWX_NAT64_TIMEOUT_UDP_MIN, 0));
    const std::string udp = std::to_string(udp_s);
    ruleset.chains["lifetimes"].rules = {
        add_timeout(ruleset, "udp", "udp_" + udp, "unreplied : " + udp + ", replied : " + udp)};
    const std::string passing = seconds(FWX_NAT64_TIMEOUT_TCP_TRANS, 240);
    const std::string established = seconds(FWX_NAT64_TIMEOUT_TCP_EST, 7440);
    const std::string from_outside = seconds(FWX_NAT64_TIMEOUT_TCP_IN_SYN, 6);
    add_tcp_timeout(ruleset, "oifname", "tcp_" + passing + "_" + established, passing, passing, established);
    add_tcp_timeout(ruleset, "iifname", "tcp_" + from_outside + "_" + passing + "_" + established, from_outside,
                    passing, established);
    plan.settings = {{"netfilter/nf_conntrack_acct", "1"},
                     {"netfilter/nf_conntrack_timestamp", "1"},
                     {"netfilter/nf_conntrack_icmpv6_timeout", seconds(FWX_NAT64_TIMEOUT_ICMP, 60)},
                     {"netfilter/nf_conntrack_frag6_timeout", seconds(FWX_NAT64_TIMEOUT_FRAGMENT_MIN, 60)}};
}

/* --- Prefixes, mappings and pools --- */

/** IPv4 addresses that are not global. They must not be reached through the well-known prefix (RFC 6052, 3.1). */
constexpr const char *not_global =
    "{ 64:ff9b::/104, 64:ff9b::a00:0/104, 64:ff9b::6440:0/106, 64:ff9b::7f00:0/104, 64:ff9b::a9fe:0/112, "
    "64:ff9b::ac10:0/108, 64:ff9b::c000:0/120, 64:ff9b::c000:200/120, 64:ff9b::c0a8:0/112, 64:ff9b::c612:0/111, "
    "64:ff9b::c633:6400/120, 64:ff9b::cb00:7100/120, 64:ff9b::e000:0/99 }";

void add_prefixes(ruleset_t &ruleset, const configuration_t &config) {
    const std::string own = prefix_96(translator_prefix.data());
    std::string elements;
    std::string first;
    for (const auto &[key, payload] : config.interfaces.prefixes.entries) {
        const std::string prefix = prefix_96(payload.prefix.prefix);
        if (first.empty()) first = prefix;
        add_element(elements, prefix, own);
    }
    std::vector<std::string> &rules = ruleset.chains["prefixes"].rules;
    rules = {std::string("ip6 daddr ") + not_global + " drop"};
    if (!elements.empty()) rules.push_back("dnat ip6 prefix to ip6 daddr map { " + elements + " }");
    rules.push_back("ip6 daddr " + own + " drop");
    std::vector<std::string> &to_inside = ruleset.chains["to_inside"].rules;
    if (!first.empty()) to_inside = {"snat ip6 prefix to ip6 saddr map { " + own + " : " + first + " }"};
}

void add_pool(ruleset_t &ruleset, const fwx_nat64_pool_payload_t &pool, const std::vector<span_of_pool_t> &spans) {
    const std::string name = pool_name(pool.id);
    ruleset.objects["counter " + name] = "";
    std::vector<std::string> &rules = ruleset.chains[name].rules;
    rules = {"counter name \"" + name + "\""};
    const uint32_t last_port = first_pool_port + (pool.param == 1 ? most_pool_ports : pool.param) - 1;
    const std::string ports = std::to_string(first_pool_port) + "-" + std::to_string(last_port);
    uint64_t total = 0;
    for (const span_of_pool_t &span : spans) {
        total += span.size();
    }
    uint64_t before = 0;
    for (const span_of_pool_t &span : spans) {
        const uint64_t behind = before + span.size();
        std::string rule = "meta l4proto { tcp, udp, icmpv6 } ";
        if (behind != total) { /* distributes the sources over the spans in proportion to their sizes */
            rule += "jhash ip6 saddr mod " + std::to_string(total) + " seed 0x1 " + std::to_string(before) + "-" +
                    std::to_string(behind - 1) + " ";
        }
        const std::string first = text_of(translated(span.first));
        const std::string last = text_of(translated(span.last));
        rule.append("snat to [").append(first);
        if (first != last) rule.append("]-[").append(last);
        rule.append("]:").append(ports).append(" persistent");
        rules.push_back(rule);
        before = behind;
    }
}

void add_sources(ruleset_t &ruleset, const configuration_t &config) {
    std::map<uint32_t, bool> is_named; /* pools that a mapping names */
    std::optional<uint32_t> others;    /* pool of the sources that no mapping names */
    for (const auto &[id, payload] : config.mappings.dynamic.entries) {
        const auto rule = source_rule_of(payload.map);
        if (!rule) continue; /* refused earlier */
        if (rule->pool_id != 0) is_named[rule->pool_id] = true;
        if (rule->prefix_len == 0) {
            others = rule->pool_id;
        } else {
            const std::string prefix =
                prefix_text(AF_INET6, rule->prefix.data(), rule->prefix.size(), rule->prefix_len);
            ruleset.sources[prefix] = rule->pool_id == 0 ? "goto others" : "goto " + pool_name(rule->pool_id);
        }
    }
    std::vector<uint32_t> pools;
    if (others && *others != 0) {
        pools = {*others};
    } else {
        for (const auto &[id, pool] : config.pools.pools.entries) {
            if (!is_named[id]) pools.push_back(id);
        }
    }
    std::vector<std::string> &rules = ruleset.chains["others"].rules;
    if (pools.size() == 1) rules = {"goto " + pool_name(pools[0])};
    if (pools.size() < 2) return;
    std::string elements;
    for (size_t i = 0; i < pools.size(); ++i) {
        add_element(elements, std::to_string(i), "goto " + pool_name(pools[i]));
    }
    rules = {"jhash ip6 saddr mod " + std::to_string(pools.size()) + " seed 0x2 vmap { " + elements + " }"};
}

/* --- What every gateway has --- */

/** Names interfaces by their index, because an interface that no longer exists has no name. */
std::vector<std::string> prerouting_rules(const configuration_t &config, const std::string &in,
                                          const std::string &not_in) {
    std::vector<std::string> rules = {in + "dnat to ip6 daddr map @inbound"};
    std::string list; /* without those that are off, which a document cannot tell from those that were never set */
    for (const auto &[index, interface] : config.interfaces.interfaces.entries) {
        const bool is_on = interface.enable != 0 || interface.nvi != 0;
        if (is_on) list.append(list.empty() ? "" : ", ").append(std::to_string(index));
    }
    if (list.empty()) {
        rules.push_back(not_in + "jump prefixes");
    } else {
        rules.push_back("iif { " + list + " } jump prefixes");
        rules.push_back(not_in + "ip6 daddr " + prefix_96(translator_prefix.data()) + " drop");
    }
    return rules;
}

void add_hooks(ruleset_t &ruleset, const configuration_t &config) {
    const std::string device = std::string(" \"") + translator_device + "\" ";
    const std::string in = "iifname" + device;
    const std::string out = "oifname" + device;
    const std::string not_in = "iifname !=" + device;
    const std::string not_out = "oifname !=" + device;
    const std::string own = prefix_96(translator_prefix.data());
    ruleset.chains["prerouting"] = {"type nat hook prerouting priority dstnat; policy accept;",
                                    prerouting_rules(config, in, not_in)};
    ruleset.chains["postrouting"] = {"type nat hook postrouting priority srcnat; policy accept;",
                                     {not_out + "ip6 saddr " + own + " goto to_inside", not_out + "return",
                                      "snat to ip6 saddr map @outbound", "ip6 saddr vmap @sources", "goto others"}};
    /* No packet may return to the translator untranslated, because it would loop until its hop limit is used up. */
    ruleset.chains["forward"] = {"type filter hook forward priority filter; policy accept;",
                                 {in + out + "drop", not_in + "ip6 saddr " + own + " drop",
                                  "ct state new " + in + "jump sessions", "ct state new " + out + "jump sessions"}};
    ruleset.chains["sessions"].rules = {"jump session_limit", "jump lifetimes"};
    ruleset.chains["untranslated"] = {"type filter hook postrouting priority srcnat + 10; policy accept;",
                                      {out + "ip6 saddr != " + own + " drop"}};
}

}  // namespace

std::optional<source_rule_t> source_rule_of(const fwx_nat64_dmapping_t &mapping) {
    source_rule_t rule{{}, 0, mapping.ext_arg};
    const auto is_zero_from = [&mapping](size_t from) {
        return std::all_of(mapping.ext + from, std::end(mapping.ext), [](uint8_t byte) { return byte == 0; });
    };
    const bool is_absent = mapping.ext[0] == FWX_NAT64_DMAPPING_NO_SECOND_PART && is_zero_from(1);
    if (is_absent || is_zero_from(0)) return rule;
    rule.prefix_len = mapping.ext[rule.prefix.size()];
    if (rule.prefix_len == 0 || rule.prefix_len > 128 || !is_zero_from(rule.prefix.size() + 1)) return std::nullopt;
    for (size_t i = 0; i < rule.prefix.size(); ++i) {
        const int kept = std::clamp(static_cast<int>(rule.prefix_len) - static_cast<int>(8 * i), 0, 8);
        rule.prefix[i] = static_cast<uint8_t>(mapping.ext[i] & 0xff00 >> kept);
        if (rule.prefix[i] != mapping.ext[i]) return std::nullopt;
    }
    return rule;
}

plan_t plan_of(const configuration_t &config) {
    plan_t plan;
    ruleset_t &ruleset = plan.ruleset;
    add_hooks(ruleset, config);
    add_timeouts(plan, config);
    add_prefixes(ruleset, config);

    std::vector<std::pair<uint32_t, uint32_t>> outside;
    for (const auto &[id, spans] : spans_by_pool(config)) {
        add_pool(ruleset, config.pools.pools.entries.at(id), spans);
        for (const span_of_pool_t &span : spans) {
            outside.emplace_back(span.first, span.last);
        }
    }
    add_sources(ruleset, config);
    for (const auto &[id, mapping] : config.mappings.fixed.entries) {
        const uint32_t ipv4 = ipv4_of(mapping.addr2.addr);
        const ipv6_bytes_t inside_address = address_of(mapping.addr1).bytes;
        const ipv6_bytes_t outside_address = translated(ipv4);
        ruleset.inbound.emplace_back(outside_address, inside_address);
        ruleset.outbound.emplace_back(inside_address, outside_address);
        outside.emplace_back(ipv4, ipv4);
    }
    std::sort(ruleset.inbound.begin(), ruleset.inbound.end());
    std::sort(ruleset.outbound.begin(), ruleset.outbound.end());
    plan.networks = networks_of(std::move(outside));

    std::vector<std::string> &limit = ruleset.chains["session_limit"].rules;
    const auto set = config.settings.limits.get(FWX_NAT64_LIMIT_TYPE);
    if (set) limit = {"ct count over " + std::to_string(set->value) + " drop"};
    return plan;
}

const std::map<std::string, std::string> &default_settings() {
    static const std::map<std::string, std::string> settings = {{"netfilter/nf_conntrack_acct", "0"},
                                                                {"netfilter/nf_conntrack_timestamp", "0"},
                                                                {"netfilter/nf_conntrack_icmpv6_timeout", "30"},
                                                                {"netfilter/nf_conntrack_frag6_timeout", "60"}};
    return settings;
}

std::vector<ipv4_network_t> networks_of(std::vector<std::pair<uint32_t, uint32_t>> spans) {
    std::sort(spans.begin(), spans.end());
    std::vector<ipv4_network_t> networks;
    uint64_t next = 0; /* first address that is not yet covered */
    for (size_t i = 0; i < spans.size();) {
        uint64_t first = std::max<uint64_t>(next, spans[i].first);
        uint64_t last = spans[i].second;
        for (++i; i < spans.size() && spans[i].first <= last + 1; ++i) {
            last = std::max<uint64_t>(last, spans[i].second);
        }
        while (first <= last) {
            uint8_t prefix_len = 32;
            for (uint64_t size = 2; prefix_len > 0 && first % size == 0 && first + size - 1 <= last; size *= 2) {
                --prefix_len;
            }
            networks.push_back({static_cast<uint32_t>(first), prefix_len});
            first += uint64_t{1} << (32 - prefix_len);
        }
        next = std::max(next, first);
    }
    return networks;
}

std::string table_text(const std::string &table) {
    std::string text = "add table ip6 " + table + "\n";
    const std::pair<const char *, const char *> maps[] = {{"inbound", "{ type ipv6_addr : ipv6_addr; }"},
                                                          {"outbound", "{ type ipv6_addr : ipv6_addr; }"},
                                                          {"sources", "{ type ipv6_addr : verdict; flags interval; }"}};
    for (const auto &[name, type] : maps) {
        std::string map = "map ip6 " + table;
        map.append(" ").append(name);
        text.append("add ").append(map).append(" ").append(type).append("\nflush ").append(map).append("\n");
    }
    return text;
}

std::string changes_text(const std::string &table, const ruleset_t &from, const ruleset_t &to) {
    const auto line = [&table](const char *verb, const std::string &kind, const std::string &name,
                               const std::string &rest = {}) {
        return std::string(verb) + " " + kind + " ip6 " + table + " " + name + (rest.empty() ? "" : " " + rest) + "\n";
    };
    const auto object_line = [&line](const char *verb, const std::string &key, const std::string &rest = {}) {
        const size_t blank = key.rfind(' ');
        return line(verb, key.substr(0, blank), key.substr(blank + 1), rest);
    };
    std::string text;
    for (const auto &[key, definition] : to.objects) {
        if (from.objects.count(key) == 0) text += object_line("add", key, definition);
    }
    std::string emptied;
    std::string filled;
    for (const auto &[name, chain] : to.chains) {
        const auto before = from.chains.find(name);
        const bool is_new = before == from.chains.end();
        if (is_new) text += line("add", "chain", name, chain.hook.empty() ? "" : "{ " + chain.hook + " }");
        if (!is_new && before->second == chain) continue;
        if (!is_new) emptied += line("flush", "chain", name);
        for (const std::string &rule : chain.rules) {
            filled += line("add", "rule", name, rule);
        }
    }
    std::string gone;
    for (const auto &[name, chain] : from.chains) {
        if (to.chains.count(name) != 0) continue;
        emptied += line("flush", "chain", name);
        gone += line("delete", "chain", name);
    }
    for (const auto &[key, definition] : from.objects) {
        const bool is_counter = key.rfind("counter ", 0) == 0;
        if (is_counter && to.objects.count(key) == 0) gone += object_line("delete", key);
    }
    /* Returns a line for the elements that `other` lacks or has with another value. */
    const auto differing = [&line](const char *verb, const char *name, const auto &one, const auto &other) {
        auto at = other.begin();
        std::string list;
        for (const auto &[key, value] : one) {
            while (at != other.end() && at->first < key) {
                ++at;
            }
            const bool is_same = at != other.end() && at->first == key && at->second == value;
            if (!is_same) add_element(list, text_of(key), text_of(value));
        }
        return list.empty() ? "" : line(verb, "element", name, "{ " + list + " }");
    };
    const auto all_differing = [&differing](const char *verb, const ruleset_t &one, const ruleset_t &other) {
        return differing(verb, "inbound", one.inbound, other.inbound) +
               differing(verb, "outbound", one.outbound, other.outbound) +
               differing(verb, "sources", one.sources, other.sources);
    };
    return text + all_differing("delete", from, to) + emptied + filled + all_differing("add", to, from) + gone;
}
