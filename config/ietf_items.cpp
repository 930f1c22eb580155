/*
 * Items go through the same reader and the same checks as those of a JSON document. Problems that these find by field
 * and line are then mapped back to the path of the leaf: an item's line is the number of its place.
 */
#include "config/ietf_items.h"

#include <algorithm>

#include "config/check.h"
#include "config/ietf_values.h"
#include "records/families.h"
#include "records/misspelt.h"

namespace {

/* The domain of rules whose names are not `domain-D-rule-R`, and the placeholder for the number that they get. */
constexpr const char *unnamed_domain = "1";
constexpr const char *unnamed_rule = "0";

std::string *find_member(ietf_members_t &members, std::string_view field) {
    const auto found =
        std::find_if(members.begin(), members.end(), [field](const auto &member) { return member.first == field; });
    return found == members.end() ? nullptr : &found->second;
}

/** The family and key of the item that a leaf is. Leaves of the same item have the same. */
std::string key_of(const ietf_node_t &item) {
    return record_command_text(record_family_of(item.family), nullptr).append(" ").append(item.with);
}

}  // namespace

ietf_members_t ietf_members_of(const ietf_node_t &node) {
    const ietf_fixed_t fixed = ietf_fixed_of(node);
    if (fixed.field.empty()) return {};
    return {{std::string(fixed.field), std::string(fixed.text)}};
}

std::string ietf_no_place_text(std::string_view value, std::string_view reason) {
    return quoted_word(value).append(" has no place in a document: ").append(reason);
}

void ietf_faults_t::refuse(const std::string &path, const std::string &reason) {
    problems.push_back({problem_t::kind_t::error, 0, path, {}, reason});
}

void ietf_faults_t::lose(const std::string &path, const std::string &reason) {
    const bool is_error = loss == ietf_loss_t::refused;
    problems.push_back({is_error ? problem_t::kind_t::error : problem_t::kind_t::warning, 0, path, {}, reason});
}

void ietf_faults_t::lose(const ietf_node_t &node, const std::string &value, const std::string &path,
                         ietf_entry_t *entry) {
    const bool takes_entry = node.takes_entry && entry != nullptr;
    if (takes_entry) entry->is_out = true;
    lose(path, ietf_no_place_text(value, node.reason) + (takes_entry ? "; without it, neither has the entry" : ""));
}

void ietf_items_t::take_field(const ietf_node_t &node, const std::string &value, const std::string &path,
                              ietf_entry_t &entry) {
    const std::string field(node.field);
    ip_prefix_t prefix{};
    switch (node.form) {
        case ietf_form_t::same: {
            const ietf_word_t word = ietf_word_of(node, value);
            entry.members.emplace_back(field, word.name.empty() ? value : std::string(word.value));
            return;
        }
        case ietf_form_t::host:
            parse_prefix(value, prefix);
            if (!prefix.is_host()) return faults_.lose(node, value, path, &entry);
            entry.members.emplace_back(field, prefix.address());
            return;
        case ietf_form_t::span: {
            parse_prefix(value, prefix);
            if (prefix.bits() != 32) return faults_.lose(node, value, path, &entry);
            const span_text_t span = span_of(prefix);
            entry.members.emplace_back(field, span.first);
            entry.members.emplace_back("end", span.last);
            return;
        }
        case ietf_form_t::rule_name:
            return take_rule_name(node, value, path, entry);
    }
}

void ietf_items_t::take_rule_name(const ietf_node_t &node, const std::string &value, const std::string &path,
                                  ietf_entry_t &entry) {
    std::string domain;
    std::string rule;
    if (!parse_rule_name(value, domain, rule)) {
        domain = unnamed_domain;
        rule = unnamed_rule;
        faults_.lose(node, value, path, &entry);
    } else if (domain == unnamed_domain) {
        rules_.insert(rule);
    }
    entry.members.emplace_back("rule", rule);
    entry.members.emplace_back("domain", domain);
}

void ietf_items_t::say(ietf_said_t said, ietf_entry_t *entry) {
    if (entry != nullptr) {
        entry->items.push_back(std::move(said));
    } else {
        shared_[key_of(nodes_[said.node])].push_back(std::move(said));
    }
}

