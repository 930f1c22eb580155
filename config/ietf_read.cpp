/*
 * Parses the standard form (config/ietf.h). Walks the JSON tree along the table of nodes, reports unknown and wrong
 * nodes by their paths, and hands the values to ietf_items_t, which makes the items.
 */
#include <algorithm>
#include <set>

#include "config/ietf.h"
#include "config/ietf_items.h"
#include "config/ietf_leaf.h"
#include "config/json_tree.h"
#include "records/misspelt.h"

namespace {

class ietf_reader_t {
public:
    ietf_reader_t(ietf_loss_t loss, problems_t &problems) : faults_{loss, problems}, items_(faults_) {
        nodes_ = ietf_nodes(&count_);
    }

    document_t read(const json_value_t &root) {
        if (root.kind == json_kind_t::object) {
            read_members(count_, root, {}, nullptr);
        } else {
            refuse({}, "must be an object with ietf-nat:nat");
        }
        const bool has_nat = std::any_of(root.members.begin(), root.members.end(),
                                         [this](const json_value_t &member) { return member.name == nodes_->name; });
        if (has_nat && instances_ == 0) refuse("/ietf-nat:nat/instances", "has no instance");
        if (root.kind == json_kind_t::object && root.members.empty()) {
            refuse({}, "neither ietf-nat:nat nor ietf-softwire-br:br-instances: there is nothing to read");
        }
        return items_.end();
    }

private:
    /** Calls `use` with each child of a node. `count_` stands for the root. */
    template <typename use_t>
    void for_children(size_t node, use_t use) const {
        const bool is_root = node == count_;
        const size_t end = is_root ? count_ : ietf_end_of(node);
        for (size_t child = is_root ? 0 : node + 1; child < end; child = ietf_end_of(child)) {
            use(child);
        }
    }

    void read_members(size_t node, const json_value_t &value, const std::string &path, ietf_entry_t *entry) {
        std::set<size_t> given;
        for (const json_value_t &member : value.members) {
            size_t child = count_;
            std::vector<std::string_view> known;
            for_children(node, [&](size_t each) {
                if (nodes_[each].name == member.name) child = each;
                known.push_back(nodes_[each].name);
            });
            if (child == count_) {
                refuse(path + "/" + quoted_word(member.name), wrong_word_text(member.name, known, "not in this place"));
                if (entry != nullptr) entry->is_out = true;
                continue;
            }
            given.insert(child);
            read_node(child, member, path + "/" + member.name, entry);
        }
        for_children(node, [&](size_t child) {
            if (given.count(child) != 0) return;
            const std::string child_path = path + "/" + std::string(nodes_[child].name);
            if (nodes_[child].is_required) wrong(child_path, "is required", entry);
            if (nodes_[child].place == ietf_place_t::item) items_.say({child, child_path, {}}, entry);
        });
        judge_fragments(node, given, path);
    }

    void read_node(size_t node, const json_value_t &value, const std::string &path, ietf_entry_t *entry) {
        const ietf_node_t &known = nodes_[node];
        if (known.kind == ietf_kind_t::subtree) return lose_leaves(value, path, known.reason);
        if (known.kind == ietf_kind_t::list) return read_list(node, value, path, entry);
        if (known.kind == ietf_kind_t::object) {
            if (value.kind == json_kind_t::object) return read_members(node, value, path, entry);
            return wrong(path, "must be " + ietf_form_text(known), entry);
        }
        std::string text;
        if (ietf_read_leaf(known, value, text)) return take_leaf(node, text, path, entry);
        const bool is_scalar = value.kind != json_kind_t::object && value.kind != json_kind_t::array;
        wrong(path, (is_scalar ? quoted_word(value.text) + ": must be " : "must be ") + ietf_form_text(known), entry);
    }

    void read_list(size_t node, const json_value_t &value, const std::string &path, ietf_entry_t *around) {
        const ietf_node_t &known = nodes_[node];
        const bool is_list = value.kind == json_kind_t::array &&
                             std::all_of(value.members.begin(), value.members.end(),
                                         [](const json_value_t &member) { return member.kind == json_kind_t::object; });
        if (!is_list) return wrong(path, "must be " + ietf_form_text(known), around);
        if (known.is_single && value.members.size() > 1) {
            refuse(path, "has " + std::to_string(value.members.size()) + " entries: a document is for one");
        }
        if (known.is_single && known.depth == 2) instances_ += value.members.size();
        std::set<std::string> keys;
        for (size_t i = 0; i < value.members.size(); ++i) {
            const json_value_t &member = value.members[i];
            const std::string key = key_of(node, member);
            const std::string entry_path =
                path + "[" +
                (key.empty() ? std::to_string(i + 1) : std::string(known.words) + "='" + quoted_word(key) + "'") + "]";
            const bool is_item = known.place == ietf_place_t::entry;
            ietf_entry_t entry{node, entry_path, ietf_members_of(known), {}, false};
            if (key.empty()) wrong(entry_path, std::string(known.words) + " is required", &entry);
            if (!key.empty() && !keys.insert(key).second) wrong(entry_path, "is there twice", &entry);
            read_members(node, member, entry_path, is_item ? &entry : around);
            if (is_item) items_.finish(std::move(entry));
        }
    }

