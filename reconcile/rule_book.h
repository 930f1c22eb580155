/*
 * What a PAL has in the library's table of MAP-T rules. The library installs a rule whatever the server says and
 * deletes the leaf of a prefix with any of the rules that share it; the book takes back what the server did not do and
 * puts back the leaves of those that stay. Default rules are in no table; the book has those that the server has.
 */
#ifndef RECONCILE_RULE_BOOK_H
#define RECONCILE_RULE_BOOK_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>

#include "fwx_nat64/cxx/error.hpp"
#include "fwx_nat64/mapt.h"

/** Rule ID and Domain ID. */
using rule_name_t = std::pair<uint32_t, uint32_t>;
inline rule_name_t name_of(const fwx_nat64_mapt_bmr_t &rule) {
    return {rule.rule_id, rule.domain_id};
}

/** An add or a delete of a rule, from before the library is told of it to its verdict. */
struct rule_change_t {
    uint32_t op; /* FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL */
    fwx_nat64_mapt_bmr_t rule;
    std::optional<fwx_mapt_rule_hash_elem_t> before; /* of a delete: the rule that left the table */
};

struct default_change_t {
    uint32_t op; /* FWX_NAT64_OP_ADD or FWX_NAT64_OP_DEL */
    fwx_nat64_mapt_dmr_t rule;
};

/** What an answer says of a change of a rule. */
struct rule_verdict_t {
    bool is_done;        /* the server has done it, even if it could not save that it has */
    uint32_t table_code; /* 0, or why the table could not be made to agree with the server */
};

/** Results are 0 or the rule table's code: what could not be put right. */
class rule_book_t {
public:
    /** The server has answered, or never got the command. */
    rule_verdict_t answered(const rule_change_t &change, const fwx::nat64::rule_result &got);
    rule_verdict_t answered(const default_change_t &change, const fwx::nat64::rule_result &got);

    /** An add is about to be given to the library; false when the rule is pending already, and stays as it is. */
    bool adding(const rule_change_t &change);
    /** A delete has been given to the library. */
    uint32_t deleting(rule_change_t &change);
    /** The server has done it; `table_code` is what the library's table made of it, `bmr_index` the server's. */
    uint32_t done(const rule_change_t &change, uint32_t table_code, uint32_t bmr_index);
    /** The server has not done it. */
    uint32_t failed(const rule_change_t &change);
    void done(const default_change_t &change);
    /** The server has been found to have a rule under this index. Nothing of the rule is under way. */
    uint32_t found(const fwx_mapt_rule_hash_elem_t &rule);
    /** The server has been found not to have a rule, likewise. */
    uint32_t missed(const fwx_nat64_mapt_bmr_t &rule) { return take_out(rule); }
    /** The library has emptied its table. */
    void emptied();

    const std::map<rule_name_t, fwx_mapt_rule_hash_elem_t> &rules() const { return installed_; }
    const std::map<rule_name_t, bool> &pending_rules() const { return pending_; }
    const std::map<uint32_t, fwx_nat64_mapt_dmr_t> &defaults() const { return defaults_; }
    size_t installed() const { return installed_.size(); }
    size_t pending() const { return pending_.size(); }

private:
    using prefix_t = std::tuple<int, uint8_t, uint64_t>; /* IP version, length, bits */

    /** Documents have their prefixes in order: neighbours of one length are neighbours in the table. */
    struct prefix_hash_t {
        size_t operator()(const prefix_t &prefix) const;
    };

    static prefix_t v4_of(const fwx_nat64_mapt_bmr_t &rule);
    static prefix_t v6_of(const fwx_nat64_mapt_bmr_t &rule);
    void enter(const fwx_mapt_rule_hash_elem_t &rule);
    void enter(const prefix_t &prefix, rule_name_t name);
    void leave(const prefix_t &prefix, rule_name_t name);
    std::optional<fwx_mapt_rule_hash_elem_t> leave(const rule_name_t &name);
    uint32_t install(fwx_mapt_rule_hash_elem_t rule);
    uint32_t take_out(const fwx_nat64_mapt_bmr_t &rule);
    uint32_t put_back_leaves(const fwx_nat64_mapt_bmr_t &rule);

    std::map<rule_name_t, fwx_mapt_rule_hash_elem_t> installed_;
    /* By each of their prefixes the installed ones: the one with the lowest name, and those that share it. */
    std::unordered_map<prefix_t, rule_name_t, prefix_hash_t> first_;
    std::set<std::pair<prefix_t, rule_name_t>> sharing_;
    std::map<rule_name_t, bool> pending_;               /* whether the library still has it so */
    std::map<uint32_t, fwx_nat64_mapt_dmr_t> defaults_; /* by identifier */
};

#endif
