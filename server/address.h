/* Addresses as the server compares and counts them. */
#ifndef SERVER_ADDRESS_H
#define SERVER_ADDRESS_H

#include <array>
#include <compare>
#include <cstring>

#include "fwx_nat64/wire.h"

/** First byte most significant; an IPv4 address has zeros behind its four bytes. Ordered family first. */
struct address_t {
    bool is_ipv6;
    std::array<uint8_t, 16> bytes;

    auto operator<=>(const address_t &other) const = default;
    bool is_unspecified() const { return bytes == std::array<uint8_t, 16>{}; }
};

/** From a record whose IPv4 address is in network order. */
inline address_t address_of(const fwx_nat64_addr_t &record) {
    address_t address{record.family != FWX_NAT64_FAMILY_IPV4, {}};
    std::memcpy(address.bytes.data(), record.addr, address.is_ipv6 ? sizeof(record.addr) : sizeof(uint32_t));
    return address;
}

#endif
