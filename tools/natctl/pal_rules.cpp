/* How natctl's binding gives records to the library, and makes the library's rule table say what the server says. */
#include "fwx_nat64/fwx_nat64.h"
#include "model/model.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/pal.h"

namespace {

/** A server that gets an interface forgets all that it had of it. */
std::string interface_note(const fwx_nat64_intf_info_t &interface) {
    const bool has_prefix =
        interface.sless_prefix_valid != 0 || interface.sful_prefix_valid != 0 || interface.sless_prefix_v6v4_valid != 0;
    return has_prefix ? "" : "the interface has no prefixes now";
}

}  // namespace

uint32_t pal_t::send(call_t &call, const record_family_t &family, uint32_t op, const void *record) {
    if (family.word == "interface") {
        call.outcome.note = interface_note(*static_cast<const fwx_nat64_intf_info_t *>(record));
    }
    const bool is_rule = family.group == "mapt" && !options_.dry_run;
    if (is_rule && family.word == "dmr") {
        call.default_rule = default_change_t{op, *static_cast<const fwx_nat64_mapt_dmr_t *>(record)};
    }
    const bool is_basic_rule = is_rule && family.word == "bmr";
    if (!is_basic_rule) return family.send(op, record, call.ctx);
    call.rule = rule_change_t{op, *static_cast<const fwx_nat64_mapt_bmr_t *>(record), {}};
    return send_rule(call, family);
}

/** A reply names its rule and not its command, so there is one command of a rule at a time. */
uint32_t pal_t::send_rule(call_t &call, const record_family_t &family) {
    rule_change_t &change = *call.rule;
    const auto before = rules_under_way_.find(name_of(change.rule));
    if (before != rules_under_way_.end()) settle(calls_.at(before->second));
    const bool is_add = change.op == FWX_NAT64_OP_ADD;
    const bool is_new = !is_add || rules_.adding(change);
    const uint32_t code = family.send(change.op, &change.rule, call.ctx);
    if (!is_add) note_repair(call, rules_.deleting(change));
    if (code == 0) {
        rules_under_way_[name_of(change.rule)] = reinterpret_cast<call_id_t>(call.ctx);
        return 0;
    }
    if (is_new) note_repair(call, rules_.failed(change));
    call.rule.reset();
    return code;
}

/** The server's verdict, and the table made to agree with it. Without a reply the server never got the command. */
uint32_t pal_t::judge_rule(call_t &call, uint32_t table_code) {
    const rule_change_t &change = *call.rule;
    const auto under_way = rules_under_way_.find(name_of(change.rule));
    const bool is_its_own =
        under_way != rules_under_way_.end() && under_way->second == reinterpret_cast<call_id_t>(call.ctx);
    if (is_its_own) rules_under_way_.erase(under_way);
    const uint32_t server_code = call.verdict ? call.verdict->result : table_code;
    if (call.verdict && call.verdict->is_done()) {
        const uint32_t code = rules_.done(change, table_code, call.verdict->bmr_index);
        return server_code == 0 ? code : server_code;
    }
    const bool is_gone = change.op == FWX_NAT64_OP_DEL && server_code == FWX_NAT64_MODEL_ERR_NO_ENTRY;
    if (!is_gone) note_repair(call, rules_.failed(change));
    return server_code;
}

void pal_t::note_repair(const call_t &call, uint32_t code) {
    if (code == 0) return;
    note_(outcome_label(call.outcome) + ": the library's rule table is not as it was: " + code_text(code));
}
