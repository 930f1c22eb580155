/*
 * Parses documents in JSON (config/notation.h). It handles the events of a SAX parser, so that a document of a million
 * items needs no tree. An iterator counts lines, so that errors can name the line. An array or object in a wrong place
 * is reported once and skipped.
 */
#include <algorithm>
#include <cstdio>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "config/notation.h"
#include "records/families.h"
#include "records/misspelt.h"
#include "records/reader.h"

namespace {

/** Iterates over a text and counts its lines, in a variable that all copies share. */
class counting_iterator_t {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char *;
    using reference = const char &;

    counting_iterator_t(const char *at, uint32_t *line) : at_(at), line_(line) {}
    reference operator*() const { return *at_; }
    counting_iterator_t &operator++() {
        *line_ += *at_++ == '\n' ? 1 : 0;
        return *this;
    }
    counting_iterator_t operator++(int) {
        const counting_iterator_t before = *this;
        ++*this;
        return before;
    }
    friend bool operator!=(const counting_iterator_t &a, const counting_iterator_t &b) { return a.at_ != b.at_; }

private:
    const char *at_;
    uint32_t *line_;
};

using json_t = nlohmann::json;

/** Receives the events of the parser. */
class json_reader_t : public nlohmann::json_sax<json_t> {
public:
    json_reader_t(document_t &document, problems_t &problems, const uint32_t &line)
        : document_(document), problems_(problems), line_(line) {}

    /** To be called after the last event. False if the text is not a document of this version. */
    bool end() {
        if (!version_error_.reason.empty()) {
            problems_ = {version_error_}; /* other errors mean nothing in an unknown version */
            return false;
        }
        key_line_ = 0;
        if (is_document_ && !has_version_) refuse({}, "version", "version is required");
        if (is_document_ && !has_items_) refuse({}, "items", "items is required");
        return is_document_;
    }

    bool null() override { return scalar("null"); }
    bool boolean(bool value) override {
        const record_field_t *field = place_ == place_t::item ? member_field() : nullptr;
        const bool is_flag = field != nullptr && field->kind == record_kind_t::number && field->max == 1;
        if (is_flag) return scalar(value ? "1" : "0");
        return scalar(value ? "true" : "false");
    }
    bool number_integer(json_t::number_integer_t value) override { return scalar(std::to_string(value)); }
    bool number_unsigned(json_t::number_unsigned_t value) override { return scalar(std::to_string(value)); }
    bool number_float(json_t::number_float_t, const std::string &text) override { return scalar(text); }
    bool string(std::string &value) override { return scalar(value); }
    bool binary(json_t::binary_t &) override { return false; }

    bool key(std::string &name) override {
        key_line_ = line_;
        if (skipped_ != 0) return true;
        if (place_ == place_t::document) return document_key(name);
        if (place_ == place_t::items) return family_key(name);
        add_member(name);
        return true;
    }

    bool start_object(size_t) override {
        if (is_out_of_place()) return skip();
        switch (place_) {
            case place_t::outside:
                place_ = place_t::document;
                is_document_ = true;
                return true;
            case place_t::document:
                if (key_ != "items") return skip_wrong({}, key_, "a number");
                place_ = place_t::items;
                return true;
            case place_t::items:
                return skip_wrong(family_text(), {}, "an array of objects");
            case place_t::family:
                place_ = place_t::item;
                item_line_ = line_;
                member_count_ = 0;
                return true;
            case place_t::item:
            case place_t::member:
                return skip_member();
        }
        return true;
    }

    bool end_object() override {
        if (skipped_ != 0) return unskip();
        if (place_ == place_t::item) take_item();
        place_ = place_ == place_t::item ? place_t::family
                                         : (place_ == place_t::items ? place_t::document : place_t::outside);
        return true;
    }

