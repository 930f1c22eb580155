/*
 * Collects the values of leaves while the standard form is parsed, and makes the items of a document from them. The
 * leaves of a list entry can be the fields of one item. A leaf elsewhere can be a whole item, and several such leaves
 * can mean the same item, for example the two timeouts of transitory TCP connections.
 */
#ifndef CONFIG_IETF_ITEMS_H
#define CONFIG_IETF_ITEMS_H

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "config/document.h"
#include "config/ietf.h"
#include "config/ietf_nodes.h"
#include "records/reader.h"

/** Names and texts of the fields of an item. */
using ietf_members_t = std::vector<std::pair<std::string, std::string>>;

/** The fixed field that the table gives the entries or the item of a node (`with`), or nothing. */
ietf_members_t ietf_members_of(const ietf_node_t &node);

/** A leaf that is an item, alone or together with other leaves. */
struct ietf_said_t {
    size_t node;
    std::string path;
    std::string value; /* of the field; empty: the leaf is missing at `path` */
};

/** An entry of a list that is an item. */
struct ietf_entry_t {
    size_t node; /* of the list */
    std::string path;
    ietf_members_t members;
    std::vector<ietf_said_t> items; /* leaves in the entry that are items */
    bool is_out = false;            /* not converted, because of an error or a loss */
};

std::string ietf_no_place_text(std::string_view value, std::string_view reason);

/** Reports problems by the paths of their nodes. */
struct ietf_faults_t {
    ietf_loss_t loss;
    problems_t &problems;

    void refuse(const std::string &path, const std::string &reason);
    /** Reports a loss: an error or a warning, depending on `loss`. */
    void lose(const std::string &path, const std::string &reason);
    /** Reports that a document cannot express the value of a node. If the entry around the node would mean something
     * else without the value, the entry is dropped too. `entry` may be null. */
    void lose(const ietf_node_t &node, const std::string &value, const std::string &path, ietf_entry_t *entry);
};

class ietf_items_t {
public:
    explicit ietf_items_t(ietf_faults_t &faults) : faults_(faults), nodes_(ietf_nodes(&count_)) {}

    /** Takes the value of a leaf that is a field of its entry. */
    void take_field(const ietf_node_t &node, const std::string &value, const std::string &path, ietf_entry_t &entry);
    /** Takes a leaf that is an item, or notes that it is missing. `entry` is the entry around it, or null. */
    void say(ietf_said_t said, ietf_entry_t *entry);
    /** Takes an entry after all its leaves. */
    void finish(ietf_entry_t entry);
    /** @return the document, settled and checked. To be called once, last. */
    document_t end();

private:
    struct place_t {
        std::string path;
        size_t node; /* of the entry or item */
    };

    void take_rule_name(const ietf_node_t &node, const std::string &value, const std::string &path,
                        ietf_entry_t &entry);
    void add_shared();
    void add_unnamed();
    void add(size_t node, const std::string &path, const ietf_members_t &members);
    void take(const problem_t &problem);
    std::string path_of(const place_t &place, size_t leaf) const;
    size_t leaf_of(size_t entry, std::string_view field) const;

    ietf_faults_t &faults_;
    size_t count_ = 0;
    const ietf_node_t *nodes_;
    std::map<std::string, std::vector<ietf_said_t>> shared_; /* by family and key */
    std::set<std::string> rules_;                            /* numbers in use in domain 1 */
    std::vector<ietf_entry_t> unnamed_;                      /* rules that get the next free number of domain 1 */
    std::vector<place_t> places_;                            /* of items; an item's line is its index here plus 1 */
    std::vector<record_member_t> views_;
    record_reader_t reader_;
    document_t document_;
};

#endif
