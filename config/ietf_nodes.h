/*
 * The table of the data trees of ietf-nat and ietf-softwire-br, and of what each node is in a document. Reading and
 * writing share it. Nodes are in depth-first order. Where a whole branch is state, or belongs to another kind of NAT,
 * only its root is in the table, as a `subtree`.
 *
 * An item of a document is an entry of a list (`entry`), with leaves as its fields (`field`), or a single leaf
 * (`item`).
 */
#ifndef CONFIG_IETF_NODES_H
#define CONFIG_IETF_NODES_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "records/family.h"

enum class ietf_kind_t : uint8_t {
    object,
    list,   /* array of objects */
    number, /* whole */
    boolean,
    word,     /* one of `words` */
    identity, /* likewise, also with the name of its module in front */
    text,
    ipv4_prefix,
    ipv6_prefix,
    prefix,  /* of either family */
    subtree, /* a branch that is not looked into */
};

enum class ietf_place_t : uint8_t {
    inner,    /* only contains other nodes */
    nowhere,  /* a document cannot express it */
    constant, /* only one value is possible, and documents do not mention it */
    entry,
    field,
    item,
};

/** How the value of a leaf is converted to fields. */
enum class ietf_form_t : uint8_t {
    same,      /* unchanged, or as `words` translates it */
    host,      /* from a prefix of full length to its address */
    span,      /* from a prefix to its first address; the field `end` gets the last one */
    rule_name, /* from `domain-1-rule-2` to the rule; the field `domain` gets the domain */
};

struct ietf_node_t {
    uint8_t depth;
    std::string_view name;
    ietf_kind_t kind;
    std::string_view words; /* of a list: the leaf that is the key; else: the allowed values, separated by blanks.
                               `eim=x` means that a document has `x` for the leaf's value `eim` */
    uint64_t min = 0;
    uint64_t max = 0;
    ietf_place_t place = ietf_place_t::inner;
    family_kind_t family = family_kind_t::other; /* of an entry or item */
    std::string_view with{};                     /* a fixed field of the entry or item, such as `type=udp` */
    std::string_view field{};                    /* of the entry around the leaf, or of the item that the leaf is */
    std::string_view value{};                    /* of a constant */
    std::string_view otherwise{};                /* the default of a missing leaf; empty: the field is left out */
    std::string_view reason{};                   /* why a document cannot express it, or only the constant's value */
    ietf_form_t form = ietf_form_t::same;
    bool is_required = false;
    bool takes_entry = false;  /* a loss of the leaf drops its entry, which would mean something else without it */
    bool is_single = false;    /* a list with exactly one entry */
    bool is_essential = false; /* with another value than the constant's, the text is not for this service */
    bool is_fragment = false;  /* needs, and is needed by, the timeout of fragments in the same policy */

    /* Defined before its callers, because clang 14 cannot evaluate a template that is defined after them. */
    template <typename type_t>
    constexpr ietf_node_t with_value(type_t ietf_node_t::*member, type_t its_value) const {
        ietf_node_t node = *this;
        node.*member = its_value;
        return node;
    }
    constexpr ietf_node_t at(ietf_place_t where) const { return with_value(&ietf_node_t::place, where); }

    /* Modifiers with which a row of the table departs from the defaults. */
    constexpr ietf_node_t range(uint64_t least, uint64_t greatest) const {
        return with_value(&ietf_node_t::min, least).with_value(&ietf_node_t::max, greatest);
    }
    constexpr ietf_node_t as_entry(family_kind_t item_family, std::string_view fixed = {}) const {
        return at(ietf_place_t::entry)
            .with_value(&ietf_node_t::family, item_family)
            .with_value(&ietf_node_t::with, fixed);
    }
    constexpr ietf_node_t as_field(std::string_view its_field, ietf_form_t as = ietf_form_t::same) const {
        return at(ietf_place_t::field).with_value(&ietf_node_t::field, its_field).with_value(&ietf_node_t::form, as);
    }
    constexpr ietf_node_t as_item(family_kind_t item_family, std::string_view fixed, std::string_view its_field) const {
        return as_entry(item_family, fixed).as_field(its_field).at(ietf_place_t::item);
    }
    constexpr ietf_node_t as_constant(std::string_view only, std::string_view why) const {
        return at(ietf_place_t::constant).with_value(&ietf_node_t::value, only).with_value(&ietf_node_t::reason, why);
    }
    constexpr ietf_node_t without(std::string_view value_then) const {
        return with_value(&ietf_node_t::otherwise, value_then);
    }
    constexpr ietf_node_t required() const { return with_value(&ietf_node_t::is_required, true); }
    constexpr ietf_node_t takes() const { return with_value(&ietf_node_t::takes_entry, true); }
    constexpr ietf_node_t single() const { return with_value(&ietf_node_t::is_single, true); }
    constexpr ietf_node_t essential() const { return with_value(&ietf_node_t::is_essential, true); }
    constexpr ietf_node_t beside_fragments() const { return with_value(&ietf_node_t::is_fragment, true); }
};

/** All nodes, in depth-first order. */
const ietf_node_t *ietf_nodes(size_t *count);
/** Index of the first node behind the descendants of a node. */
size_t ietf_end_of(size_t node);
/** The field of `with` and its text, both empty if there is none. */
struct ietf_fixed_t {
    std::string_view field;
    std::string_view text;
};
ietf_fixed_t ietf_fixed_of(const ietf_node_t &node);

/** A value in both forms. An empty name means that `words` has no such value. */
struct ietf_word_t {
    std::string_view name;  /* in the standard form */
    std::string_view value; /* in a document */
};
ietf_word_t ietf_word_of(const ietf_node_t &node, std::string_view name);
ietf_word_t ietf_word_for(const ietf_node_t &node, std::string_view value);

#endif
