#include "model/rules.h"

namespace {

constexpr uint8_t max_v6_prefix_len = 64;
constexpr uint8_t max_v4_prefix_len = 32;

bool is_acceptable(const fwx_nat64_bmr_msg_t &command) {
    return command.rule_id != 0 && command.v6_prefix_len <= max_v6_prefix_len &&
           command.v4_prefix_len <= max_v4_prefix_len;
}

}  // namespace

uint32_t rules_t::basic_set(const fwx_nat64_bmr_msg_t &command, fwx_nat64_mapt_reply_t *reply) {
    if (!is_acceptable(command)) return FWX_NAT64_MODEL_ERR_VALUE;
    const rule_key_t key{command.rule_id, command.domain_id};
    if (command.op == FWX_NAT64_OP_ADD) return add(key, &reply->bmr_index);
    if (command.op != FWX_NAT64_OP_DEL) return FWX_NAT64_MODEL_ERR_VALUE;
    const uint32_t result = remove(key, &reply->bmr_index);
    reply->cleanup = result == 0 && by_index.empty() ? 1 : 0;
    return result;
}

uint32_t rules_t::basic_restore(const rule_key_t &key, uint32_t index) {
    constexpr uint32_t widest_gap = 1U << 24;
    const uint32_t next = by_index.empty() ? 1 : by_index.rbegin()->first + 1;
    if (index < next || index - next > widest_gap) return FWX_NAT64_MODEL_ERR_VALUE;
    const uint32_t result = basic.add(key, index);
    if (result != 0) return result;
    for (uint32_t i = next; i < index; ++i) {
        freed.insert(i);
    }
    by_index[index] = key;
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

/* The index of a rule that is there already is given too: the client installs the rule whatever the result says. */
uint32_t rules_t::add(const rule_key_t &key, uint32_t *index) {
    if (basic.get(key, index)) return FWX_NAT64_MODEL_ERR_EXISTS;
    if (freed.empty()) {
        *index = by_index.empty() ? 1 : by_index.rbegin()->first + 1;
    } else {
        *index = *freed.begin();
        freed.erase(freed.begin());
    }
    by_index[*index] = key;
    return basic.add(key, *index);
}

uint32_t rules_t::remove(const rule_key_t &key, uint32_t *index) {
    if (!basic.get(key, index)) return FWX_NAT64_MODEL_ERR_NO_ENTRY;
    by_index.erase(*index);
    freed.insert(*index);
    /* What lies above the highest index in use comes from there, not from `freed`. */
    const uint32_t highest = by_index.empty() ? 0 : by_index.rbegin()->first;
    freed.erase(freed.upper_bound(highest), freed.end());
    return basic.erase(key);
}
