#include "records/reader.h"

#include <algorithm>
#include <iterator>

#include "records/families.h"
#include "records/misspelt.h"

namespace {

/** The family whose words come first, and how many they are; null: none. */
const record_family_t *find_family(const std::vector<std::string_view> &words, size_t *word_count) {
    size_t count = 0;
    const record_family_t *families = record_families(&count);
    for (size_t i = 0; i < count; ++i) {
        const record_family_t &family = families[i];
        *word_count = family.group.empty() ? 1 : 2;
        if (words.size() < *word_count || words[*word_count - 1] != family.word) continue;
        if (family.group.empty() || words[0] == family.group) return &family;
    }
    return nullptr;
}

/** Help, and the marks that end the options of a command. */
bool is_for_a_grammar(std::string_view word) {
    return word == "--" || word == "++" || word.substr(0, 2) == "-h" || word.substr(0, word.find('=')) == "--help";
}

}  // namespace

record_reader_t::result_t record_reader_t::read(const std::vector<std::string_view> &words) {
    size_t word_count = 0;
    family_ = find_family(words, &word_count);
    if (family_ == nullptr) return result_t::other;
    verb_ = nullptr;
    extra_ = nullptr;
    std::fill(std::begin(given_), std::end(given_), given_t{});
    return read_words(words, word_count);
}

record_reader_t::result_t record_reader_t::read_words(const std::vector<std::string_view> &words, size_t next) {
    for (; next < words.size(); ++next) {
        const std::string_view &word = words[next];
        if (is_for_a_grammar(word)) return result_t::other;
        const bool comes_before_verb = verb_ == nullptr;
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
            return refuse(std::string(field.option) + ": 1 required " + record_field_form(field) + " missing");
        }
        given.value = words[next];
    }
    if (verb_ != nullptr) return read_fields();
    return refuse(extra_ == nullptr ? "must go on with " + verbs_text() : misplaced_text());
}

record_reader_t::result_t record_reader_t::read_fields() {
    record_init(*family_, record_);
    for (size_t i = 0; i < family_->field_count; ++i) {
        const record_field_t &field = family_->fields[i];
        const given_t &given = given_[i];
        if (given.times == 0) continue;
        if (given.times > 1) {
            return refuse(std::string(field.option) + ": At Most 1 required but received " +
                          std::to_string(given.times));
        }
        for (size_t j = 0; j < i; ++j) {
            const record_field_t &other = family_->fields[j];
            const bool collides = given_[j].times != 0 && record_fields_overlap(field, other);
            if (collides) return refuse(std::string(other.option) + " excludes " + std::string(field.option));
        }
        std::string error = record_field_read(field, given.value, record_.bytes);
        if (!error.empty()) return refuse(std::move(error));
    }
    if (extra_ != nullptr) return refuse(misplaced_text()); /* which may be an option that is missing, misspelt */
    for (size_t i = 0; i < family_->field_count; ++i) {
        const record_field_t &field = family_->fields[i];
        const bool is_missing = given_[i].times == 0 && field.is_required_on(verb_->op);
        if (is_missing) return refuse(std::string(field.option) + " is required");
    }
    return result_t::record;
}

record_reader_t::result_t record_reader_t::refuse(std::string error) {
    error_ = std::move(error);
    return result_t::refused;
}

/** Index of the field with that option among those that the verb takes, or their number. */
size_t record_reader_t::find_field(std::string_view option) const {
    for (size_t i = 0; i < family_->field_count; ++i) {
        const record_field_t &field = family_->fields[i];
        const bool is_called_so = field.option == option || (field.also == option && !option.empty());
        if (is_called_so && field.is_taken_on(verb_->op)) return i;
    }
    return family_->field_count;
}

std::string record_reader_t::verbs_text() const {
    std::string text;
    for (size_t i = 0; i < family_->verb_count; ++i) {
        text.append(text.empty() ? "" : ", ").append(family_->verbs[i].word);
    }
    return text;
}

/** What to say of the word that has no place. */
std::string record_reader_t::misplaced_text() const {
    std::vector<std::string_view> known;
    if (verb_ == nullptr) {
        for (size_t i = 0; i < family_->verb_count; ++i) {
            known.push_back(family_->verbs[i].word);
        }
        return wrong_word_text(*extra_, known, "must be " + verbs_text());
    }
    known.emplace_back("--help");
    for (size_t i = 0; i < family_->field_count; ++i) {
        const record_field_t &field = family_->fields[i];
        if (field.is_taken_on(verb_->op)) known.push_back(field.option);
    }
    return wrong_word_text(*extra_, known, "not expected here, see --help");
}
