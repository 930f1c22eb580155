/* The commands `natctl mapt` and `natctl dev mapt`: the rules, the library's table of them, and lookups in it. */
#include <arpa/inet.h>

#include <cstring>
#include <iterator>

#include "fwx_nat64/fwx_nat64.h"
#include "model/model.h"
#include "records/families.h"
#include "records/value.h"
#include "tools/natctl/grammar.h"

namespace {

/** The basic rules of a document. */
std::vector<fwx_nat64_mapt_bmr_t> basic_rules_of(const document_t &document) {
    const record_family_t &family = record_family_of(family_kind_t::basic_rule);
    std::vector<fwx_nat64_mapt_bmr_t> rules;
    for (size_t i = document.begin_of(family); i < document.end_of(family); ++i) {
        std::memcpy(&rules.emplace_back(), document.item(i).record, sizeof(fwx_nat64_mapt_bmr_t));
    }
    return rules;
}

uint32_t show_table(call_t &call) {
    fwx_host_tbm_counts_t counts{};
    const struct tbm *tree = fwx_host_tbm_of_complex(0);
    if (tree != nullptr) fwx_host_tbm_counts_get(tree, &counts);
    call.outcome.data = {{"installed", call.pal.rules().installed()},
                         {"pending", call.pal.rules().pending()},
                         {"leaves", counts.leaves},
                         {"nodes", counts.nodes},
                         {"bytes", counts.bytes}};
    if (const auto document = call.pal.server_document(call)) {
        call.outcome.data["recorded"] = basic_rules_of(*document).size();
    }
    return 0;
}

json_t rule_row(const rule_name_t &name, const char *state) {
    return {{"rule_id", name.first}, {"domain_id", name.second}, {"state", state}};
}

json_t rule_row(const fwx_nat64_mapt_bmr_t &rule, const char *state) {
    json_t row = rule_row(name_of(rule), state);
    row["v6_prefix"] = prefix_text(AF_INET6, rule.v6_prefix, sizeof rule.v6_prefix, rule.v6_prefix_len);
    row["v4_prefix"] = prefix_text(AF_INET, rule.v4_prefix, sizeof rule.v4_prefix, rule.v4_prefix_len);
    const char *params[] = {"ea_len", "psid_offset", "psid_len", "psid"};
    for (size_t i = 0; i < std::size(params); ++i) {
        row[params[i]] = rule.rule_params[i];
    }
    return row;
}

/** Lists installed and pending rules. The rule book knows only the name of a pending rule. */
uint32_t list_rules(call_t &call) {
    call.outcome.data = json_t::array();
    const fwx_nat64_model_t *model = call.pal.model();
    for (const fwx_mapt_rule_hash_elem_t &elem : call.pal.rules().rules()) {
        json_t row = rule_row(elem.rule, "installed");
        row["bmr_index"] = elem.mapt_bmr;
        const std::optional<uint64_t> lookups = model == nullptr ? std::nullopt : model->lookups(elem.mapt_bmr);
        row["lookups"] = lookups ? json_t(*lookups) : json_t();
        call.outcome.data.push_back(std::move(row));
    }
    for (const auto &[name, is_in_library] : call.pal.rules().pending_rules()) {
        json_t row = rule_row(name, "pending");
        for (const char *unknown :
             {"v6_prefix", "v4_prefix", "ea_len", "psid_offset", "psid_len", "psid", "bmr_index", "lookups"}) {
            row[unknown] = nullptr;
        }
        call.outcome.data.push_back(std::move(row));
    }
    const auto document = call.pal.server_document(call);
    for (const fwx_nat64_mapt_bmr_t &rule :
         document ? basic_rules_of(*document) : std::vector<fwx_nat64_mapt_bmr_t>()) {
        json_t row = rule_row(rule, "recorded");
        row["bmr_index"] = row["lookups"] = nullptr;
        call.outcome.data.push_back(std::move(row));
    }
    return 0;
}

/** Looks an address up. The model takes addresses in network order, as the data plane sees them. */
uint32_t look_up(call_t &call, const fwx_nat64_model_t &model, fwx_nat64_addr_t address) {
    if (address.family == FWX_NAT64_FAMILY_IPV4) {
        uint32_t word = 0;
        std::memcpy(&word, address.addr, sizeof word);
        word = htonl(word);
        std::memcpy(address.addr, &word, sizeof word);
    }
    fwx_nat64_model_match_t match{};
    if (!model.lookup(&address, &match)) return FWX_NAT64_ERR_NOT_FOUND;
    call.outcome.data = {{"rule_id", match.rule_id},
                         {"domain_id", match.domain_id},
                         {"bmr_index", match.bmr_index},
                         {"prefix_len", match.prefix_len}};
    return 0;
}

}  // namespace

void add_mapt_commands(grammar_t &grammar) {
    grammar.family("mapt", "MAP-T rules");
    grammar.immediate("show", "Shows how many rules this natctl has installed, and the lookup tree", show_table);
    grammar.immediate(
        "rules", "Lists the rules that this natctl has installed and how often each was looked up, and those that wait",
        list_rules);
    add_explain_command(grammar);
    add_record_commands(grammar, "mapt");
}

void add_lookup_command(grammar_t &grammar) {
    grammar.family("mapt", "What the data plane makes of MAP-T rules");
    auto address = grammar.record<fwx_nat64_addr_t>();
    command_spec_t &lookup = grammar.embedded(
        "lookup", "Looks an address up as the data plane does",
        [address](call_t &call, const fwx_nat64_model_t &model) { return look_up(call, model, *address); });
    address_field(lookup, "address", *address, "the address").required();
}
