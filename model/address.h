/* Addresses as the model compares and counts them. */
#ifndef MODEL_ADDRESS_H
#define MODEL_ADDRESS_H

#include <array>

#include "fwx_nat64/wire.h"

/** First byte most significant; an IPv4 address has zeros behind its four bytes. Ordered family first. */
struct address_t {
    bool is_ipv6;
    std::array<uint8_t, 16> bytes;

    friend bool operator==(const address_t &a, const address_t &b) {
        return a.is_ipv6 == b.is_ipv6 && a.bytes == b.bytes;
    }
    friend bool operator<(const address_t &a, const address_t &b) {
        return a.is_ipv6 != b.is_ipv6 ? b.is_ipv6 : a.bytes < b.bytes;
    }
};

/** From a record whose IPv4 address is in network order. */
address_t address_of(const fwx_nat64_addr_t &record);
/** From an IPv4 address in network order. */
address_t address_of_ipv4(uint32_t network_order);
bool is_unspecified(const address_t &address);
/** Addresses from `first` to `last`, both of one family and in order; UINT64_MAX when they are more. */
uint64_t addresses_between(const address_t &first, const address_t &last);

#endif
