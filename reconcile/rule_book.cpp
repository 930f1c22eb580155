/*
 * The corrections of the library's table after each answer. `install` and `take_out` change the table and the book
 * together; `put_back_leaves` restores the leaves of prefixes that a removed rule shared with others.
 */
#include "reconcile/rule_book.h"

#include <endian.h>

#include <algorithm>
#include <cstring>

#include "fwx_nat64/result.h"
#include "fwx_nat64/server_result.h"
#include "fwx_nat64/wire.h"

namespace {

rule_index_t::key_t key_of(const rule_name_t &name) {
    return {uint64_t{name.first} << 32 | name.second, 0};
}
rule_index_t::key_t name_key_of(const fwx_nat64_mapt_bmr_t &rule) {
    return key_of(name_of(rule));
}

rule_index_t::key_t v4_key_of(const fwx_nat64_mapt_bmr_t &rule) {
    uint32_t word = 0;
    std::memcpy(&word, rule.v4_prefix, sizeof word);
    return {uint64_t{be32toh(word)} >> (32 - rule.v4_prefix_len), rule.v4_prefix_len};
}
rule_index_t::key_t v6_key_of(const fwx_nat64_mapt_bmr_t &rule) {
    uint64_t word = 0;
    std::memcpy(&word, rule.v6_prefix, sizeof word);
    return {rule.v6_prefix_len == 0 ? 0 : be64toh(word) >> (64 - rule.v6_prefix_len), rule.v6_prefix_len};
}

uint32_t first_of(uint32_t code, uint32_t next) {
    return code != 0 ? code : next;
}

bool is_done(const fwx::nat64::rule_result &got) {
    return got.has_verdict && (!got.error || got.code() == FWX_NAT64_MODEL_ERR_NOT_SAVED);
}

}  // namespace

rule_book_t::rule_book_t() : by_name_(rules_, name_key_of), by_v4_{{rules_, v4_key_of}}, by_v6_{{rules_, v6_key_of}} {}

rule_verdict_t rule_book_t::answered(const rule_change_t &change, const fwx::nat64::rule_result &got) {
    if (is_done(got)) return {true, done(change, static_cast<uint32_t>(got.table.value()), got.bmr_index)};
    const bool is_gone = change.op == FWX_NAT64_OP_DEL && got.code() == FWX_NAT64_MODEL_ERR_NO_ENTRY;
    return {false, is_gone ? 0 : failed(change)};
}

rule_verdict_t rule_book_t::answered(const default_change_t &change, const fwx::nat64::rule_result &got) {
    if (is_done(got)) done(change);
    return {is_done(got), 0};
}

bool rule_book_t::adding(const rule_change_t &change) {
    return pending_.emplace(name_of(change.rule), true).second;
}

uint32_t rule_book_t::deleting(rule_change_t &change) {
    pending_.erase(name_of(change.rule));
    change.before = leave(name_of(change.rule));
    return change.before ? put_back_leaves(change.before->rule) : 0;
}

uint32_t rule_book_t::done(const rule_change_t &change, uint32_t table_code, uint32_t bmr_index) {
    if (change.op != FWX_NAT64_OP_ADD) return 0;
    const auto pending = pending_.find(name_of(change.rule));
    if (pending == pending_.end()) return 0; /* a delete was sent while its add was outstanding */
    const bool is_lost = !pending->second;
    pending_.erase(pending);
    const bool is_installed = table_code == 0 && !is_lost && rule(name_of(change.rule)) == nullptr;
    if (is_installed) {
        enter({change.rule, bmr_index});
        return 0;
    }
    /* The table was emptied meanwhile, or still has a rule of this name that the server has lost. */
    const uint32_t code = take_out(change.rule);
    return first_of(code, install({change.rule, bmr_index}));
}

uint32_t rule_book_t::failed(const rule_change_t &change) {
    if (change.op != FWX_NAT64_OP_ADD) return change.before ? install(*change.before) : 0;
    if (pending_.erase(name_of(change.rule)) == 0) return 0;
    /* The table deletes the pending rule first and keeps an installed one of that name, which is on the server. But
     * take_out removes that one from the book, so it is installed again. */
    const auto *found = rule(name_of(change.rule));
    const auto good = found == nullptr ? std::nullopt : std::optional(*found);
    const uint32_t code = take_out(change.rule);
    return good ? first_of(code, install(*good)) : code;
}

void rule_book_t::done(const default_change_t &change) {
    if (change.op == FWX_NAT64_OP_ADD) defaults_.emplace(change.rule.id, change.rule);
    if (change.op == FWX_NAT64_OP_DEL) defaults_.erase(change.rule.id);
}