void ietf_items_t::finish(ietf_entry_t entry) {
    if (entry.is_out) return;
    for (ietf_said_t &item : entry.items) {
        say(std::move(item), nullptr);
    }
    for (size_t node = entry.node + 1; node < ietf_end_of(entry.node); ++node) {
        const ietf_node_t &known = nodes_[node];
        const bool is_missing = known.place == ietf_place_t::field && !known.otherwise.empty() &&
                                find_member(entry.members, known.field) == nullptr;
        if (is_missing) take_field(known, std::string(known.otherwise), entry.path, entry);
    }
    const std::string *rule = find_member(entry.members, "rule");
    const bool waits_for_number = rule != nullptr && *rule == unnamed_rule;
    if (waits_for_number) {
        unnamed_.push_back(std::move(entry));
    } else {
        add(entry.node, entry.path, entry.members);
    }
}

document_t ietf_items_t::end() {
    add_shared();
    add_unnamed();
    problems_t found;
    document_.settle(notation_t::json, found);
    check_document(document_, notation_t::json, found);
    for (const problem_t &problem : found) {
        take(problem);
    }
    return std::move(document_);
}

/** Adds the items that are leaves. All leaves of one item must be present and have the same value. */
void ietf_items_t::add_shared() {
    for (const auto &[key, places] : shared_) {
        const auto first =
            std::find_if(places.begin(), places.end(), [](const ietf_said_t &said) { return !said.value.empty(); });
        if (first == places.end()) continue;
        for (const ietf_said_t &said : places) {
            if (said.value == first->value) continue;
            const std::string other = said.value.empty() ? "is missing" : said.value;
            faults_.lose(said.path, other + ": must be " + first->value + " as " + first->path +
                                        " has it: the service has one value for both");
        }
        ietf_members_t members = ietf_members_of(nodes_[first->node]);
        members.emplace_back(nodes_[first->node].field, first->value);
        add(first->node, first->path, members);
    }
}

void ietf_items_t::add_unnamed() {
    uint64_t next = 1;
    for (ietf_entry_t &entry : unnamed_) {
        while (!rules_.insert(std::to_string(next)).second) {
            ++next;
        }
        *find_member(entry.members, "rule") = std::to_string(next);
        add(entry.node, entry.path, entry.members);
    }
}

void ietf_items_t::add(size_t node, const std::string &path, const ietf_members_t &members) {
    const record_family_t &family = record_family_of(nodes_[node].family);
    places_.push_back({path, node});
    const auto line = static_cast<uint32_t>(places_.size());
    views_.clear();
    for (const auto &[name, value] : members) {
        views_.push_back({name, value});
    }
    const record_verb_t &verb = *record_verb_of(family, FWX_NAT64_OP_ADD);
    if (reader_.read(family, verb, views_) == record_reader_t::result_t::record) {
        document_.add(family, reader_.record().bytes, line);
        return;
    }
    for (const record_error_t &error : reader_.errors()) {
        take({problem_t::kind_t::error, line, {}, error.field, error.text});
    }
}

/** Reports a problem of an item's field as one of the leaf that is this field. */
void ietf_items_t::take(const problem_t &problem) {
    const place_t &place = places_[problem.line - 1];
    const bool is_entry = nodes_[place.node].place == ietf_place_t::entry;
    const size_t leaf = is_entry ? leaf_of(place.node, problem.field) : place.node;
    if (leaf == count_) return; /* the last address of a pool: no leaf of its own, reported with the first one */
    std::string reason = problem.reason;
    if (reason.compare(0, problem.field.size(), problem.field) == 0) reason.erase(0, problem.field.size());
    if (!reason.empty() && reason.front() == ' ') reason.erase(0, 1);
    reason.erase(std::min(reason.find(" in line "), reason.size()));
    faults_.problems.push_back({problem.kind, 0, path_of(place, leaf), {}, reason});
}

std::string ietf_items_t::path_of(const place_t &place, size_t leaf) const {
    std::string path = place.path;
    for (size_t node = place.node + 1; node <= leaf; ++node) {
        const bool is_around = ietf_end_of(node) > leaf;
        if (is_around) path.append("/").append(nodes_[node].name);
    }
    return path;
}

/** The leaf of an entry that is that field, or the number of all nodes if there is none. */
size_t ietf_items_t::leaf_of(size_t entry, std::string_view field) const {
    for (size_t node = entry + 1; node < ietf_end_of(entry); ++node) {
        if (nodes_[node].place == ietf_place_t::field && nodes_[node].field == field) return node;
    }
    return count_;
}
