/* Addresses of both families in one type, which the server compares and counts, and IPv4 addresses as numbers. */
#ifndef SERVER_ADDRESS_H
#define SERVER_ADDRESS_H

#include <array>
#include <compare>
#include <cstring>

#include "fwx_nat64/wire.h"

/** Big-endian; an IPv4 address is padded with zeros behind its four bytes. IPv4 sorts before IPv6. */
struct address_t {
    bool is_ipv6;
    std::array<uint8_t, 16> bytes;

    auto operator<=>(const address_t &other) const = default;
    bool is_unspecified() const { return bytes == std::array<uint8_t, 16>{}; }
};

/** The address in a record, whose IPv4 addresses are in network order. */
inline address_t address_of(const fwx_nat64_addr_t &record) {
    address_t address{record.family != FWX_NAT64_FAMILY_IPV4, {}};
    std::memcpy(address.bytes.data(), record.addr, address.is_ipv6 ? sizeof(record.addr) : sizeof(uint32_t));
    return address;
}

/** True if `wanted` is unspecified, or is the address in the record. */
inline bool is_wanted(const address_t &wanted, const fwx_nat64_addr_t &record) {
    return wanted.is_unspecified() || wanted == address_of(record);
}

/** Returns an IPv4 address in host order. */
inline uint32_t ipv4_of(const uint8_t *network_order) {
    return uint32_t{network_order[0]} << 24 | uint32_t{network_order[1]} << 16 | uint32_t{network_order[2]} << 8 |
           network_order[3];
}

#endif