    bool start_array(size_t) override {
        if (is_out_of_place()) return skip();
        switch (place_) {
            case place_t::outside:
                key_line_ = line_;
                return skip_wrong({}, {}, "an object with version and items");
            case place_t::document:
                return skip_wrong({}, key_, key_ == "items" ? "an object of arrays" : "a number");
            case place_t::items:
                place_ = place_t::family;
                return true;
            case place_t::family:
                key_line_ = line_;
                return skip_wrong(family_text(), {}, "an array of objects");
            case place_t::item:
                if (!is_several_numbers()) return skip_member();
                place_ = place_t::member;
                return true;
            case place_t::member:
                return skip_member();
        }
        return true;
    }

    bool end_array() override {
        if (skipped_ != 0) return unskip();
        place_ = place_ == place_t::member ? place_t::item : place_t::items;
        return true;
    }

    bool parse_error(size_t, const std::string &, const nlohmann::detail::exception &error) override {
        const std::string_view text = error.what();
        uint32_t line = line_;
        const size_t where = std::min(text.find("at line "), text.size());
        sscanf(text.data() + where, "at line %u", &line);
        const size_t column = text.find("column ");
        const size_t start = column != std::string_view::npos ? column : std::min(text.find("] ") + 2, text.size());
        problems_.push_back({problem_t::kind_t::error, line, {}, {}, "not JSON: " + std::string(text.substr(start))});
        is_document_ = false;
        return false;
    }

private:
    enum class place_t : uint8_t { outside, document, items, family, item, member };
    struct member_t {
        std::string name;
        std::string value;
        uint32_t line;
        bool has_value;
    };

    bool document_key(const std::string &name) {
        key_ = name;
        const bool is_known = name == "version" || name == "items";
        if (!is_known) refuse({}, quoted_word(name), wrong_word_text(name, {"version", "items"}, "no such field"));
        const bool is_again = (name == "version" && has_version_) || (name == "items" && has_items_);
        if (is_again) refuse({}, name, name + " is given twice");
        is_left_out_ = !is_known || is_again;
        has_version_ = has_version_ || name == "version";
        has_items_ = has_items_ || name == "items";
        return true;
    }

    bool family_key(const std::string &name) {
        family_ = record_find_family(name);
        is_left_out_ = family_ == nullptr;
        if (is_left_out_) refuse({}, quoted_word(name), wrong_family_text(name));
        return true;
    }

    void add_member(const std::string &name) {
        if (member_count_ == members_.size()) members_.emplace_back();
        member_t &member = members_[member_count_++];
        member.name = current_name(name);
        member.value.clear();
        member.line = key_line_;
        member.has_value = false;
    }

    /** The present name of a field. Warns once of each former name. */
    std::string current_name(const std::string &name) {
        const record_field_t *end = family_->fields + family_->field_count;
        const record_field_t *found = std::find_if(family_->fields, end, [&name](const record_field_t &field) {
            return field.member == name && field.name != name;
        });
        if (found == end) return name;
        if (renamed_.insert(found).second) {
            problems_.push_back(
                {problem_t::kind_t::warning, key_line_, family_text(), name,
                 name + ": is called " + found->name + " now, and " + name + " goes with the next version"});
        }
        return found->name;
    }

    bool scalar(std::string_view text) {
        if (is_out_of_place()) return true;
        switch (place_) {
            case place_t::outside:
                key_line_ = line_;
                return wrong({}, {}, "an object with version and items");
            case place_t::document:
                return document_value(text);
            case place_t::items:
                return wrong(family_text(), {}, "an array of objects");
            case place_t::family:
                key_line_ = line_;
                return wrong(family_text(), {}, "an array of objects");
            case place_t::item:
                members_[member_count_ - 1].value = text;
                return true;
            case place_t::member: {
                member_t &member = members_[member_count_ - 1];
                if (member.has_value) member.value += ',';
                member.value += text;
                member.has_value = true;
                return true;
            }
        }
        return true;
    }

    bool document_value(std::string_view text) {
        if (key_ == "items") return wrong({}, key_, "an object of arrays");
        const std::string known = std::to_string(document_version);
        if (text == known) return true;
        version_error_ = {
            problem_t::kind_t::error, key_line_, {}, "version", "version " + quoted_word(text) + ": must be " + known};
        return true;
    }