    /** The key of a list entry in its canonical form, or as it was written if it is not allowed; empty: no key. */
    std::string key_of(size_t list, const json_value_t &entry) const {
        std::string key;
        for (const json_value_t &member : entry.members) {
            if (member.name != nodes_[list].words) continue;
            for_children(list, [&](size_t child) {
                if (nodes_[child].name != member.name) return;
                if (!ietf_read_leaf(nodes_[child], member, key)) key = quoted_word(member.text);
            });
        }
        return key;
    }

    void take_leaf(size_t node, const std::string &text, const std::string &path, ietf_entry_t *entry) {
        const ietf_node_t &known = nodes_[node];
        const bool is_other = known.place == ietf_place_t::constant && text != known.value;
        if (is_other && known.is_essential) return refuse(path, quoted_word(text) + ": " + std::string(known.reason));
        if (is_other || known.place == ietf_place_t::nowhere) return faults_.lose(known, text, path, entry);
        const bool is_field = known.place == ietf_place_t::field && entry != nullptr; /* fields are always in entries */
        if (is_field) return items_.take_field(known, text, path, *entry);
        if (known.place == ietf_place_t::item) {
            const ietf_word_t word = ietf_word_of(known, text);
            items_.say({node, path, word.name.empty() ? text : std::string(word.value)}, entry);
        }
    }

    /** The timeout of fragments needs a fragment-behavior in its policy, and the other way round. */
    void judge_fragments(size_t node, const std::set<size_t> &given, const std::string &path) {
        for (const size_t child : given) {
            if (nodes_[child].name == "fragment-min-timeout") fragment_timeout_ = path + "/fragment-min-timeout";
        }
        const bool is_policy = node < count_ && nodes_[node].name == "policy";
        if (!is_policy) return;
        const bool has_behaviour =
            std::any_of(given.begin(), given.end(), [this](size_t child) { return nodes_[child].is_fragment; });
        if (!fragment_timeout_.empty() && !has_behaviour) {
            refuse(fragment_timeout_, "needs fragment-behavior out-of-order in its policy");
        }
        if (fragment_timeout_.empty() && has_behaviour) {
            faults_.lose(path + "/fragment-behavior",
                         "has no place in a document: without fragment-min-timeout the server "
                         "chooses");
        }
    }

    void lose_leaves(const json_value_t &value, const std::string &path, std::string_view reason) {
        const bool is_inner = value.kind == json_kind_t::array || value.kind == json_kind_t::object;
        if (!is_inner) return faults_.lose(path, ietf_no_place_text(value.text, reason));
        for (size_t i = 0; i < value.members.size(); ++i) {
            const json_value_t &member = value.members[i];
            const std::string step =
                value.kind == json_kind_t::array ? "[" + std::to_string(i + 1) + "]" : "/" + quoted_word(member.name);
            lose_leaves(member, path + step, reason);
        }
    }
    void wrong(const std::string &path, const std::string &reason, ietf_entry_t *entry) {
        if (entry != nullptr) entry->is_out = true;
        refuse(path, reason);
    }
    void refuse(const std::string &path, const std::string &reason) { faults_.refuse(path, reason); }

    ietf_faults_t faults_;
    ietf_items_t items_;
    const ietf_node_t *nodes_;
    size_t count_ = 0;
    size_t instances_ = 0;
    std::string fragment_timeout_; /* path of the timeout of fragments; empty: there is none */
};

}  // namespace

document_t read_ietf(std::string_view text, ietf_loss_t loss, problems_t &problems) {
    json_value_t root;
    if (text.size() > ietf_max_bytes) {
        problems.push_back(
            {problem_t::kind_t::error, 0, {}, {}, "longer than " + std::to_string(ietf_max_bytes >> 20) + " MiB"});
        return {};
    }
    if (!read_json_tree(text, root, problems)) return {};
    return ietf_reader_t(loss, problems).read(root);
}
