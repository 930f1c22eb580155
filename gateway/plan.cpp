/* Turns a configuration into the plan of a gateway, and two plans into the text of one nftables transaction. add_hooks
 * adds the chains that every gateway has; the other functions fill them. */
#include "gateway/plan.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <set>

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
    ipv6_bytes_t address = translator_prefix;
    const uint32_t word = htonl(ipv4);
    std::memcpy(address.data() + translator_prefix_len / 8, &word, sizeof word);
    return address;
}
std::string prefix_96(const uint8_t *twelve_bytes) {
    return prefix_text(AF_INET6, twelve_bytes, translator_prefix_len / 8, translator_prefix_len);
}

void add_element(std::string &list, const std::string &key, const std::string &value) {
    if (!list.empty()) list += ", ";
    list.append(key).append(" : ").append(value);
}

std::string pool_name(uint32_t id) {
    return "pool_" + std::to_string(id);
}

/* --- Timeouts --- */

void add_timeouts(plan_t &plan, const configuration_t &config) {
    const auto seconds = [&config](uint32_t type, uint32_t default_s) {
        const auto set = config.settings.timeouts.get(type);
        return set && set->value != 0 ? set->value : default_s;
    };
    /* The name of a timeout object holds its values, because the kernel cannot change it. */
    const auto add = [&plan](const std::string &match, const std::string &protocol, const std::string &name,
                             const std::string &policy) {
        plan.ruleset.objects[{"ct timeout", name}] =
            "{ protocol " + protocol + "; l3proto ip6; policy = { " + policy + " }; }";
        plan.ruleset.chains["lifetimes"].rules.push_back(match + "meta l4proto " + protocol + " ct timeout set \"" +
                                                         name + "\"");
    };
    const std::string udp =
        std::to_string(std::max(seconds(FWX_NAT64_TIMEOUT_UDP, 300), seconds(FWX_NAT64_TIMEOUT_UDP_MIN, 0)));
    add("", "udp", "udp_" + udp, "unreplied : " + udp + ", replied : " + udp);
    const std::string passing = std::to_string(seconds(FWX_NAT64_TIMEOUT_TCP_TRANS, 240));
    const std::string established = std::to_string(seconds(FWX_NAT64_TIMEOUT_TCP_EST, 7440));
    const std::string from_outside = std::to_string(seconds(FWX_NAT64_TIMEOUT_TCP_IN_SYN, 6));
    const std::string device = std::string(" \"") + translator_device + "\" ";
    std::string policy = ", established : " + established;
    for (const char *state : {"syn_recv", "fin_wait", "close_wait", "last_ack", "time_wait", "close"}) {
        policy += std::string(", ") + state + " : " + passing;
    }
    const std::string name = passing + "_" + established;
    add("oifname" + device, "tcp", "tcp_" + name, "syn_sent : " + passing + policy);
    add("iifname" + device, "tcp", "tcp_" + from_outside + "_" + name, "syn_sent : " + from_outside + policy);
    plan.settings = {
        {"netfilter/nf_conntrack_acct", "1"},
        {"netfilter/nf_conntrack_timestamp", "1"},
        {"netfilter/nf_conntrack_icmpv6_timeout", std::to_string(seconds(FWX_NAT64_TIMEOUT_ICMP, 60))},
        {"netfilter/nf_conntrack_frag6_timeout", std::to_string(seconds(FWX_NAT64_TIMEOUT_FRAGMENT_MIN, 60))}};
}

/* --- Prefixes, mappings and pools --- */

/** IPv4 addresses that are not global. They must not be reached through the well-known prefix (RFC 6052, 3.1). */
constexpr const char *not_global =
    "{ 64:ff9b::/104, 64:ff9b::a00:0/104, 64:ff9b::6440:0/106, 64:ff9b::7f00:0/104, 64:ff9b::a9fe:0/112, "
    "64:ff9b::ac10:0/108, 64:ff9b::c000:0/120, 64:ff9b::c000:200/120, 64:ff9b::c0a8:0/112, 64:ff9b::c612:0/111, "
    "64:ff9b::c633:6400/120, 64:ff9b::cb00:7100/120, 64:ff9b::e000:0/99 }";

