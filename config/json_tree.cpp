/* Builds the tree from the events of a SAX parser, and stops at the first error. */
#include "config/json_tree.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "records/misspelt.h"

namespace {

class tree_builder_t : public nlohmann::json_sax<nlohmann::json> {
public:
    tree_builder_t(json_value_t &root, problems_t &problems) : root_(root), problems_(problems) {}

    bool null() override { return scalar(json_kind_t::null, "null"); }
    bool boolean(bool value) override { return scalar(json_kind_t::boolean, value ? "true" : "false"); }
    bool number_integer(nlohmann::json::number_integer_t value) override {
        return scalar(json_kind_t::number, std::to_string(value));
    }
    bool number_unsigned(nlohmann::json::number_unsigned_t value) override {
        return scalar(json_kind_t::number, std::to_string(value));
    }
    bool number_float(nlohmann::json::number_float_t, const std::string &text) override {
        return scalar(json_kind_t::number, text);
    }
    bool string(std::string &value) override { return scalar(json_kind_t::text, std::move(value)); }
    bool binary(nlohmann::json::binary_t &) override { return false; }
    bool key(std::string &name) override {
        key_ = std::move(name);
        return true;
    }
    bool start_object(size_t) override { return open(json_kind_t::object); }
    bool start_array(size_t) override { return open(json_kind_t::array); }
    bool end_array() override {
        open_.pop_back();
        return true;
    }
    bool end_object() override {
        std::vector<std::string_view> names;
        for (const json_value_t &member : open_.back()->members) {
            names.push_back(member.name);
        }
        std::sort(names.begin(), names.end());
        const auto twice = std::adjacent_find(names.begin(), names.end());
        const bool is_good = twice == names.end();
        if (!is_good) refuse(path() + "/" + quoted_word(*twice), "is given twice");
        open_.pop_back();
        return is_good;
    }
    bool parse_error(size_t, const std::string &, const nlohmann::detail::exception &error) override {
        const std::string_view text = error.what();
        refuse({}, "not JSON: " + std::string(text.substr(std::min(text.find("] ") + 2, text.size()))));
        return false;
    }

private:
    bool open(json_kind_t kind) {
        if (open_.size() == json_max_depth) {
            refuse(path(), "deeper than " + std::to_string(json_max_depth) + " arrays and objects");
            return false;
        }
        json_value_t *value = add(kind);
        if (value != nullptr) open_.push_back(value);
        return value != nullptr;
    }
    bool scalar(json_kind_t kind, std::string text) {
        json_value_t *value = add(kind);
        if (value != nullptr) value->text = std::move(text);
        return value != nullptr;
    }

    /* Adds a value to the innermost open array or object. The pointers in `open_` stay valid, because an open value is
     * the last member of its parent, and its parent gets no further member before it is closed. */
    json_value_t *add(json_kind_t kind) {
        if (++count_ > json_max_values) {
            refuse({}, "more than " + std::to_string(json_max_values) + " values");
            return nullptr;
        }
        json_value_t *value = open_.empty() ? &root_ : &open_.back()->members.emplace_back();
        value->kind = kind;
        value->name = std::move(key_);
        key_.clear();
        return value;
    }

    std::string path() const {
        std::string text;
        for (size_t i = 1; i < open_.size(); ++i) {
            const json_value_t &parent = *open_[i - 1];
            text += parent.kind == json_kind_t::array ? "[" + std::to_string(parent.members.size()) + "]"
                                                      : "/" + quoted_word(open_[i]->name);
        }
        return text;
    }
    void refuse(std::string path, std::string reason) {
        problems_.push_back({problem_t::kind_t::error, 0, std::move(path), {}, std::move(reason)});
    }

    json_value_t &root_;
    problems_t &problems_;
    std::vector<json_value_t *> open_;
    std::string key_;
    size_t count_ = 0;
};

}  // namespace

bool read_json_tree(std::string_view text, json_value_t &root, problems_t &problems) {
    tree_builder_t builder(root, problems);
    return nlohmann::json::sax_parse(text, &builder);
}
