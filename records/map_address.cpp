/*
 * The arithmetic of basic mapping rules. An address is handled as a string of bits, bit 0 being the most significant
 * one. `shape_t` has the parameters of a rule once they are known to be consistent; everything else is computed from
 * it.
 */
#include "records/map_address.h"

#include <algorithm>
#include <cstring>

#include "records/field.h"

namespace {

constexpr uint32_t ipv4_len = 32;
constexpr uint32_t port_len = 16;
constexpr uint32_t ea_len_max = 48;
constexpr uint32_t psid_offset_max = 15;
constexpr uint32_t identifier_ipv4 = 80; /* the interface identifier starts at bit 64 with 16 zeros */
constexpr uint32_t identifier_psid = 112;

/** A number with `count` ones, at most 63. */
uint64_t ones(uint32_t count) {
    return (UINT64_C(1) << count) - 1;
}

uint64_t bits_at(const uint8_t *bytes, uint32_t at, uint32_t count) {
    uint64_t value = 0;
    for (uint32_t bit = at; bit < at + count; ++bit) {
        value = value << 1 | (bytes[bit / 8] >> (7 - bit % 8) & 1U);
    }
    return value;
}

void put_bits(uint8_t *bytes, uint32_t at, uint32_t count, uint64_t value) {
    for (uint32_t i = 0; i < count; ++i) {
        const uint32_t bit = at + i;
        const auto mask = static_cast<uint8_t>(0x80U >> bit % 8);
        const bool is_set = (value >> (count - 1 - i) & 1) != 0;
        bytes[bit / 8] = static_cast<uint8_t>(is_set ? bytes[bit / 8] | mask : bytes[bit / 8] & ~mask);
    }
}

/** The checked parameters of a rule. */
struct shape_t {
    uint32_t ea_len;
    uint32_t suffix_len; /* bits of an IPv4 address behind the rule's prefix */
    uint32_t psid_offset;
    uint32_t psid_len;
    uint32_t psid; /* if the EA bits hold none */

    uint32_t ea_suffix_len() const { return std::min(ea_len, suffix_len); }
    uint32_t ea_psid_len() const { return ea_len - ea_suffix_len(); }
};

map_fault_t above(const char *name, uint32_t value, uint32_t max, const std::string &why) {
    return {name, value, (max == 0 ? "0" : "0 to " + std::to_string(max)) + why};
}

map_fault_t read_shape(const fwx_nat64_mapt_bmr_t &rule, shape_t &out) {
    const uint16_t given_len = rule.rule_params[2];
    out = {rule.rule_params[0], ipv4_len - rule.v4_prefix_len, rule.rule_params[1], given_len, rule.rule_params[3]};
    const uint32_t ea_max = std::min(ea_len_max, out.suffix_len + port_len);
    if (out.ea_len > ea_max) {
        return above("ea_len", out.ea_len, ea_max,
                     " with an IPv4 prefix of " + std::to_string(rule.v4_prefix_len) + " bits");
    }
    if (out.psid_offset > psid_offset_max) return above("psid_offset", out.psid_offset, psid_offset_max, "");
    /* A rule may have an explicit PSID if its EA bits hold exactly the suffix, a whole IPv4 address (RFC 7598). */
    if (out.ea_len != out.suffix_len) {
        out.psid_len = out.ea_psid_len();
        const bool agrees = given_len == 0 || given_len == out.psid_len;
        if (!agrees) {
            return {"psid_len", given_len, std::to_string(out.psid_len) + ", which the EA bits leave for it"};
        }
    }
    const uint32_t len_max = port_len - out.psid_offset;
    if (out.psid_len > len_max) {
        return above("psid_len", out.psid_len, len_max, " with a PSID offset of " + std::to_string(out.psid_offset));
    }
    const bool is_embedded = out.ea_psid_len() > 0;
    const auto psid_max = static_cast<uint32_t>(is_embedded ? 0 : ones(out.psid_len));
    if (out.psid > psid_max) {
        return above("psid", out.psid, psid_max, is_embedded ? ", as the EA bits contain the PSID" : "");
    }
    return {};
}

/** The same, with the fault as an error text. */
std::string read_text(const fwx_nat64_mapt_bmr_t &rule, shape_t &out) {
    const map_fault_t fault = read_shape(rule, out);
    return fault.field == nullptr ? "" : record_field_error(fault.field, std::to_string(fault.value), fault.allowed);
}

std::string read_psid(const shape_t &shape, std::optional<uint16_t> port, uint16_t &psid) {
    psid = static_cast<uint16_t>(shape.psid);
    const bool is_embedded = shape.ea_psid_len() > 0;
    if (shape.psid_len == 0 || (!port && !is_embedded)) return {};
    if (!port) return "a port is needed, as " + std::to_string(1U << shape.psid_len) + " customers share the address";
    const uint32_t first = shape.psid_offset == 0 ? 0 : 1U << (port_len - shape.psid_offset);
    if (*port < first) {
        return record_field_error("port", std::to_string(*port),
                                  std::to_string(first) + " to 65535, as the rule gives no other ports to customers");
    }
    psid = static_cast<uint16_t>(*port >> (port_len - shape.psid_offset - shape.psid_len) & ones(shape.psid_len));
    const bool is_rules = is_embedded || psid == shape.psid;
    return is_rules ? "" : record_field_error("port", std::to_string(*port), "of PSID " + std::to_string(shape.psid));
}

/** Writes the MAP address. EA bits that reach into the interface identifier overwrite the first bits of it. */
void complete(const fwx_nat64_mapt_bmr_t &rule, const shape_t &shape, map_address_t &out) {
    out.psid_offset = static_cast<uint8_t>(shape.psid_offset);
    out.psid_len = static_cast<uint8_t>(shape.psid_len);
    put_bits(out.ipv6, identifier_ipv4, ipv4_len, out.ipv4);
    put_bits(out.ipv6, identifier_psid, port_len, out.psid);
    put_bits(out.ipv6, 0, rule.v6_prefix_len, bits_at(rule.v6_prefix, 0, rule.v6_prefix_len));
    put_bits(out.ipv6, rule.v6_prefix_len, shape.ea_len, out.ea_bits);
}

/** The rule's prefix with zeros behind it. */
uint32_t base_of(const fwx_nat64_mapt_bmr_t &rule, const shape_t &shape) {
    return static_cast<uint32_t>(bits_at(rule.v4_prefix, 0, rule.v4_prefix_len) << shape.suffix_len);
}

}  // namespace