    void take_item() {
        views_.clear();
        for (size_t i = 0; i < member_count_; ++i) {
            views_.push_back({members_[i].name, members_[i].value});
        }
        const record_verb_t &verb = *record_verb_of(*family_, FWX_NAT64_OP_ADD);
        if (reader_.read(*family_, verb, views_) == record_reader_t::result_t::record) {
            document_.add(*family_, reader_.record().bytes, item_line_);
            return;
        }
        for (const record_error_t &error : reader_.errors()) {
            key_line_ = line_of(error);
            refuse(family_text(), error.field, error.text);
        }
    }

    /** The line of the last member that the error concerns, or the line of the item. */
    uint32_t line_of(const record_error_t &error) const {
        for (size_t i = member_count_; i > 0; --i) {
            const member_t &member = members_[i - 1];
            const std::string name = quoted_word(member.name); /* as errors quote it */
            const bool is_its =
                error.field == name || (error.field.empty() && error.text.compare(0, name.size(), name) == 0);
            if (is_its) return member.line;
        }
        return item_line_;
    }

    /** The field with the name of the latest member, or null. */
    const record_field_t *member_field() const {
        const record_field_t *end = family_->fields + family_->field_count;
        const record_field_t *found = std::find_if(family_->fields, end, [this](const record_field_t &field) {
            return field.name == members_[member_count_ - 1].name;
        });
        return found == end ? nullptr : found;
    }

    bool is_several_numbers() const {
        const record_field_t *field = member_field();
        return field != nullptr && field->kind == record_kind_t::numbers;
    }

    std::string family_text() const { return label_of(*family_, notation_t::json); }

    void refuse(std::string command, std::string field, std::string reason) {
        problems_.push_back(
            {problem_t::kind_t::error, key_line_, std::move(command), std::move(field), std::move(reason)});
    }

    /** Reports a value of a wrong type. */
    bool wrong(const std::string &command, const std::string &field, const std::string &allowed) {
        refuse(command, field, field + (field.empty() ? "must be " : ": must be ") + allowed);
        return true;
    }
    bool skip_wrong(const std::string &command, const std::string &field, const std::string &allowed) {
        wrong(command, field, allowed);
        return skip();
    }
    /** Skips an array or object as the value of a member. The record reader then reports the placeholder as wrong. */
    bool skip_member() {
        members_[member_count_ - 1].value += "[...]";
        return skip();
    }
    /** True in an array or object that is skipped, and for the value of a key that was refused. */
    bool is_out_of_place() const {
        return skipped_ != 0 || (is_left_out_ && (place_ == place_t::document || place_ == place_t::items));
    }
    bool skip() {
        ++skipped_;
        return true;
    }
    bool unskip() {
        --skipped_;
        return true;
    }

    document_t &document_;
    problems_t &problems_;
    const uint32_t &line_; /* of what is parsed */
    uint32_t key_line_ = 0;
    uint32_t item_line_ = 0;
    place_t place_ = place_t::outside;
    uint32_t skipped_ = 0;     /* open arrays and objects that are skipped */
    bool is_left_out_ = false; /* the latest key was refused, so its value is ignored */
    std::string key_;          /* the latest key of the document itself */
    const record_family_t *family_ = nullptr;
    std::vector<member_t> members_; /* the first member_count_ are those of the item; the others are reused later */
    size_t member_count_ = 0;
    std::vector<record_member_t> views_;
    record_reader_t reader_;
    std::set<const record_field_t *> renamed_; /* fields whose former names were warned of */
    bool is_document_ = false;
    bool has_version_ = false;
    bool has_items_ = false;
    problem_t version_error_{};
};

}  // namespace

bool read_json(std::string_view text, document_t &document, problems_t &problems) {
    uint32_t line = 1;
    json_reader_t reader(document, problems, line);
    const counting_iterator_t begin(text.data(), &line);
    const counting_iterator_t end(text.data() + text.size(), &line);
    json_t::sax_parse(begin, end, &reader);
    return reader.end();
}
