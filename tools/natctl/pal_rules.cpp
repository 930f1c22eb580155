/* Part of pal.h: passes records to the library, and corrects the library's table of MAP-T rules where it differs from
 * the server's results. */
#include "fwx_host/adapter.hpp"
#include "tools/natctl/decode.h"
#include "tools/natctl/pal.h"

namespace {

/** A warning, because a server replaces the whole record of an interface. */
std::string interface_note(const fwx_nat64_intf_info_t &interface) {
    const bool has_prefix =
        interface.sless_prefix_valid != 0 || interface.sful_prefix_valid != 0 || interface.sless_prefix_v6v4_valid != 0;
    return has_prefix ? "" : "the interface has no prefixes now";
}

}  // namespace

uint32_t pal_t::send(call_t &call, const record_family_t &family, uint32_t op, const void *record) {
    if (family.kind == family_kind_t::interface) {
        call.outcome.note = interface_note(*static_cast<const fwx_nat64_intf_info_t *>(record));
    }
    if (!options_.dry_run) {
        const std::string error = begin_single(call);
        if (!error.empty()) {
            call.awaited = false;
            refuse_change(call, error);
            return 0;
        }
        call.is_change = true;
    }
    const auto send_it = [&family, op, record](void *pal_ctx) { return family.send(op, record, pal_ctx); };
    if (!family.is_rule() || options_.dry_run) return configure(call, send_it);
    if (family.kind == family_kind_t::basic_rule) {
        call.rule = rule_change_t{op, *static_cast<const fwx_nat64_mapt_bmr_t *>(record), {}};
        return send_rule(call, family);
    }
    call.default_rule = default_change_t{op, *static_cast<const fwx_nat64_mapt_dmr_t *>(record)};
    const auto on_answer = [this, id = call.id](const nat64::rule_result &got) { rule_answered(id, got); };
    return client_->configure_rule(send_it, on_answer).code();
}

/** Waits for an outstanding command of the same rule first, because a reply names its rule and not its command. */
uint32_t pal_t::send_rule(call_t &call, const record_family_t &family) {
    rule_change_t &change = *call.rule;
    const auto before = outstanding_rules_.find(name_of(change.rule));
    if (before != outstanding_rules_.end()) settle(calls_.at(before->second));
    const bool is_add = change.op == FWX_NAT64_OP_ADD;
    const bool is_new = !is_add || rules_.adding(change);
    const auto send_it = [&](void *pal_ctx) { return family.send(change.op, &change.rule, pal_ctx); };
    const auto on_answer = [this, id = call.id](const nat64::rule_result &got) { rule_answered(id, got); };
    const uint32_t code = client_->configure_rule(send_it, on_answer).code();
    if (!is_add) note_repair(call, rules_.deleting(change));
    if (code == 0) {
        outstanding_rules_[name_of(change.rule)] = call.id;
        return 0;
    }
    if (is_new) note_repair(call, rules_.failed(change));
    call.rule.reset();
    return code;
}

void pal_t::rule_answered(call_id_t id, const nat64::rule_result &got) {
    if (got.orders_cleanup) rules_.emptied();
    call_t *call = find(id);
    if (call == nullptr || got.error == nat64::client_errc::connection_lost) return;
    count_single(*call, got);
    const char *by = "server";
    const uint32_t code = judge_rule(*call, got, by);
    end(*call, nat64::nat64_error(code), by);
}

/** The server's result. Corrects the library's table to match it. Without a reply the server never got the command. */
uint32_t pal_t::judge_rule(const call_t &call, const nat64::rule_result &got, const char *&by) {
    if (call.default_rule) {
        rules_.answered(*call.default_rule, got);
        return got.code();
    }
    const rule_change_t &change = *call.rule;
    end_rule(call);
    const rule_verdict_t verdict = rules_.answered(change, got);
    if (!verdict.is_done) note_repair(call, verdict.table_code);
    if (got.error) return got.code();
    by = "library, though the server has done it";
    return verdict.table_code;
}

/** The next change of this rule need not wait for this one; it may have begun already. */
void pal_t::end_rule(const call_t &call) {
    const auto own = outstanding_rules_.find(name_of(call.rule->rule));
    const bool is_its_own = own != outstanding_rules_.end() && own->second == call.id;
    if (is_its_own) outstanding_rules_.erase(own);
}

void pal_t::note_repair(const call_t &call, uint32_t code) {
    if (code == 0) return;
    note_(outcome_label(call.outcome) + ": the library's rule table is not as it was: " + code_text(code));
}
