/* MAP-T rules: basic ones by Rule ID and Domain ID with an index each, default ones by identifier. */
#ifndef MODEL_RULES_H
#define MODEL_RULES_H

#include <functional>
#include <unordered_map>
#include <utility>

#include "fwx_nat64/wire.h"
#include "model/command.h"
#include "model/indices.h"
#include "model/table.h"

using rule_key_t = std::pair<uint32_t, uint32_t>; /* Rule ID, Domain ID */
struct rule_key_hash_t {
    size_t operator()(const rule_key_t &key) const {
        return std::hash<uint64_t>()(uint64_t{key.first} << 32 | key.second);
    }
};

struct indexed_rule_t {
    uint32_t index;
    fwx_nat64_mapt_bmr_t rule;
};

/** The rule that a command names; its prefixes have their first byte first. */
fwx_nat64_mapt_bmr_t rule_of(const fwx_nat64_bmr_msg_t &command);

struct rules_t {
    std::unordered_map<rule_key_t, uint32_t, rule_key_hash_t> basic; /* index of the rule */
    table_t<uint32_t, indexed_rule_t> by_index;                      /* the same rules */
    std::unordered_map<uint32_t, uint64_t> lookups;                  /* by the index of the rule that they found */
    table_t<uint32_t, fwx_nat64_mapt_dmr_t> defaults;
    bool orders_cleanup = false; /* with the delete of the last basic rule */

    /** Carries a command out and fills the fields of its reply that depend on the outcome. */
    uint32_t basic_set(const fwx_nat64_bmr_msg_t &command, fwx_nat64_mapt_reply_t *reply);
    uint32_t default_set(uint32_t op, const fwx_nat64_mapt_dmr_t &rule);
    /** Adds a basic rule under an index that is free. */
    uint32_t basic_restore(const indexed_rule_t &rule);
    uint32_t basic_remove(const indexed_rule_t &rule);
    uint32_t default_add(const fwx_nat64_mapt_dmr_t &rule) { return default_set(FWX_NAT64_OP_ADD, rule); }
    uint32_t default_modify(const fwx_nat64_mapt_dmr_t &rule) { return default_set(FWX_NAT64_OP_MOD, rule); }
    uint32_t default_remove(const fwx_nat64_mapt_dmr_t &rule) { return default_set(FWX_NAT64_OP_DEL, rule); }

private:
    indices_t indices;

    uint32_t add(const fwx_nat64_mapt_bmr_t &rule, uint32_t *index);
    uint32_t remove(const rule_key_t &key, uint32_t *index);
};

constexpr config_command_t rules_commands[] = {
    kept<&rules_t::basic_restore, &rules_t::by_index>(FWX_NAT64_MODEL_SAVED_BASIC_RULE),
    kept_as<&rules_t::basic_remove>(FWX_NAT64_MODEL_SAVED_BASIC_RULE_DEL, FWX_NAT64_MODEL_SAVED_BASIC_RULE),
    kept<&rules_t::default_add, &rules_t::defaults>(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE),
    kept_as<&rules_t::default_modify>(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_MOD, FWX_NAT64_MODEL_SAVED_DEFAULT_RULE),
    kept_as<&rules_t::default_remove>(FWX_NAT64_MODEL_SAVED_DEFAULT_RULE_DEL, FWX_NAT64_MODEL_SAVED_DEFAULT_RULE),
};

#endif
