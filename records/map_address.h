/*
 * Computes which IPv6 address, IPv4 address and ports belong together under a basic mapping rule (RFC 7597, RFC 7599).
 * A MAP address holds the whole IPv4 address even if the customer has an IPv4 prefix (erratum 5225), because the
 * translator cannot find the rest of the address anywhere else.
 */
#ifndef RECORDS_MAP_ADDRESS_H
#define RECORDS_MAP_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fwx_nat64/mapt.h"

struct map_address_t {
    uint64_t ea_bits;
    uint32_t ipv4;    /* host order; bits behind ipv4_len are zero */
    uint8_t ipv4_len; /* 32 for an address, less for a prefix */
    uint8_t psid_offset;
    uint8_t psid_len; /* 0: the address is not shared */
    uint16_t psid;
    uint8_t ipv6[16]; /* the MAP address */
};

/** The first parameter of a rule that contradicts the others. */
struct map_fault_t {
    const char *field = nullptr; /* name of the parameter, such as `psid_len`; null: no contradiction */
    uint32_t value = 0;
    std::string allowed;
};
map_fault_t map_rule_fault(const fwx_nat64_mapt_bmr_t &rule);

/*
 * Both functions return an empty text, or an error about the rule's parameters or the port: `psid_len 12: must be ...`.
 * Requires: the address begins with the rule's prefix.
 */

/** @param port needed if several customers share the address, because then only the port identifies the customer. */
std::string map_from_ipv4(const fwx_nat64_mapt_bmr_t &rule, uint32_t ipv4, std::optional<uint16_t> port,
                          map_address_t &out);
/** All IPv6 addresses of a customer give the same result, with one exception. If the customer has an IPv4 prefix, a MAP
 * address gives the IPv4 address in it, and any other IPv6 address gives the prefix. */
std::string map_from_ipv6(const fwx_nat64_mapt_bmr_t &rule, const uint8_t ipv6[16], map_address_t &out);

struct port_range_t {
    uint16_t first;
    uint16_t last;
};
/** The port ranges of the PSID, ascending. Empty for an address that is not shared, because it has all ports. */
std::vector<port_range_t> map_port_set(const map_address_t &address);

#endif
