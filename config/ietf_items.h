/* The items of a document that leaves of the standard form say, and what is wrong with them. */
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

/** Fields of an item with their texts. */
using ietf_members_t = std::vector<std::pair<std::string, std::string>>;

/** The field that an entry or item has besides what is said. */
ietf_members_t ietf_members_of(const ietf_node_t &node);

/** A leaf that is an item of its own, maybe together with others. */
struct ietf_said_t {
    size_t node;
    std::string path;
    std::string value; /* of the field; empty: the leaf is missing there */
};

/** An entry of a list that is an item. */
struct ietf_entry_t {
    size_t node; /* of the list */
    std::string path;
    ietf_members_t members;
    std::vector<ietf_said_t> items; /* that are said within it */
    bool is_out = false;            /* left out, or wrong */
};

std::string ietf_no_place_text(std::string_view value, std::string_view reason);

/** Where problems go, by their paths. */
struct ietf_faults_t {
    ietf_loss_t loss;
    problems_t &problems;

    void refuse(const std::string &path, const std::string &reason);
    /** What is an error unless something may be lost. */
    void lose(const std::string &path, const std::string &reason);
    /** A value of a node that has no place, and the entry around it if that means something else without it. */
    void lose(const ietf_node_t &node, const std::string &value, const std::string &path, ietf_entry_t *entry);
};

class ietf_items_t {
public:
    explicit ietf_items_t(ietf_faults_t &faults) : faults_(faults), nodes_(ietf_nodes(&count_)) {}

    /** Takes a leaf that is a field of its entry. */
    void take_field(const ietf_node_t &node, const std::string &value, const std::string &path, ietf_entry_t &entry);
    /** Takes a leaf that is an item, or says that it is missing; `entry` may be null. */
    void say(ietf_said_t said, ietf_entry_t *entry);
    /** Takes an entry all of whose leaves were taken. */
    void finish(ietf_entry_t entry);
    /** Makes the document of all that was taken, settled and checked. */
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
    std::set<std::string> rules_;                            /* of domain 1 */
    std::vector<ietf_entry_t> unnamed_;                      /* rules whose number is the next that is free */
    std::vector<place_t> places_;                            /* of items; one's line is its number here, from 1 */
    std::vector<record_member_t> views_;
    record_reader_t reader_;
    document_t document_;
};

#endif
