/* MAP-T rules, the library's table of them, and what the data plane finds there. */
#include <arpa/inet.h>

#include <cstring>

#include "tools/natctl/grammar.h"

namespace {

void bmr_fields(CLI::App &app, fwx_nat64_mapt_bmr_t &rule, uint32_t op) {
    number_field(app, "--rule", rule.rule_id, "identifier of the rule", 1).required();
    number_field(app, "--domain", rule.domain_id, "its mapping domain").required();
    bool is_required = op == FWX_NAT64_OP_ADD;
    ipv6_prefix_field(app, "--v6", rule.v6_prefix, sizeof rule.v6_prefix, rule.v6_prefix_len, "its IPv6 prefix")
        .required(is_required);
    ipv4_prefix_field(app, "--v4", rule.v4_prefix, rule.v4_prefix_len, "its IPv4 prefix").required(is_required);
    numbers_field(app, "--params", rule.rule_params, std::size(rule.rule_params),
                  "its parameters, passed to the server");
}

void dmr_fields(CLI::App &app, fwx_nat64_mapt_dmr_t &rule, uint32_t) {
    number_field(app, "--id", rule.id, "identifier of the rule", 1).required();
    hex_field(app, "--data", rule.opaque, sizeof rule.opaque, "the rule, passed to the server");
}

uint32_t show_table(call_t &call) {
    fwx_host_tbm_counts_t counts{};
    const struct tbm *tree = fwx_host_tbm_of_complex(0);
    if (tree != nullptr) fwx_host_tbm_counts_get(tree, &counts);
    constexpr uint64_t leaves_of_a_rule = 2;
    call.outcome.data = {{"installed", counts.leaves / leaves_of_a_rule},
                         {"pending", call.pal.outstanding("mapt bmr add")},
                         {"leaves", counts.leaves},
                         {"nodes", counts.nodes},
                         {"bytes", counts.bytes}};
    return 0;
}

/** The model takes addresses as the data plane sees them, in network order. */
uint32_t look_up(call_t &call, fwx_nat64_addr_t address) {
    if (call.pal.model() == nullptr) return 0;
    if (address.family == FWX_NAT64_FAMILY_IPV4) {
        uint32_t word = htonl(ipv4_word(address));
        std::memcpy(address.addr, &word, sizeof word);
    }
    fwx_nat64_model_match_t match{};
    if (!fwx_nat64_model_lookup(call.pal.model(), &address, &match)) return FWX_NAT64_ERR_NOT_FOUND;
    call.outcome.data = {{"rule_id", match.rule_id},
                         {"domain_id", match.domain_id},
                         {"bmr_index", match.bmr_index},
                         {"prefix_len", match.prefix_len}};
    return 0;
}

}  // namespace

void add_mapt_commands(grammar_t &grammar) {
    grammar.family("mapt", "MAP-T rules");
    grammar.immediate("show", "Shows what the lookup tree holds", show_table);
    auto address = grammar.record<fwx_nat64_addr_t>();
    CLI::App &lookup = grammar.immediate("lookup", "Looks an address up as the data plane does",
                                         [address](call_t &call) { return look_up(call, *address); });
    address_field(lookup, "address", *address, "the address").required();

    grammar.subfamily("bmr", "Basic mapping rules");
    add_setters<fwx_nat64_mapt_bmr_t>(grammar, "a basic mapping rule", {add_verb, del_verb},
                                      {fwx_nat64_mapt_bmr_set_a, bmr_fields});
    grammar.subfamily("dmr", "Default mapping rules");
    add_setters<fwx_nat64_mapt_dmr_t>(grammar, "a default mapping rule", {add_verb, del_verb},
                                      {fwx_nat64_mapt_dmr_set_a, dmr_fields});
}
