/* Addresses and ports that a basic mapping rule maps, as RFC 7597 and RFC 7599 have it. A MAP address holds the whole
 * IPv4 address also where a customer has an IPv4 prefix (erratum 5225): translation has nowhere else to read it. */
#ifndef RECORDS_MAP_ADDRESS_H
#define RECORDS_MAP_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "fwx_nat64/mapt.h"

struct map_address_t {
    uint64_t ea_bits;
    uint32_t ipv4;    /* host order; zeros behind ipv4_len */
    uint8_t ipv4_len; /* 32 for an address, less for a prefix */
    uint8_t psid_offset;
    uint8_t psid_len; /* 0: the address is not shared */
    uint16_t psid;
    uint8_t ipv6[16]; /* the MAP address */
};

/** What makes the parameters of a rule disagree. */
struct map_fault_t {
    const char *field = nullptr; /* the parameter, `psid_len`; null: they agree */
    uint32_t value = 0;
    std::string allowed;
};
map_fault_t map_rule_fault(const fwx_nat64_mapt_bmr_t &rule);

/*
 * Both answer with an empty text, or with what is wrong with the rule's parameters or with the port: `psid_len 12: must
 * be ...`. The address must begin with the rule's prefix.
 */

/** @param port needed where only it tells who shares the address. */
std::string map_from_ipv4(const fwx_nat64_mapt_bmr_t &rule, uint32_t ipv4, std::optional<uint16_t> port,
                          map_address_t &out);
/** All addresses of a customer give the same; but a MAP address in an IPv4 prefix tells its IPv4 address, any other
 * address the prefix. */
std::string map_from_ipv6(const fwx_nat64_mapt_bmr_t &rule, const uint8_t ipv6[16], map_address_t &out);

struct port_range_t {
    uint16_t first;
    uint16_t last;
};
/** Ports of the PSID, in order; none of an address that is not shared, which has all. */
std::vector<port_range_t> map_port_set(const map_address_t &address);

#endif
