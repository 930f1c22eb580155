/* Adding, deleting and restoring MAP-T rules. */
#include "server/rules.h"

#include <algorithm>
#include <iterator>

namespace {

bool lengths_ok(const fwx_nat64_mapt_bmr_t &rule) {
    return rule.v6_prefix_len <= FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX &&
           rule.v4_prefix_len <= FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX;
}

rule_key_t key_of(const fwx_nat64_mapt_bmr_t &rule) {
    return {rule.rule_id, rule.domain_id};
}

}  // namespace

uint32_t rules_t::basic_set(const fwx_nat64_bmr_msg_t &command, fwx_nat64_mapt_reply_t *reply) {
    if (command.rule_id == 0) return FWX_NAT64_MODEL_ERR_VALUE;
    const fwx_nat64_mapt_bmr_t rule = rule_of(command);
    if (command.op == FWX_NAT64_OP_ADD) {
        return lengths_ok(rule) ? add(rule, &reply->bmr_index) : FWX_NAT64_MODEL_ERR_VALUE;
    }
    if (command.op != FWX_NAT64_OP_DEL) return FWX_NAT64_MODEL_ERR_VALUE;
    const uint32_t result = remove(key_of(rule), &reply->bmr_index);
    reply->cleanup = orders_cleanup && result == 0 && by_index.entries.empty() ? 1 : 0;
    return result;
}

uint32_t rules_t::basic_restore(const kept_rule_t &rule) {
    if (basic.count(key_of(rule.rule)) != 0) return FWX_NAT64_MODEL_ERR_EXISTS;
    const bool is_free = rule.index != 0 && by_index.entries.count(rule.index) == 0;
    if (!lengths_ok(rule.rule) || !is_free) return FWX_NAT64_MODEL_ERR_VALUE;
    enter(rule);
    return 0;
}

uint32_t rules_t::basic_remove(const kept_rule_t &rule) {
    uint32_t index = 0;
    return remove(key_of(rule.rule), &index);
}

uint32_t rules_t::default_add(const fwx_nat64_mapt_dmr_t &rule) {
    return rule.id != 0 ? defaults.add(rule.id, rule) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t rules_t::default_modify(const fwx_nat64_mapt_dmr_t &rule) {
    return rule.id != 0 ? defaults.modify(rule.id, rule) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t rules_t::default_remove(const fwx_nat64_mapt_dmr_t &rule) {
    return rule.id != 0 ? defaults.erase(rule.id) : FWX_NAT64_MODEL_ERR_VALUE;
}

/* Also returns the index of a rule that exists already, because a client installs the rule whatever the result is. */
uint32_t rules_t::add(const fwx_nat64_mapt_bmr_t &rule, uint32_t *index) {
    const auto present = basic.find(key_of(rule));
    *index = present != basic.end() ? present->second : indices.lowest();
    if (present != basic.end()) return FWX_NAT64_MODEL_ERR_EXISTS;
    enter({*index, rule});
    return 0;
}

/** Enters a rule whose key and index are free. When it throws std::bad_alloc, nothing of the rule is left. */
void rules_t::enter(const kept_rule_t &rule) {
    const auto place = basic.emplace(key_of(rule.rule), rule.index).first;
    try {
        by_index.add(rule.index, rule);
        indices.take(rule.index);
    } catch (...) {
        by_index.erase(rule.index);
        basic.erase(place);
        throw;
    }
}

uint32_t rules_t::remove(const rule_key_t &key, uint32_t *index) {
    const auto present = basic.find(key);
    if (present == basic.end()) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
    *index = present->second;
    indices.release(*index); /* first, because it may throw */
    basic.erase(present);
    return by_index.erase(*index);
}