void add_prefixes(ruleset_t &ruleset, const configuration_t &config) {
    const std::string own = prefix_96(translator_prefix.data());
    std::string elements, first;
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

void add_pool(ruleset_t &ruleset, const fwx_nat64_pool_payload_t &pool, const std::vector<pool_span_t> &spans) {
    const std::string name = pool_name(pool.id);
    ruleset.objects[{"counter", name}] = "";
    std::vector<std::string> &rules = ruleset.chains[name].rules;
    rules = {"counter name \"" + name + "\""};
    const uint32_t last_port = first_pool_port + (pool.param == 1 ? most_pool_ports : pool.param) - 1;
    const std::string ports = std::to_string(first_pool_port) + "-" + std::to_string(last_port);
    for (const pool_span_t &span : spans) {
        std::string rule = "meta l4proto { tcp, udp, icmpv6 } ";
        if (&span != &spans.back()) { /* distributes the sources over the spans in proportion to their sizes */
            rule += "jhash ip6 saddr mod " + std::to_string(spans.back().last_number + 1) + " seed 0x1 " +
                    std::to_string(span.first_number) + "-" + std::to_string(span.last_number) + " ";
        }
        const std::string first = text_of(translated(span.first));
        const std::string last = text_of(translated(span.last));
        rule.append("snat to [").append(first);
        if (first != last) rule.append("]-[").append(last);
        rule.append("]:").append(ports).append(" persistent");
        rules.push_back(rule);
    }
}

void add_sources(ruleset_t &ruleset, const configuration_t &config) {
    std::set<uint32_t> named; /* pools that a mapping names */
    uint32_t others = 0;      /* pool of the sources that no mapping names; 0: all pools that no mapping names */
    for (const auto &[id, payload] : config.mappings.dynamic.entries) {
        const auto rule = source_rule_of(payload.map);
        if (!rule) continue; /* refused earlier */
        named.insert(rule->pool_id);
        if (rule->prefix_len == 0) {
            others = rule->pool_id;
        } else {
            const std::string prefix =
                prefix_text(AF_INET6, rule->prefix.data(), rule->prefix.size(), rule->prefix_len);
            ruleset.sources[prefix] = "goto " + (rule->pool_id == 0 ? "others" : pool_name(rule->pool_id));
        }
    }
    std::vector<uint32_t> pools;
    for (const auto &[id, pool] : config.pools.pools.entries) {
        const bool serves_others = others != 0 ? id == others : named.count(id) == 0;
        if (serves_others) pools.push_back(id);
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

void add_hooks(ruleset_t &ruleset, const configuration_t &config) {
    const std::string device = std::string(" \"") + translator_device + "\" ";
    const std::string in = "iifname" + device;
    const std::string out = "oifname" + device;
    const std::string not_in = "iifname !=" + device;
    const std::string not_out = "oifname !=" + device;
    const std::string own = prefix_96(translator_prefix.data());
    /* By index, because an interface that no longer exists has no name. Without those that are off, which a document
     * cannot tell from those that were never set. */
    std::string interfaces;
    for (const auto &[index, interface] : config.interfaces.interfaces.entries) {
        const bool is_on = interface.enable != 0 || interface.nvi != 0;
        if (is_on) interfaces.append(interfaces.empty() ? "" : ", ").append(std::to_string(index));
    }
    ruleset.chains["prerouting"] = {"type nat hook prerouting priority dstnat; policy accept;",
                                    {in + "dnat to ip6 daddr map @inbound",
                                     (interfaces.empty() ? not_in : "iif { " + interfaces + " } ") + "jump prefixes"}};
    if (!interfaces.empty()) ruleset.chains["prerouting"].rules.push_back(not_in + "ip6 daddr " + own + " drop");
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

std::map<uint32_t, std::vector<pool_span_t>> spans_by_pool(const configuration_t &config) {
    std::map<uint32_t, std::vector<pool_span_t>> pools;
    const auto add = [&pools](uint32_t pool_id, uint32_t first, uint32_t last) {
        std::vector<pool_span_t> &spans = pools[pool_id];
        const uint64_t number = spans.empty() ? 0 : spans.back().last_number + 1;
        spans.push_back({first, last, number, number + (last - first)});
    };
    for (const auto &[id, pool] : config.pools.pools.entries) {
        add(id, ntohl(pool.start_addr), ntohl(pool.end_addr));
    }
    for (const auto &[span, range] : config.pools.ranges.entries) {
        add(range.id, ipv4_of(range.start_addr.addr), ipv4_of(range.end_addr.addr));
    }
    return pools;
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
        for (const pool_span_t &span : spans) {
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

networks_t networks_of(std::vector<std::pair<uint32_t, uint32_t>> spans) {
    std::sort(spans.begin(), spans.end());
    networks_t networks;
    for (size_t i = 0; i < spans.size();) {
        uint64_t first = spans[i].first;
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
    }
    return networks;
}

std::string table_text(const std::string &table) {
    std::string text = "add table ip6 " + table + "\n";
    for (const std::string map : {"inbound { type ipv6_addr : ipv6_addr; }", "outbound { type ipv6_addr : ipv6_addr; }",
                                  "sources { type ipv6_addr : verdict; flags interval; }"}) {
        text.append("add map ip6 ").append(table).append(" ").append(map).append("\nflush map ip6 ");
        text.append(table).append(" ").append(map.substr(0, map.find(' '))).append("\n");
    }
    return text;
}

std::string changes_text(const std::string &table, const ruleset_t &from, const ruleset_t &to) {
    const auto line = [&table](const char *verb, const std::string &kind, const std::string &name,
                               const std::string &rest = {}) {
        return std::string(verb) + " " + kind + " ip6 " + table + " " + name + (rest.empty() ? "" : " " + rest) + "\n";
    };
    std::string text;
    for (const auto &[key, definition] : to.objects) {
        if (from.objects.count(key) == 0) text += line("add", key.first, key.second, definition);
    }
    std::string emptied, filled;
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
        const bool is_gone = key.first == "counter" && to.objects.count(key) == 0;
        if (is_gone) gone += line("delete", key.first, key.second);
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
