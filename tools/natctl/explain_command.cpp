/*
 * `natctl mapt explain`: shows how MAP-T rules translate an address. It computes the result from the rules of a file,
 * from those that natctl has installed, or else from those that the server reports.
 */
#include <arpa/inet.h>

#include <cstring>

#include "fwx_nat64/result.h"
#include "records/embedding.h"
#include "records/map_address.h"
#include "records/value.h"
#include "tools/natctl/grammar.h"
#include "tools/natctl/rule_set.h"

namespace {

constexpr size_t ranges_shown = 4;

struct explain_t {
    fwx_nat64_addr_t address;
    std::optional<uint16_t> port;
    std::string file;
};

std::string read_address(const std::string &text, explain_t &out) {
    if (parse_address(text, out.address)) return {};
    const bool has_port =
        parse_address_port(text, out.address, out.port.emplace()) && out.address.family == FWX_NAT64_FAMILY_IPV4;
    return has_port ? "" : record_field_error("address", text, "as 192.0.2.18, 192.0.2.18:1232 or 2001:db8::1");
}

/** Every row has all members, so that the rows of a batch form one table. Members without a meaning are null. */
json_t empty_row() {
    json_t row;
    for (const char *name : {"rule_id", "domain_id", "v6_prefix", "v4_prefix", "ea_len", "ea_bits", "psid_offset",
                             "psid_len", "psid", "port_sets", "port_sets_name", "ipv4", "ipv6", "dmr_ipv6"}) {
        row[name] = nullptr;
    }
    return row;
}

void add_ports(json_t &row, const map_address_t &address) {
    const std::vector<port_range_t> ranges = map_port_set(address);
    std::string text = ranges.empty() ? "all" : "";
    row["port_sets"] = json_t::array();
    for (const port_range_t &range : ranges) {
        const size_t before = row["port_sets"].size();
        row["port_sets"].push_back({range.first, range.last});
        if (before > ranges_shown) continue;
        text += before == 0 ? "" : ", ";
        text += before == ranges_shown ? "..." : std::to_string(range.first) + "-" + std::to_string(range.last);
    }
    row["port_sets_name"] = text;
}

void add_rule(json_t &row, const fwx_nat64_mapt_bmr_t &rule, const map_address_t &address) {
    const uint32_t ipv4 = htonl(address.ipv4);
    row["rule_id"] = rule.rule_id;
    row["domain_id"] = rule.domain_id;
    row["v6_prefix"] = prefix_text(AF_INET6, rule.v6_prefix, sizeof rule.v6_prefix, rule.v6_prefix_len);
    row["v4_prefix"] = prefix_text(AF_INET, rule.v4_prefix, sizeof rule.v4_prefix, rule.v4_prefix_len);
    row["ea_len"] = rule.rule_params[0];
    row["ea_bits"] = address.ea_bits;
    row["psid_offset"] = address.psid_offset;
    row["psid_len"] = address.psid_len;
    row["psid"] = address.psid;
    add_ports(row, address);
    row["ipv4"] = address_text(AF_INET, &ipv4);
    if (address.ipv4_len < 32) row["ipv4"] = address_text(AF_INET, &ipv4) + "/" + std::to_string(address.ipv4_len);
    row["ipv6"] = address_text(AF_INET6, address.ipv6);
}

/** Adds the IPv6 form of an IPv4 address by the default rule. */
void add_default(json_t &row, const rule_set_t &rules, uint32_t ipv4) {
    const fwx_nat64_mapt_dmr_t *rule = rules.first_default();
    const uint32_t word = htonl(ipv4);
    uint8_t bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    uint8_t ipv6[16];
    const bool is_embedded = rule != nullptr && embed_ipv4(rule->opaque, prefix_len_of(*rule), bytes, ipv6);
    if (is_embedded) row["dmr_ipv6"] = address_text(AF_INET6, ipv6);
}

/* These fill the row as far as they find a rule. They return an error text, empty on success. */

std::string explain_ipv4(const rule_set_t &rules, uint32_t ipv4, std::optional<uint16_t> port, json_t &row) {
    const uint32_t word = htonl(ipv4);
    uint8_t bytes[sizeof word];
    std::memcpy(bytes, &word, sizeof word);
    add_default(row, rules, ipv4);
    std::string first_error;
    const std::vector<const fwx_nat64_mapt_bmr_t *> found = rules.find_v4(bytes);
    for (const fwx_nat64_mapt_bmr_t *rule : found) {
        map_address_t address;
        std::string error = map_from_ipv4(*rule, ipv4, port, address);
        const bool is_shared = error.empty() && !port && address.psid_len > 0 && found.size() > 1;
        if (is_shared) error = "a port is needed, as " + std::to_string(found.size()) + " rules share the address";
        if (error.empty()) {
            add_rule(row, *rule, address);
            return {};
        }
        if (first_error.empty()) first_error = error;
    }
    if (found.empty()) row["ipv4"] = address_text(AF_INET, bytes);
    return first_error;
}

std::string explain_ipv6(const rule_set_t &rules, const uint8_t ipv6[16], json_t &row) {
    const fwx_nat64_mapt_bmr_t *rule = rules.find_v6(ipv6);
    const fwx_nat64_mapt_dmr_t *by_default = rules.find_default(ipv6);
    const bool is_default =
        by_default != nullptr && (rule == nullptr || prefix_len_of(*by_default) > rule->v6_prefix_len);
    if (is_default) {
        uint8_t ipv4[4];
        extract_ipv4(ipv6, prefix_len_of(*by_default), ipv4);
        row["ipv4"] = address_text(AF_INET, ipv4);
        row["dmr_ipv6"] = address_text(AF_INET6, ipv6);
    }
    if (is_default || rule == nullptr) return {};
    map_address_t address;
    std::string error = map_from_ipv6(*rule, ipv6, address);
    if (!error.empty()) return error;
    add_rule(row, *rule, address);
    if (address.ipv4_len == 32) add_default(row, rules, address.ipv4);
    return {};
}

uint32_t explain(call_t &call, const explain_t &wanted) {
    rule_set_t rules;
    std::string error;
    if (wanted.file.empty()) {
        rules.take(call.pal.rules());
        if (const auto document = call.pal.server_document(call)) rules.take(*document);
        if (call.outcome.status != status_t::ok) return 0;
    } else {
        error = rules.read(wanted.file);
    }
    json_t row = empty_row();
    if (error.empty() && wanted.address.family == FWX_NAT64_FAMILY_IPV4) {
        uint32_t ipv4 = 0;
        std::memcpy(&ipv4, wanted.address.addr, sizeof ipv4);
        error = explain_ipv4(rules, ipv4, wanted.port, row);
    } else if (error.empty()) {
        error = explain_ipv6(rules, wanted.address.addr, row);
    }
    const bool is_found = !row["rule_id"].is_null() || !row["dmr_ipv6"].is_null();
    if (!error.empty()) {
        refuse(call.outcome, status_t::usage, 0, error);
    } else if (!is_found) {
        const std::string of = wanted.file.empty() ? "that this natctl has installed" : "of " + wanted.file;
        refuse(call.outcome, status_t::refused, FWX_NAT64_ERR_NOT_FOUND,
               "no rule " + of + " has " + address_text(wanted.address) +
                   ": over a connection natctl knows only what it has installed itself, what the server says "
                   "that it holds, or --file");
    } else {
        call.outcome.data = std::move(row);
    }
    return 0;
}

}  // namespace

void add_explain_command(grammar_t &grammar) {
    auto wanted = grammar.record<explain_t>();
    command_spec_t &app = grammar.immediate("explain", "Shows how the MAP-T rules translate an address",
                                            [wanted](call_t &call) { return explain(call, *wanted); });
    auto read = [wanted](const std::string &text) { return read_address(text, *wanted); };
    text_field(app, "address", read, "the address; IPv4 with its port where addresses are shared", "ADDRESS[:PORT]")
        .required();
    auto read_file = [wanted](const std::string &text) {
        wanted->file = text;
        return text.empty() ? record_field_error("--file", text, "the name of a file") : "";
    };
    text_field(app, "--file", read_file,
               "takes the rules from this batch file, not those installed by this natctl or held by the server",
               "FILE");
}
