#include "tools/nat64d/rule_learner.h"

#include <set>
#include <vector>

#include "fwx_nat64/mapt.h"
#include "fwx_nat64/server_result.h"
#include "records/families.h"

namespace nat64 = fwx::nat64;

nat64::task<size_t> learn_rules(nat64::client &client, rule_book_t &rules, const document_t &document) {
    constexpr size_t window = 256; /* commands that are outstanding at a time */
    const record_family_t &family = record_family_of(family_kind_t::basic_rule);
    const size_t begin = document.begin_of(family);
    size_t failed = 0;
    const auto change_of = [&document, begin](size_t index) {
        const void *record = document.item(begin + index).record;
        return rule_change_t{FWX_NAT64_OP_ADD, *static_cast<const fwx_nat64_mapt_bmr_t *>(record), {}};
    };
    const auto add = [&](size_t index) {
        const rule_change_t change = change_of(index);
        rules.adding(change);
        return client.mapt_bmr_add(change.rule);
    };
    const auto on_answer = [&](size_t index, const nat64::rule_result &got) {
        const rule_change_t change = change_of(index);
        const bool is_held = got.has_verdict && (got || got.code() == FWX_NAT64_MODEL_ERR_EXISTS);
        const uint32_t code = is_held ? rules.done(change, static_cast<uint32_t>(got.table.value()), got.bmr_index)
                                      : rules.failed(change);
        if (!is_held || code != 0) ++failed;
    };
    co_await nat64::when_all(document.end_of(family) - begin, window, add, on_answer);
    co_return failed;
}

void prune_rules(rule_book_t &rules, const document_t &document) {
    const record_family_t &family = record_family_of(family_kind_t::basic_rule);
    std::set<rule_name_t> names;
    for (size_t i = document.begin_of(family); i < document.end_of(family); ++i) {
        names.insert(name_of(*reinterpret_cast<const fwx_nat64_mapt_bmr_t *>(document.item(i).record)));
    }
    std::vector<rule_change_t> stale;
    for (const auto &[name, rule] : rules.rules()) {
        if (names.count(name) == 0) stale.push_back({FWX_NAT64_OP_DEL, rule.rule, {}});
    }
    for (rule_change_t &change : stale) {
        fwx_mapt_plu_del_rule(&change.rule);
        rules.deleting(change);
    }
}
