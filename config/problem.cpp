#include "config/problem.h"

#include <algorithm>

#include "records/families.h"
#include "records/misspelt.h"

std::string problem_t::text() const {
    std::string text = line == 0 ? "" : "line " + std::to_string(line) + ": ";
    if (kind == kind_t::warning) text += "warning: ";
    return text + command + (command.empty() ? "" : ": ") + reason;
}

bool has_error(const problems_t &problems) {
    return std::any_of(problems.begin(), problems.end(), [](const problem_t &problem) { return problem.is_error(); });
}

void sort_by_line(problems_t &problems) {
    std::stable_sort(problems.begin(), problems.end(),
                     [](const problem_t &a, const problem_t &b) { return a.line < b.line; });
}

std::string_view label_of(const record_field_t &field, notation_t notation) {
    return notation == notation_t::json ? field.name : field.option;
}

std::string label_of(const record_family_t &family, notation_t notation) {
    const bool has_verb = notation == notation_t::lines;
    return record_command_text(family, has_verb ? record_verb_of(family, FWX_NAT64_OP_ADD) : nullptr);
}

std::string key_text(const record_family_t &family, const void *record, notation_t notation) {
    std::string text;
    for (const record_field_t *field = family.fields; field != family.fields + family.field_count; ++field) {
        if (!field->is_key) continue;
        text.append(text.empty() ? "" : " ").append(label_of(*field, notation));
        text.append(" ").append(record_field_text(*field, record));
    }
    return text;
}

std::string wrong_family_text(std::string_view word) {
    std::vector<std::string> texts;
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    for (size_t i = 0; i < count; ++i) {
        texts.push_back(record_command_text(families[i], nullptr));
    }
    return wrong_word_text(word, {texts.begin(), texts.end()}, "no family of configuration commands");
}
