/* MAP-T rules: basic ones by Rule ID and Domain ID with an index each, default ones by identifier. */
#ifndef MODEL_RULES_H
#define MODEL_RULES_H

#include <set>
#include <utility>

#include "fwx_nat64/wire.h"
#include "model/table.h"

using rule_key_t = std::pair<uint32_t, uint32_t>; /* Rule ID, Domain ID */

struct rules_t {
    table_t<rule_key_t, uint32_t> basic;     /* index of the rule */
    std::map<uint32_t, rule_key_t> by_index; /* the same rules */
    table_t<uint32_t, fwx_nat64_mapt_dmr_t> defaults;

    /** Carries a command out and fills the fields of its reply that depend on the outcome. */
    uint32_t basic_set(const fwx_nat64_bmr_msg_t &command, fwx_nat64_mapt_reply_t *reply);
    uint32_t default_set(uint32_t op, const fwx_nat64_mapt_dmr_t &rule);
    /** Adds a basic rule under an index above all others; what lies between is free. */
    uint32_t basic_restore(const rule_key_t &key, uint32_t index);

private:
    std::set<uint32_t> freed; /* indices below the next new one */

    uint32_t add(const rule_key_t &key, uint32_t *index);
    uint32_t remove(const rule_key_t &key, uint32_t *index);
};

#endif
