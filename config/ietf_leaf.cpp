/* The checks of leaf values by the kinds of their nodes, and the texts of the errors. */
#include "config/ietf_leaf.h"

#include <algorithm>

#include "config/ietf_values.h"
#include "records/value.h"

std::string ietf_form_text(const ietf_node_t &node) {
    switch (node.kind) {
        case ietf_kind_t::object:
            return "an object";
        case ietf_kind_t::list:
            return "an array of objects";
        case ietf_kind_t::number:
            return "a number from " + std::to_string(node.min) + " to " + std::to_string(node.max);
        case ietf_kind_t::boolean:
            return "true or false";
        case ietf_kind_t::word:
        case ietf_kind_t::identity: {
            std::string text = "one of";
            for (std::string_view rest = node.words; !rest.empty();) {
                const std::string_view token = rest.substr(0, rest.find(' '));
                rest.remove_prefix(std::min(token.size() + 1, rest.size()));
                text.append(" ").append(token.substr(0, token.find('=')));
            }
            return text;
        }
        case ietf_kind_t::ipv4_prefix:
            return "an IPv4 prefix such as 192.0.2.0/24";
        case ietf_kind_t::ipv6_prefix:
            return "an IPv6 prefix such as 2001:db8::/32";
        case ietf_kind_t::prefix:
            return "a prefix such as 192.0.2.1/32 or 2001:db8::/32";
        case ietf_kind_t::text:
        case ietf_kind_t::subtree:
            break;
    }
    return "a text";
}

bool ietf_read_leaf(const ietf_node_t &node, const json_value_t &value, std::string &text) {
    text = value.text;
    const bool is_text = value.kind == json_kind_t::text;
    switch (node.kind) {
        case ietf_kind_t::number: {
            uint64_t number = 0;
            return value.kind == json_kind_t::number && parse_number(text, number) && number >= node.min &&
                   number <= node.max;
        }
        case ietf_kind_t::boolean:
            return value.kind == json_kind_t::boolean;
        case ietf_kind_t::identity: {
            constexpr std::string_view module = "ietf-nat:";
            if (text.compare(0, module.size(), module) == 0) text.erase(0, module.size());
            [[fallthrough]];
        }
        case ietf_kind_t::word:
            return is_text && !ietf_word_of(node, text).name.empty();
        case ietf_kind_t::ipv4_prefix:
        case ietf_kind_t::ipv6_prefix:
        case ietf_kind_t::prefix: {
            ip_prefix_t prefix;
            const bool is_prefix = is_text && parse_prefix(text, prefix);
            const bool is_ipv4 = is_prefix && prefix.bits() == 32;
            if (is_prefix) text = prefix.text();
            return is_prefix &&
                   (node.kind == ietf_kind_t::prefix || is_ipv4 == (node.kind == ietf_kind_t::ipv4_prefix));
        }
        case ietf_kind_t::text:
            return is_text;
        case ietf_kind_t::object:
        case ietf_kind_t::list:
        case ietf_kind_t::subtree:
            break;
    }
    return false;
}
