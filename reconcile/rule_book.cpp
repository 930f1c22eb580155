/*
 * The corrections of the library's table after each answer. `install` and `take_out` change the table and the book
 * together; `put_back_leaves` restores the leaves of prefixes that a removed rule shared with others.
 */
#include "reconcile/rule_book.h"

#include <cstring>

#include "fwx_nat64/result.h"
#include "fwx_nat64/server_result.h"
#include "fwx_nat64/wire.h"

namespace {

uint64_t leading_bits(const uint8_t *bytes, size_t count, uint8_t length) {
    uint64_t bits = 0;
    for (size_t i = 0; i < sizeof bits; ++i) {
        bits = bits << 8 | (i < count ? bytes[i] : 0);
    }
    return length == 0 ? 0 : bits >> (64 - length) << (64 - length);
}

uint32_t first_of(uint32_t code, uint32_t next) {
    return code != 0 ? code : next;
}

bool is_done(const fwx::nat64::rule_result &got) {
    return got.has_verdict && (!got.error || got.code() == FWX_NAT64_MODEL_ERR_NOT_SAVED);
}

}  // namespace

rule_verdict_t rule_book_t::answered(const rule_change_t &change, const fwx::nat64::rule_result &got) {
    if (is_done(got)) return {true, done(change, static_cast<uint32_t>(got.table.value()), got.bmr_index)};
    const bool is_gone = change.op == FWX_NAT64_OP_DEL && got.code() == FWX_NAT64_MODEL_ERR_NO_ENTRY;
    return {false, is_gone ? 0 : failed(change)};
}

rule_verdict_t rule_book_t::answered(const default_change_t &change, const fwx::nat64::rule_result &got) {
    if (is_done(got)) done(change);
    return {is_done(got), 0};
}

size_t rule_book_t::prefix_hash_t::operator()(const prefix_t &prefix) const noexcept {
    const auto [version, length, bits] = prefix;
    const uint64_t number = length == 0 ? 0 : bits >> (64 - length);
    return number + (static_cast<uint64_t>(version) << 8 | length) * 0x9e3779b97f4a7c15;
}

rule_book_t::prefix_t rule_book_t::v4_of(const fwx_nat64_mapt_bmr_t &rule) {
    return {4, rule.v4_prefix_len, leading_bits(rule.v4_prefix, sizeof rule.v4_prefix, rule.v4_prefix_len)};
}

rule_book_t::prefix_t rule_book_t::v6_of(const fwx_nat64_mapt_bmr_t &rule) {
    return {6, rule.v6_prefix_len, leading_bits(rule.v6_prefix, sizeof rule.v6_prefix, rule.v6_prefix_len)};
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
    const bool is_installed = table_code == 0 && !is_lost && installed_.count(name_of(change.rule)) == 0;
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
    const auto found = installed_.find(name_of(change.rule));
    const auto good = found == installed_.end() ? std::nullopt : std::optional(found->second);
    const uint32_t code = take_out(change.rule);
    return good ? first_of(code, install(*good)) : code;
}

void rule_book_t::done(const default_change_t &change) {
    if (change.op == FWX_NAT64_OP_ADD) defaults_.emplace(change.rule.id, change.rule);
    if (change.op == FWX_NAT64_OP_DEL) defaults_.erase(change.rule.id);
}

uint32_t rule_book_t::found(const fwx_mapt_rule_hash_elem_t &rule) {
    const auto known = installed_.find(name_of(rule.rule));
    if (known == installed_.end()) return install(rule);
    const auto *held = reinterpret_cast<const uint8_t *>(&known->second.rule);
    const auto *told = reinterpret_cast<const uint8_t *>(&rule.rule);
    const bool is_same = known->second.mapt_bmr == rule.mapt_bmr && std::memcmp(held, told, sizeof rule.rule) == 0;
    if (is_same) return 0;
    const uint32_t code = take_out(rule.rule); /* first, because the table takes a rule once */
    return first_of(code, install(rule));
}

void rule_book_t::emptied() {
    installed_.clear();
    first_.clear();
    sharing_.clear();
    for (auto &[name, is_kept] : pending_) {
        is_kept = false;
    }
}

void rule_book_t::enter(const fwx_mapt_rule_hash_elem_t &rule) {
    if (!installed_.emplace(name_of(rule.rule), rule).second) return;
    enter(v4_of(rule.rule), name_of(rule.rule));
    enter(v6_of(rule.rule), name_of(rule.rule));
}

void rule_book_t::enter(const prefix_t &prefix, rule_name_t name) {
    const auto [at, is_alone] = first_.try_emplace(prefix, name);
    if (is_alone) return;
    if (name < at->second) std::swap(name, at->second);
    sharing_.emplace(prefix, name);
}

void rule_book_t::leave(const prefix_t &prefix, rule_name_t name) {
    const auto at = first_.find(prefix);
    if (at->second != name) {
        sharing_.erase({prefix, name});
        return;
    }
    const auto next = sharing_.lower_bound({prefix, {0, 0}});
    if (next == sharing_.end() || next->first != prefix) {
        first_.erase(at);
        return;
    }
    at->second = next->second;
    sharing_.erase(next);
}

std::optional<fwx_mapt_rule_hash_elem_t> rule_book_t::leave(const rule_name_t &name) {
    const auto found = installed_.find(name);
    if (found == installed_.end()) return std::nullopt;
    const fwx_mapt_rule_hash_elem_t rule = found->second;
    installed_.erase(found);
    for (const prefix_t &prefix : {v4_of(rule.rule), v6_of(rule.rule)}) {
        leave(prefix, name);
    }
    return rule;
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
    for (const prefix_t &prefix : {v4_of(rule), v6_of(rule)}) {
        const auto remaining = first_.find(prefix);
        if (remaining == first_.end()) continue;
        code = first_of(code, fwx_mapt_plu_rule_insert(&installed_.at(remaining->second)));
    }
    return code;
}
