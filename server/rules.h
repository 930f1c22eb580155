/* MAP-T rules: basic rules by Rule ID and Domain ID, each with an index, and default rules by identifier. */
#ifndef SERVER_RULES_H
#define SERVER_RULES_H

#include <functional>
#include <iterator>
#include <unordered_map>
#include <utility>

#include "records/payload.h"
#include "server/table.h"

/** Allocates numbers from 1 on, the lowest free number first. Free numbers are stored as runs, so that taking a high
 * number costs no more memory than taking a low one. */
class indices_t {
public:
    uint32_t lowest() const { return free_.begin()->first; }
    /** Takes a number; false when it is not free. Like `release`, changes nothing when it throws std::bad_alloc. */
    bool take(uint32_t index) {
        const auto above = free_.upper_bound(index);
        if (above == free_.begin()) return false;
        const auto run = std::prev(above);
        const uint32_t last = run->second;
        if (last < index) return false;
        if (last > index) free_.emplace(index + 1, last);
        run->second = index - 1;
        if (run->first == index) free_.erase(run);
        return true;
    }
    /** Frees a taken number. */
    void release(uint32_t index) {
        const auto above = free_.upper_bound(index);
        const bool meets_above = above != free_.end() && above->first == index + 1;
        const bool meets_below = above != free_.begin() && std::prev(above)->second == index - 1;
        if (meets_below) {
            std::prev(above)->second = meets_above ? above->second : index;
            if (meets_above) free_.erase(above);
        } else if (meets_above) {
            auto run = free_.extract(above);
            run.key() = index;
            free_.insert(std::move(run));
        } else {
            free_.emplace(index, index);
        }
    }

private:
    std::map<uint32_t, uint32_t> free_{{1, UINT32_MAX}}; /* first and last number of each run; runs are not adjacent */
};

using rule_key_t = std::pair<uint32_t, uint32_t>; /* Rule ID, Domain ID */
struct rule_key_hash_t {
    size_t operator()(const rule_key_t &key) const {
        return std::hash<uint64_t>()(uint64_t{key.first} << 32 | key.second);
    }
};

struct rules_t {
    std::unordered_map<rule_key_t, uint32_t, rule_key_hash_t> basic; /* index of the rule */
    table_t<uint32_t, kept_rule_t> by_index;                         /* all basic rules */
    table_t<uint32_t, fwx_nat64_mapt_dmr_t> defaults;
    bool orders_cleanup = false; /* deleting the last basic rule tells the client to empty its table */

    /** Executes a command, and sets the fields of its reply that depend on the outcome. */
    uint32_t basic_set(const fwx_nat64_bmr_msg_t &command, fwx_nat64_mapt_reply_t *reply);
    /** Adds a basic rule under its index, which must be free. */
    uint32_t basic_restore(const kept_rule_t &rule);
    uint32_t basic_remove(const kept_rule_t &rule);
    uint32_t default_add(const fwx_nat64_mapt_dmr_t &rule);
    uint32_t default_modify(const fwx_nat64_mapt_dmr_t &rule);
    uint32_t default_remove(const fwx_nat64_mapt_dmr_t &rule);

private:
    indices_t indices;

    uint32_t add(const fwx_nat64_mapt_bmr_t &rule, uint32_t *index);
    void enter(const kept_rule_t &rule);
    uint32_t remove(const rule_key_t &key, uint32_t *index);
};

#endif
