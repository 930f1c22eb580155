#include "model/rules.h"

namespace {

bool lengths_ok(const fwx_nat64_bmr_msg_t &command) {
    return command.v6_prefix_len <= FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX &&
           command.v4_prefix_len <= FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX;
}

}  // namespace

uint32_t rules_t::basic_set(const fwx_nat64_bmr_msg_t &command, fwx_nat64_mapt_reply_t *reply) {
    if (command.rule_id == 0) return FWX_NAT64_MODEL_ERR_VALUE;
    const rule_key_t key{command.rule_id, command.domain_id};
    if (command.op == FWX_NAT64_OP_ADD) {
        return lengths_ok(command) ? add(key, &reply->bmr_index) : FWX_NAT64_MODEL_ERR_VALUE;
    }
    if (command.op != FWX_NAT64_OP_DEL) return FWX_NAT64_MODEL_ERR_VALUE;
    const uint32_t result = remove(key, &reply->bmr_index);
    reply->cleanup = orders_cleanup && result == 0 && by_index.entries.empty() ? 1 : 0;
    return result;
}

uint32_t rules_t::basic_restore(const indexed_rule_t &rule) {
    const rule_key_t key{rule.rule_id, rule.domain_id};
    if (basic.get(key)) return FWX_NAT64_MODEL_ERR_EXISTS;
    return indices.take(rule.index) ? enter(key, rule.index) : FWX_NAT64_MODEL_ERR_VALUE;
}

uint32_t rules_t::basic_remove(const indexed_rule_t &rule) {
    uint32_t index = 0;
    return remove({rule.rule_id, rule.domain_id}, &index);
}

uint32_t rules_t::default_set(uint32_t op, const fwx_nat64_mapt_dmr_t &rule) {
    if (rule.id == 0) return FWX_NAT64_MODEL_ERR_VALUE;
    switch (op) {
        case FWX_NAT64_OP_ADD:
            return defaults.add(rule.id, rule);
        case FWX_NAT64_OP_MOD:
            return defaults.modify(rule.id, rule);
        case FWX_NAT64_OP_DEL:
            return defaults.erase(rule.id);
        default:
            return FWX_NAT64_MODEL_ERR_VALUE;
    }
}

uint32_t rules_t::enter(const rule_key_t &key, uint32_t index) {
    const uint32_t result = basic.add(key, index);
    return result == 0 ? by_index.add(index, {index, key.first, key.second}) : result;
}

/* The index of a rule that is there already is given too: the client installs the rule whatever the result says. */
uint32_t rules_t::add(const rule_key_t &key, uint32_t *index) {
    if (const std::optional<uint32_t> present = basic.get(key)) {
        *index = *present;
        return FWX_NAT64_MODEL_ERR_EXISTS;
    }
    *index = indices.lowest();
    indices.take(*index);
    return enter(key, *index);
}

uint32_t rules_t::remove(const rule_key_t &key, uint32_t *index) {
    const std::optional<uint32_t> present = basic.get(key);
    if (!present) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
    *index = *present;
    by_index.erase(*index);
    indices.release(*index);
    return basic.erase(key);
}
