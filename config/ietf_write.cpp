/*
 * Writes the standard form (config/ietf.h). Walks the table of nodes and looks up each item or field in the document.
 * To find losses, it parses each item again from the values that it wrote, and compares the result with the item. Items
 * that no node took are losses too.
 */
#include <cstring>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "config/ietf.h"
#include "config/ietf_nodes.h"
#include "config/ietf_pools.h"
#include "config/ietf_values.h"
#include "config/pools.h"
#include "records/families.h"
#include "records/reader.h"
#include "records/value.h"

namespace {

using json_t = nlohmann::ordered_json; /* keeps the order of the table */

std::string text_of(const config_item_t &item, std::string_view field) {
    return record_field_text(record_field_of(*item.family, field), item.record);
}

class ietf_writer_t {
public:
    ietf_writer_t(const document_t &document, ietf_loss_t loss, problems_t &problems)
        : document_(document), loss_(loss), problems_(problems), is_placed_(document.size()) {
        nodes_ = ietf_nodes(&count_);
    }

    std::string write() {
        json_t root = json_t::object();
        for (size_t node = 0; node < count_; node = ietf_end_of(node)) {
            add_node(node, nullptr, root);
        }
        for (size_t i = 0; i < document_.size(); ++i) {
            const config_item_t item = document_.item(i);
            if (is_placed_[i]) continue;
            const std::string key = key_text(*item.family, item.record, notation_t::lines);
            lose(item, {}, (key.empty() ? "" : key + ": ") + reason_of(item));
        }
        return root.dump(2) + "\n";
    }

private:
    /** The part of an item that its leaves express so far. */
    struct said_t {
        config_item_t item;
        std::vector<std::pair<std::string, std::string>> members; /* names and texts of fields */
        std::vector<size_t> items;                                /* other items that only its leaves express so far */
        std::string why;                                          /* reason to leave the item out; empty: none */

        void say(std::string_view field, std::string_view text) { members.emplace_back(field, text); }
    };

    static std::string reason_of(const config_item_t &item) {
        return std::string("has no place: ") + item.family->unmodelled;
    }

    /** Adds a node to the object around it. False if nothing was added, or only constants. */
    bool add_node(size_t node, said_t *said, json_t &around) {
        const ietf_node_t &known = nodes_[node];
        if (known.place == ietf_place_t::entry) return add_entries(node, around);
        if (known.kind == ietf_kind_t::list || known.kind == ietf_kind_t::object) return add_inner(node, said, around);
        switch (known.place) {
            case ietf_place_t::constant:
                if (known.is_fragment &&
                    find_item(family_kind_t::timeout, {"type", "fragment-min"}) == document_.size())
                    return false;
                around[std::string(known.name)] = json_of(known, std::string(known.value));
                return false;
            case ietf_place_t::field:
                return said != nullptr && add_field(known, *said, around); /* fields are always in entries */
            case ietf_place_t::item:
                return add_item(known, said, around);
            case ietf_place_t::inner:
            case ietf_place_t::nowhere:
            case ietf_place_t::entry:
                break;
        }
        return false;
    }

    bool add_inner(size_t node, said_t *said, json_t &around) {
        const ietf_node_t &known = nodes_[node];
        json_t inner = json_t::object();
        bool has_more = false;
        for (size_t child = node + 1; child < ietf_end_of(node); child = ietf_end_of(child)) {
            has_more = add_node(child, said, inner) || has_more;
        }
        const bool is_always = known.depth <= 2 && known.is_single; /* the instance is written even if it is empty */
        const bool is_said = has_more || is_always || inner.contains("instance") || inner.contains("instances");
        if (!is_said) return false;
        json_t &added = around[std::string(known.name)];
        if (known.kind == ietf_kind_t::list) {
            added.push_back(std::move(inner));
        } else {
            added = std::move(inner);
        }
        return has_more;
    }

    bool add_entries(size_t node, json_t &around) {
        const ietf_node_t &known = nodes_[node];
        const record_family_t &family = record_family_of(known.family);
        json_t list = json_t::array();
        std::set<std::string> keys;
        for (size_t i = document_.begin_of(family); i < document_.end_of(family); ++i) {
            said_t said{document_.item(i), {}, {}, {}};
            say_with(known, said);
            is_placed_[i] = true;
            json_t entry = json_t::object();
            for (size_t child = node + 1; child < ietf_end_of(node); child = ietf_end_of(child)) {
                add_node(child, &said, entry);
            }
            const bool is_again = said.why.empty() && !keys.insert(entry[std::string(known.words)].dump()).second;
            if (is_again)
                said.why = key_text(family, said.item.record, notation_t::lines) + ": " + reason_of(said.item);
            if (said.why.empty()) {
                list.push_back(std::move(entry));
            } else {
                lose(said.item, {}, said.why);
                for (const size_t item : said.items) {
                    is_placed_[item] = false;
                }
            }
            /* With `refused`, an item that is left out is compared too, to report all its losses at once. */
            const bool is_said = said.why.empty() || loss_ == ietf_loss_t::refused;
            if (is_said) compare(said);
        }
        const bool has_any = !list.empty();
        if (has_any) around[std::string(known.name)] = std::move(list);
        return has_any;
    }

