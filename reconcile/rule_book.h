/*
 * Keeps the library's table of MAP-T rules in sync with the server. The library installs a rule even if the server
 * refuses it, and a delete of a rule also removes the leaf of a prefix that other rules share. The rule book removes
 * the refused rules from the table and restores the leaves of the remaining rules. Default rules are in no table of the
 * library, so the book only records those that the server has.
 */
#ifndef RECONCILE_RULE_BOOK_H
#define RECONCILE_RULE_BOOK_H

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "fwx_nat64/cxx/error.hpp"
#include "fwx_nat64/mapt.h"
#include "reconcile/rule_index.h"

/** Rule ID and Domain ID. */
using rule_name_t = std::pair<uint32_t, uint32_t>;
inline rule_name_t name_of(const fwx_nat64_mapt_bmr_t &rule) {
    return {rule.rule_id, rule.domain_id};
}

/** An add or delete of a basic rule, from before it is sent until its answer. No prefix is longer than its field. */
struct rule_change_t {
    uint32_t op; /* FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL */
    fwx_nat64_mapt_bmr_t rule;
    std::optional<fwx_mapt_rule_hash_elem_t> before; /* of a delete: the rule that was in the table */
};

struct default_change_t {
    uint32_t op; /* FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL */
    fwx_nat64_mapt_dmr_t rule;
};

/** The result of a change of a rule. */
struct rule_verdict_t {
    bool is_done;        /* the server has carried it out, even if it failed to save it */
    uint32_t table_code; /* 0, or why the table is not in sync with the server */
};

/** Functions return 0, or the code with which a correction of the library's table failed. */
class rule_book_t {
public:
    rule_book_t();

    /** Call when the server has answered, or is known not to have got the command. */
    rule_verdict_t answered(const rule_change_t &change, const fwx::nat64::rule_result &got);
    rule_verdict_t answered(const default_change_t &change, const fwx::nat64::rule_result &got);

    /** Call before an add is sent. False if the rule is pending already; then nothing changes. */
    bool adding(const rule_change_t &change);
    /** Call after a delete was sent. Sets `change.before`. */
    uint32_t deleting(rule_change_t &change);
    /** Call when the server has carried out the change. `table_code` is the result of the library's table, `bmr_index`
     * the server's index of the rule. */
    uint32_t done(const rule_change_t &change, uint32_t table_code, uint32_t bmr_index);
    /** Call when the server has not carried out the change. */
    uint32_t failed(const rule_change_t &change);
    void done(const default_change_t &change);
    /** Call for a rule that was read from the server. Requires: no command of the rule is outstanding. */
    uint32_t found(const fwx_mapt_rule_hash_elem_t &rule);
    /** Call for a rule that is in the table but not on the server. Requires: no command of the rule is outstanding. */
    uint32_t missed(const fwx_nat64_mapt_bmr_t &rule) { return take_out(rule); }
    /** Call when the library has emptied its table. */
    void emptied();

    /** The installed rule of that name, or null. */
    const fwx_mapt_rule_hash_elem_t *rule(const rule_name_t &name) const;
    /** All installed rules, by their names. */
    std::vector<fwx_mapt_rule_hash_elem_t> rules() const;
    const std::map<rule_name_t, bool> &pending_rules() const { return pending_; }
    const std::map<uint32_t, fwx_nat64_mapt_dmr_t> &defaults() const { return defaults_; }
    size_t installed() const { return by_name_.size(); }
    size_t pending() const { return pending_.size(); }

private:
    /** Finds for each prefix one of the installed rules. The others with that prefix are in `sharing`. */
    struct prefix_index_t {
        rule_index_t first;
        std::set<std::pair<rule_index_t::key_t, rule_name_t>> sharing{};
    };

    /** Ends the process when memory is exhausted, as the rule is in the library's table by then. */
    void enter(const fwx_mapt_rule_hash_elem_t &rule) noexcept;
    void enter(prefix_index_t &index, uint32_t number);
    void leave(prefix_index_t &index, uint32_t number);
    std::optional<fwx_mapt_rule_hash_elem_t> leave(const rule_name_t &name);
    uint32_t install(fwx_mapt_rule_hash_elem_t rule);
    uint32_t take_out(fwx_nat64_mapt_bmr_t rule); /* by value, because it may be one that leaves the book */
    uint32_t put_back_leaves(const fwx_nat64_mapt_bmr_t &rule);

    std::deque<fwx_mapt_rule_hash_elem_t> rules_; /* by their numbers; rules that leave make places free */
    std::vector<uint32_t> free_;
    rule_index_t by_name_;
    prefix_index_t by_v4_;
    prefix_index_t by_v6_;
    std::map<rule_name_t, bool> pending_;               /* false: the library's table was emptied since */
    std::map<uint32_t, fwx_nat64_mapt_dmr_t> defaults_; /* by identifier */
};

#endif