map_fault_t map_rule_fault(const fwx_nat64_mapt_bmr_t &rule) {
    shape_t shape{};
    return read_shape(rule, shape);
}

std::string map_from_ipv4(const fwx_nat64_mapt_bmr_t &rule, uint32_t ipv4, std::optional<uint16_t> port,
                          map_address_t &out) {
    out = {};
    shape_t shape{};
    std::string error = read_text(rule, shape);
    if (error.empty()) error = read_psid(shape, port, out.psid);
    if (!error.empty()) return error;
    const uint64_t suffix = ipv4 & ones(shape.suffix_len);
    out.ea_bits = suffix >> (shape.suffix_len - shape.ea_suffix_len()) << shape.ea_psid_len() |
                  (out.psid & ones(shape.ea_psid_len()));
    out.ipv4 = static_cast<uint32_t>(base_of(rule, shape) | suffix);
    out.ipv4_len = ipv4_len;
    complete(rule, shape, out);
    return {};
}

std::string map_from_ipv6(const fwx_nat64_mapt_bmr_t &rule, const uint8_t ipv6[16], map_address_t &out) {
    out = {};
    shape_t shape{};
    std::string error = read_text(rule, shape);
    if (!error.empty()) return error;
    out.ea_bits = bits_at(ipv6, rule.v6_prefix_len, shape.ea_len);
    const uint32_t rest_len = shape.suffix_len - shape.ea_suffix_len(); /* bits of the suffix not in the EA bits */
    const uint64_t suffix = out.ea_bits >> shape.ea_psid_len() << rest_len;
    const bool is_embedded = shape.ea_psid_len() > 0;
    out.psid = static_cast<uint16_t>(is_embedded ? out.ea_bits & ones(shape.ea_psid_len()) : shape.psid);
    out.ipv4 = static_cast<uint32_t>(base_of(rule, shape) | suffix);
    out.ipv4_len = static_cast<uint8_t>(ipv4_len - rest_len);
    complete(rule, shape, out);
    map_address_t one = out;
    one.ipv4 |= static_cast<uint32_t>(bits_at(ipv6, identifier_ipv4 + out.ipv4_len, rest_len));
    one.ipv4_len = ipv4_len;
    complete(rule, shape, one);
    const bool is_map_address = std::memcmp(one.ipv6, ipv6, sizeof one.ipv6) == 0;
    if (is_map_address) out = one;
    return {};
}

std::vector<port_range_t> map_port_set(const map_address_t &address) {
    std::vector<port_range_t> ranges;
    if (address.psid_len == 0) return ranges;
    const uint32_t low_len = port_len - address.psid_offset - address.psid_len;
    /* Ports whose bits in front of the PSID are all zero are the well-known ports. They belong to no PSID. */
    for (uint32_t high = address.psid_offset == 0 ? 0 : 1; high < 1U << address.psid_offset; ++high) {
        const auto first = static_cast<uint16_t>((high << address.psid_len | address.psid) << low_len);
        ranges.push_back({first, static_cast<uint16_t>(first + ones(low_len))});
    }
    return ranges;
}
