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
    constexpr uint32_t widest_gap = 1U << 24;
    const uint32_t next = highest_index() + 1;
    if (rule.index < next || rule.index - next > widest_gap) return FWX_NAT64_MODEL_ERR_VALUE;
    const uint32_t result = enter({rule.rule_id, rule.domain_id}, rule.index);
    if (result != 0) return result;
    for (uint32_t i = next; i < rule.index; ++i) {
        freed.insert(i);
    }
    return 0;
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
    *index = freed.empty() ? highest_index() + 1 : *freed.begin();
    freed.erase(*index);
    return enter(key, *index);
}

uint32_t rules_t::remove(const rule_key_t &key, uint32_t *index) {
    const std::optional<uint32_t> present = basic.get(key);
    if (!present) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
    *index = *present;
    by_index.erase(*index);
    freed.insert(*index);
    /* What lies above the highest index in use comes from there, not from `freed`. */
    freed.erase(freed.upper_bound(highest_index()), freed.end());
    return basic.erase(key);
}
