/*
 * The data trees of ietf-nat and ietf-softwire-br, and what of them a document has: one table, in the order of the
 * trees, that reading and writing share. Leaves that are state, or belong to another kind of NAT, stand in it as what
 * is around them.
 *
 * An item of a document is an entry of a list (`entry`), whose leaves are its fields (`field`), or a leaf alone
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
    word,     /* one of a few */
    identity, /* likewise, maybe with its module's name in front */
    text,
    ipv4_prefix,
    ipv6_prefix,
    prefix,  /* of either family */
    subtree, /* whatever is in it */
};

enum class ietf_place_t : uint8_t {
    inner,    /* what is in it may have one */
    nowhere,  /* a document has no place for it */
    constant, /* has one value alone in a document, which is not said there */
    entry,
    field,
    item,
};

/** How the value of a leaf becomes that of fields. */
enum class ietf_form_t : uint8_t {
    same,      /* or the other word of its pair in `words` */
    host,      /* the prefix of an address, which is the field's */
    span,      /* a prefix, which is that of the first address; the last one is `end_addr` */
    rule_name, /* `domain-1-rule-2`, whose rule is the field's; the domain is `domain_id` */
};

struct ietf_node_t {
    uint8_t depth;
    std::string_view name;
    ietf_kind_t kind;
    std::string_view words; /* of a list the leaf that is its key; of others the values, between blanks; a value with
                               `=` behind it stands for the one behind that in a document */
    uint64_t min = 0;
    uint64_t max = 0;
    ietf_place_t place = ietf_place_t::inner;
    family_kind_t family = family_kind_t::other; /* of an entry or item */
    std::string_view with{};      /* a field that the entry or item has, `type=udp`, besides what is said */
    std::string_view field{};     /* of the item around it, or of its own */
    std::string_view value{};     /* of a constant */
    std::string_view otherwise{}; /* the value where the leaf is missing; empty: its field is not said */
    std::string_view reason{};    /* of what has no place, or no other value than the constant's */
    ietf_form_t form = ietf_form_t::same;
    bool is_required = false;
    bool takes_entry = false;  /* without it the entry around it would mean something else */
    bool is_single = false;    /* a list that has one entry */
    bool is_essential = false; /* another value than the constant's makes it no configuration for this service */
    bool is_fragment = false;  /* stands beside the timeout of fragments, and only there */

    /* In front of its callers, because clang 14 cannot evaluate a template that is defined behind them. */
    template <typename type_t>
    constexpr ietf_node_t with_value(type_t ietf_node_t::*member, type_t its_value) const {
        ietf_node_t node = *this;
        node.*member = its_value;
        return node;
    }
    constexpr ietf_node_t at(ietf_place_t where) const { return with_value(&ietf_node_t::place, where); }

    /* A row of the table says with these what is unusual about its node. */
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

/** All nodes, each in front of what is in it. */
const ietf_node_t *ietf_nodes(size_t *count);
/** Index of the first node behind those that are in a node. */
size_t ietf_end_of(size_t node);
/** The field of `with` and its text; empty: there is none. */
struct ietf_fixed_t {
    std::string_view field;
    std::string_view text;
};
ietf_fixed_t ietf_fixed_of(const ietf_node_t &node);

/** The part of `words` that stands for a value; an empty name: there is none. */
struct ietf_word_t {
    std::string_view name;  /* in the standard form */
    std::string_view value; /* in a document */
};
ietf_word_t ietf_word_of(const ietf_node_t &node, std::string_view name);
ietf_word_t ietf_word_for(const ietf_node_t &node, std::string_view value);

#endif