    bool add_field(const ietf_node_t &known, said_t &said, json_t &entry) {
        const std::string text = text_of(said.item, known.field);
        std::string value = text;
        switch (known.form) {
            case ietf_form_t::same: {
                if (!is_in_range(known, text)) leave_out(said, known, text + ": has no place: " + range_text(known));
                if (known.words.empty()) break;
                const ietf_word_t word = ietf_word_for(known, text);
                if (word.name.empty()) leave_out(said, known, text + ": " + reason_of(said.item));
                value = word.name;
                break;
            }
            case ietf_form_t::host:
                value += text.find(':') == std::string::npos ? "/32" : "/128";
                break;
            case ietf_form_t::span: {
                const pool_span_t span = pool_span_of(said.item);
                const std::vector<ipv4_piece_t> pieces = prefixes_of(span.first, span.last);
                if (pieces.size() != 1) leave_out(said, known, text + ": " + reason_of(said.item));
                value = pieces.front().text();
                said.say("end", text_of(said.item, "end"));
                break;
            }
            case ietf_form_t::rule_name: {
                const std::string domain = text_of(said.item, "domain");
                said.say("domain", domain);
                value = rule_name_text(domain, text);
                break;
            }
        }
        said.say(known.field, text);
        entry[std::string(known.name)] = json_of(known, value);
        return true;
    }

    bool add_item(const ietf_node_t &known, said_t *entry, json_t &around) {
        const size_t index = find_item(known.family, ietf_fixed_of(known));
        if (index == document_.size()) return false;
        said_t said{document_.item(index), {}, {}, {}};
        say_with(known, said);
        const std::string text = text_of(said.item, known.field);
        const ietf_word_t word = ietf_word_for(known, text);
        const bool is_sayable = is_in_range(known, text) && (known.words.empty() || !word.name.empty());
        if (!is_sayable) return false;
        said.say(known.field, text);
        const bool is_first = !is_placed_[index]; /* several leaves can express the same item */
        if (is_first) compare(said);
        if (is_first && entry != nullptr) entry->items.push_back(index);
        is_placed_[index] = true;
        around[std::string(known.name)] = json_of(known, known.words.empty() ? text : std::string(word.name));
        return true;
    }

    /** Index of the item with that key, or the number of items if there is none. */
    size_t find_item(family_kind_t kind, const ietf_fixed_t &key) const {
        const record_family_t &family = record_family_of(kind);
        for (size_t i = document_.begin_of(family); i < document_.end_of(family); ++i) {
            if (text_of(document_.item(i), key.field) == key.text) return i;
        }
        return document_.size();
    }

    static bool is_in_range(const ietf_node_t &known, const std::string &text) {
        uint64_t number = 0;
        return known.kind != ietf_kind_t::number ||
               (parse_number(text, number) && number >= known.min && number <= known.max);
    }
    static std::string range_text(const ietf_node_t &known) {
        return std::string(known.name) + " is " + std::to_string(known.min) + " to " + std::to_string(known.max);
    }
    static void leave_out(said_t &said, const ietf_node_t &known, const std::string &why) {
        const std::string label(label_of(record_field_of(*said.item.family, known.field), notation_t::lines));
        if (said.why.empty()) said.why = label + " " + why;
    }

    static void say_with(const ietf_node_t &known, said_t &said) {
        const ietf_fixed_t fixed = ietf_fixed_of(known);
        if (!fixed.field.empty()) said.say(fixed.field, fixed.text);
    }

    /** Parses an item from the values that were written, and reports each field that differs as a loss. */
    void compare(const said_t &said) {
        const config_item_t &item = said.item;
        std::vector<record_member_t> views;
        for (const auto &[name, value] : said.members) {
            views.push_back({name, value});
        }
        record_reader_t reader;
        const bool is_read = reader.read(*item.family, *record_verb_of(*item.family, FWX_NAT64_OP_ADD), views) ==
                             record_reader_t::result_t::record;
        for (size_t i = 0; is_read && i < item.family->field_count; ++i) {
            const record_field_t &field = item.family->fields[i];
            const std::string text = record_field_text(field, item.record);
            if (text == record_field_text(field, reader.record().bytes)) continue;
            const std::string label(label_of(field, notation_t::lines));
            lose(item, label,
                 std::string(label).append(" ").append(text).append(
                     ": has no place: the standard form does not say it"));
        }
    }

    static json_t json_of(const ietf_node_t &known, const std::string &text) {
        if (known.kind == ietf_kind_t::boolean) return text == "true";
        if (known.kind == ietf_kind_t::identity) return "ietf-nat:" + text;
        if (known.kind == ietf_kind_t::number) return json_t::parse(text);
        return text;
    }

    void lose(const config_item_t &item, std::string field, std::string reason) {
        const bool is_error = loss_ == ietf_loss_t::refused;
        problems_.push_back({is_error ? problem_t::kind_t::error : problem_t::kind_t::warning, item.line,
                             label_of(*item.family, notation_t::lines), std::move(field), std::move(reason)});
    }

    const document_t &document_;
    ietf_loss_t loss_;
    problems_t &problems_;
    const ietf_node_t *nodes_;
    size_t count_ = 0;
    std::vector<bool> is_placed_; /* by item */
};

}  // namespace

std::string write_ietf(const document_t &document, ietf_loss_t loss, problems_t &problems) {
    const bool is_cut = loss == ietf_loss_t::warned;
    problems_t found;
    const document_t fitting = is_cut ? cut_pools(document, found) : document;
    std::string text = ietf_writer_t(fitting, loss, found).write();
    sort_by_line(found);
    std::set<std::string> texts; /* pools that were split from one can give the same problem */
    for (problem_t &problem : found) {
        if (texts.insert(problem.text()).second) problems.push_back(std::move(problem));
    }
    return text;
}
