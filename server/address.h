/* Addresses of both families in one type, which the server compares and counts. */
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

#endif
