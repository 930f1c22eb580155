/* Implements rule_set.h. A batch file is reduced to the rules that remain after its adds and deletes. */
#include "tools/natctl/rule_set.h"

#include <cstring>
#include <optional>
#include <sstream>

#include "records/embedding.h"
#include "records/value.h"
#include "state/read_file.h"
#include "tools/natctl/batch.h"
#include "tools/natctl/line_joiner.h"

namespace {

struct subnet_t {
    const uint8_t *bytes;
    uint8_t length;
};

bool is_in(const uint8_t *address, const subnet_t &prefix) {
    return has_prefix(address, prefix.bytes, prefix.length);
}

template <typename rules_t, typename prefix_of_t>
auto find_longest(const rules_t &rules, const uint8_t *address, prefix_of_t prefix_of) {
    const typename rules_t::mapped_type *longest = nullptr;
    for (const auto &[name, rule] : rules) {
        if (!is_in(address, prefix_of(rule))) continue;
        const bool is_longer = longest == nullptr || prefix_of(rule).length > prefix_of(*longest).length;
        if (is_longer) longest = &rule;
    }
    return longest;
}

}  // namespace

std::string rule_set_t::read(const std::string &file) {
    std::string error;
    const std::optional<std::string> read = read_file(file, error);
    if (!read) return error;
    std::istringstream stream(*read);
    line_joiner_t joiner;
    const next_line_fn_t next = lines_of(stream, {"", file});
    try {
        for (std::string text; error.empty() && next(text);) {
            if (joiner.join(text)) error = take_line(text);
        }
    } catch (const usage_error_t &failure) {
        return failure.text;
    }
    if (error.empty()) error = take_line(joiner.rest());
    return error.empty() ? "" : file + ": line " + std::to_string(joiner.line()) + ": " + error;
}

std::string rule_set_t::take_line(const std::string &text) {
    const char open_quote = words_.split(text);
    if (open_quote != 0) return open_quote + std::string(": quote without its end");
    if (words_.words().empty()) return {};
    const record_reader_t::result_t result = reader_.read(words_.words());
    const bool is_rule = result != record_reader_t::result_t::other && reader_.family().is_rule();
    if (!is_rule) return {};
    if (result == record_reader_t::result_t::refused) return reader_.command() + ": " + reader_.error();
    const void *record = reader_.record().bytes;
    if (reader_.family().kind == family_kind_t::basic_rule) {
        apply(reader_.verb().op, *static_cast<const fwx_nat64_mapt_bmr_t *>(record));
    } else {
        apply(reader_.verb().op, *static_cast<const fwx_nat64_mapt_dmr_t *>(record));
    }
    return {};
}

/** Applies a command as a server does: a second add of the same rule changes nothing. */
void rule_set_t::apply(uint32_t op, const fwx_nat64_mapt_bmr_t &rule) {
    if (op == FWX_NAT64_OP_ADD) basic_.emplace(name_of(rule), rule);
    if (op == FWX_NAT64_OP_DEL) basic_.erase(name_of(rule));
}

void rule_set_t::apply(uint32_t op, const fwx_nat64_mapt_dmr_t &rule) {
    if (op == FWX_NAT64_OP_ADD) defaults_.emplace(rule.id, rule);
    if (op == FWX_NAT64_OP_DEL) defaults_.erase(rule.id);
}

void rule_set_t::take(const rule_book_t &book) {
    defaults_ = book.defaults();
    for (const fwx_mapt_rule_hash_elem_t &installed : book.rules()) {
        apply(FWX_NAT64_OP_ADD, installed.rule);
    }
}

void rule_set_t::take(const document_t &document) {
    for (size_t i = 0; i < document.size(); ++i) {
        const config_item_t item = document.item(i);
        if (!item.family->is_rule()) continue;
        record_buffer_t record;
        std::memcpy(record.bytes, item.record, item.family->record_size);
        const void *rule = record.bytes;
        if (item.family->kind == family_kind_t::basic_rule) {
            apply(FWX_NAT64_OP_ADD, *static_cast<const fwx_nat64_mapt_bmr_t *>(rule));
        } else {
            apply(FWX_NAT64_OP_ADD, *static_cast<const fwx_nat64_mapt_dmr_t *>(rule));
        }
    }
}

std::vector<const fwx_nat64_mapt_bmr_t *> rule_set_t::find_v4(const uint8_t ipv4[4]) const {
    auto prefix_of = [](const fwx_nat64_mapt_bmr_t &rule) { return subnet_t{rule.v4_prefix, rule.v4_prefix_len}; };
    std::vector<const fwx_nat64_mapt_bmr_t *> found;
    const fwx_nat64_mapt_bmr_t *longest = find_longest(basic_, ipv4, prefix_of);
    if (longest == nullptr) return found;
    for (const auto &[name, rule] : basic_) {
        const bool is_as_long = rule.v4_prefix_len == longest->v4_prefix_len;
        if (is_as_long && is_in(ipv4, prefix_of(rule))) found.push_back(&rule);
    }
    return found;
}

const fwx_nat64_mapt_bmr_t *rule_set_t::find_v6(const uint8_t ipv6[16]) const {
    auto prefix_of = [](const fwx_nat64_mapt_bmr_t &rule) { return subnet_t{rule.v6_prefix, rule.v6_prefix_len}; };
    return find_longest(basic_, ipv6, prefix_of);
}

const fwx_nat64_mapt_dmr_t *rule_set_t::find_default(const uint8_t ipv6[16]) const {
    const fwx_nat64_mapt_dmr_t *longest = nullptr;
    for (const auto &[id, rule] : defaults_) {
        uint8_t ipv4[4];
        const uint8_t length = prefix_len_of(rule);
        const bool holds = extract_ipv4(ipv6, length, ipv4) && has_prefix(ipv6, rule.opaque, length);
        const bool is_longer = longest == nullptr || length > prefix_len_of(*longest);
        if (holds && is_longer) longest = &rule;
    }
    return longest;
}

const fwx_nat64_mapt_dmr_t *rule_set_t::first_default() const {
    for (const auto &[id, rule] : defaults_) {
        if (is_embedding_length(prefix_len_of(rule))) return &rule;
    }
    return nullptr;
}