uint32_t rule_book_t::found(const fwx_mapt_rule_hash_elem_t &told) {
    const auto *known = rule(name_of(told.rule));
    if (known == nullptr) return install(told);
    const auto *held = reinterpret_cast<const uint8_t *>(known);
    const bool is_same = std::memcmp(held, reinterpret_cast<const uint8_t *>(&told), sizeof told) == 0;
    if (is_same) return 0;
    const uint32_t code = take_out(told.rule); /* first, because the table takes a rule once */
    return first_of(code, install(told));
}

void rule_book_t::emptied() {
    rules_.clear();
    free_.clear();
    by_name_.clear();
    for (prefix_index_t *index : {&by_v4_, &by_v6_}) {
        index->first.clear();
        index->sharing.clear();
    }
    for (auto &[name, is_kept] : pending_) {
        is_kept = false;
    }
}

const fwx_mapt_rule_hash_elem_t *rule_book_t::rule(const rule_name_t &name) const {
    const uint32_t *number = by_name_.find(key_of(name));
    return number == nullptr ? nullptr : &rules_[*number];
}

std::vector<fwx_mapt_rule_hash_elem_t> rule_book_t::rules() const {
    std::vector<fwx_mapt_rule_hash_elem_t> rules;
    rules.reserve(installed());
    by_name_.for_each([&](uint32_t number) { rules.push_back(rules_[number]); });
    std::ranges::sort(rules, {}, [](const fwx_mapt_rule_hash_elem_t &rule) { return name_of(rule.rule); });
    return rules;
}

void rule_book_t::enter(const fwx_mapt_rule_hash_elem_t &rule) noexcept {
    if (this->rule(name_of(rule.rule)) != nullptr) return;
    auto number = static_cast<uint32_t>(rules_.size());
    if (free_.empty()) {
        rules_.push_back(rule);
    } else {
        number = free_.back();
        free_.pop_back();
        rules_[number] = rule;
    }
    by_name_.insert(number);
    enter(by_v4_, number);
    enter(by_v6_, number);
}

void rule_book_t::enter(prefix_index_t &index, uint32_t number) {
    const rule_index_t::key_t prefix = index.first.key_of(number);
    if (index.first.find(prefix) == nullptr) return index.first.insert(number);
    index.sharing.emplace(prefix, name_of(rules_[number].rule));
}

void rule_book_t::leave(prefix_index_t &index, uint32_t number) {
    const rule_index_t::key_t prefix = index.first.key_of(number);
    uint32_t *first = index.first.find(prefix);
    if (*first != number) {
        index.sharing.erase({prefix, name_of(rules_[number].rule)});
        return;
    }
    const auto next = index.sharing.lower_bound({prefix, {0, 0}});
    if (next == index.sharing.end() || next->first != prefix) return index.first.erase(first);
    *first = *by_name_.find(key_of(next->second));
    index.sharing.erase(next);
}

std::optional<fwx_mapt_rule_hash_elem_t> rule_book_t::leave(const rule_name_t &name) {
    uint32_t *found = by_name_.find(key_of(name));
    if (found == nullptr) return std::nullopt;
    const uint32_t number = *found;
    leave(by_v4_, number);
    leave(by_v6_, number);
    by_name_.erase(found);
    free_.push_back(number);
    return rules_[number];
}

/** Installs a rule in the library's table. If the table has the rule already, creates its missing leaves. */
uint32_t rule_book_t::install(fwx_mapt_rule_hash_elem_t rule) {
    fwx_nat64_mapt_reply_t reply{};
    reply.rule_id = rule.rule.rule_id;
    reply.domain_id = rule.rule.domain_id;
    reply.bmr_index = rule.mapt_bmr;
    uint32_t code = fwx_mapt_plu_add_pending_rule(&rule.rule);
    if (code == 0) code = fwx_mapt_plu_add_rule(&reply);
    if (code == FWX_NAT64_ERR_EXISTS) code = fwx_mapt_plu_rule_insert(&rule);
    if (code == 0) enter(rule);
    return code;
}

/** Deletes the pending or installed rule of that name from the library's table. */
uint32_t rule_book_t::take_out(fwx_nat64_mapt_bmr_t rule) {
    const uint32_t code = fwx_mapt_plu_del_rule(&rule);
    if (code != 0) return code;
    const auto gone = leave(name_of(rule));
    const uint32_t put_back = gone ? put_back_leaves(gone->rule) : 0;
    return first_of(put_back, put_back_leaves(rule));
}

/** Creates the leaves that a delete of `rule` has removed again, each for one of the rules that share it. */
uint32_t rule_book_t::put_back_leaves(const fwx_nat64_mapt_bmr_t &rule) {
    uint32_t code = 0;
    for (const uint32_t *remaining : {by_v4_.first.find(v4_key_of(rule)), by_v6_.first.find(v6_key_of(rule))}) {
        if (remaining != nullptr) code = first_of(code, fwx_mapt_plu_rule_insert(&rules_[*remaining]));
    }
    return code;
}
