/*
 * Parses in two passes: the first assigns the words or members to the fields of the family, the second reads each value
 * into the record. Errors that the grammar of natctl reports too have the same texts.
 */
#include "records/reader.h"

#include <algorithm>
#include <iterator>

#include "records/families.h"
#include "records/misspelt.h"

namespace {

/** The family that the first words name, and how many words that takes; null if they name none. */
const record_family_t *find_family(const std::vector<std::string_view> &words, size_t *word_count) {
    size_t count = 0;
    const record_family_t *known = record_families(&count);
    for (size_t i = 0; i < count; ++i) {
        const record_family_t &family = known[i];
        *word_count = family.group.empty() ? 1 : 2;
        if (words.size() < *word_count || words[*word_count - 1] != family.word) continue;
        if (family.group.empty() || words[0] == family.group) return &family;
    }
    return nullptr;
}

/** True for --help, and for the marks that end the options of a command. */
bool is_for_a_grammar(std::string_view word) {
    const bool may_be = !word.empty() && (word.front() == '-' || word.front() == '+');
    if (!may_be) return false;
    return word == "--" || word == "++" || word.substr(0, 2) == "-h" || word.substr(0, word.find('=')) == "--help";
}

}  // namespace

record_reader_t::result_t record_reader_t::read(const std::vector<std::string_view> &words) {
    size_t word_count = 0;
    family_ = find_family(words, &word_count);
    if (family_ == nullptr) return result_t::other;
    start(family_, nullptr, false);
    return read_words(words, word_count);
}

record_reader_t::result_t record_reader_t::read(const record_family_t &family, const record_verb_t &verb,
                                                const std::vector<record_member_t> &members) {
    start(&family, &verb, true);
    for (const record_member_t &member : members) {
        const size_t index = find_field(member.name);
        if (index < family.field_count) {
            given_[index].value = member.value;
            ++given_[index].times;
        } else if (extra_ == nullptr) {
            extra_ = &member.name;
        }
    }
    return read_fields();
}

void record_reader_t::start(const record_family_t *family, const record_verb_t *verb, bool by_name) {
    family_ = family;
    verb_ = verb;
    extra_ = nullptr;
    is_by_name_ = by_name;
    errors_.clear();
    std::fill(std::begin(given_), std::end(given_), given_t{});
}

record_reader_t::result_t record_reader_t::read_words(const std::vector<std::string_view> &words, size_t next) {
    for (; next < words.size(); ++next) {
        const std::string_view &word = words[next];
        if (is_for_a_grammar(word)) return result_t::other;
        const bool comes_before_verb = verb_ == nullptr;
        if (comes_before_verb && !word.empty() && word == other_verb_) return result_t::other;
        if (comes_before_verb) verb_ = record_find_verb(*family_, word);
        if (comes_before_verb && verb_ != nullptr) continue;
        const size_t equals = std::min(word.find('='), word.size());
        const size_t index = verb_ == nullptr ? family_->field_count : find_field(word.substr(0, equals));
        if (index == family_->field_count) {
            if (extra_ == nullptr) extra_ = &word;
            continue;
        }
        given_t &given = given_[index];
        given.value = word.substr(std::min(equals + 1, word.size()));
        ++given.times;
        if (!given.value.empty()) continue;
        if (++next == words.size()) {
            const record_field_t &field = family_->fields[index];
            note(field, std::string(field.option) + ": 1 required " + record_field_form(field) + " missing");
            given.times = 0;
            break;
        }
        given.value = words[next];
    }
    if (verb_ != nullptr) return read_fields();
    return refuse(extra_ == nullptr ? "must go on with " + verbs_text() : misplaced_text());
}

record_reader_t::result_t record_reader_t::read_fields() {
    record_init(*family_, record_);
    for (size_t i = 0; i < family_->field_count; ++i) {
        if (given_[i].times != 0) read_field(i);
    }
    if (extra_ != nullptr) { /* maybe a misspelt option, so do not report required options as missing */
        errors_.push_back({quoted_word(*extra_), misplaced_text()});
        return result_t::refused;
    }
    for (size_t i = 0; i < family_->field_count; ++i) {
        const record_field_t &field = family_->fields[i];
        const bool is_missing = given_[i].times == 0 && field.is_required_on(verb_->op) && !is_noted(field);
        if (is_missing) note(field, std::string(label(field)) + " is required");
    }
    return errors_.empty() ? result_t::record : result_t::refused;
}

void record_reader_t::read_field(size_t index) {
    const record_field_t &field = family_->fields[index];
    const given_t &given = given_[index];
    if (given.times > 1)
        return note(field,
                    std::string(label(field)) + ": At Most 1 required but received " + std::to_string(given.times));
    for (size_t i = 0; i < index; ++i) {
        const record_field_t &other = family_->fields[i];
        const bool collides = given_[i].times != 0 && record_fields_overlap(field, other);
        if (collides) return note(field, std::string(label(other)).append(" excludes ").append(label(field)));
    }
    const std::string error = record_field_read(field, given.value, record_.bytes);
    if (error.empty()) return;
    record_field_t labelled = field;
    labelled.option = label(field);
    note(field, record_field_read(labelled, given.value, record_.bytes));
}

record_reader_t::result_t record_reader_t::refuse(std::string error) {
    errors_.push_back({{}, std::move(error)});
    return result_t::refused;
}

void record_reader_t::note(const record_field_t &field, std::string error) {
    errors_.push_back({std::string(label(field)), std::move(error)});
}

bool record_reader_t::is_noted(const record_field_t &field) const {
    return std::any_of(errors_.begin(), errors_.end(),
                       [&](const record_error_t &error) { return error.field == label(field); });
}

/** Index of the field with that option or name, or the number of fields if the verb takes no such field. */
size_t record_reader_t::find_field(std::string_view word) const {
    for (size_t i = 0; i < family_->field_count; ++i) {
        const record_field_t &field = family_->fields[i];
        const bool is_called_so = label(field) == word || (!is_by_name_ && field.also == word && !word.empty());
        if (is_called_so && field.is_taken_on(verb_->op)) return i;
    }
    return family_->field_count;
}

std::string record_reader_t::verbs_text() const {
    std::string text;
    for (size_t i = 0; i < family_->verb_count; ++i) {
        text.append(text.empty() ? "" : ", ").append(family_->verbs[i].word);
    }
    if (!other_verb_.empty()) text.append(", ").append(other_verb_);
    return text;
}

/** The error for the unexpected word. */
std::string record_reader_t::misplaced_text() const {
    std::vector<std::string_view> known;
    if (verb_ == nullptr) {
        for (size_t i = 0; i < family_->verb_count; ++i) {
            known.push_back(family_->verbs[i].word);
        }
        if (!other_verb_.empty()) known.push_back(other_verb_);
        return wrong_word_text(*extra_, known, "must be " + verbs_text());
    }
    if (!is_by_name_) known.emplace_back("--help");
    for (size_t i = 0; i < family_->field_count; ++i) {
        const record_field_t &field = family_->fields[i];
        if (field.is_taken_on(verb_->op)) known.push_back(label(field));
    }
    return wrong_word_text(*extra_, known, is_by_name_ ? "no such field" : "not expected here, see --help");
}
