#include "model/address.h"

#include <cstring>

namespace {

uint64_t big_endian(const uint8_t *at, size_t width) {
    uint64_t value = 0;
    for (size_t i = 0; i < width; ++i) {
        value = value << 8 | at[i];
    }
    return value;
}

}  // namespace

address_t address_of(const fwx_nat64_addr_t &record) {
    address_t address{record.family != FWX_NAT64_FAMILY_IPV4, {}};
    std::memcpy(address.bytes.data(), record.addr, address.is_ipv6 ? sizeof(record.addr) : sizeof(uint32_t));
    return address;
}

address_t address_of_ipv4(uint32_t network_order) {
    address_t address{false, {}};
    std::memcpy(address.bytes.data(), &network_order, sizeof(network_order));
    return address;
}

bool is_unspecified(const address_t &address) {
    return address.bytes == std::array<uint8_t, 16>{};
}

uint64_t addresses_between(const address_t &first, const address_t &last) {
    /* The IPv4 bytes are the upper half of the first word. */
    const uint64_t high = big_endian(last.bytes.data(), 8) - big_endian(first.bytes.data(), 8);
    if (!first.is_ipv6) return (high >> 32) + 1;
    const uint64_t first_low = big_endian(first.bytes.data() + 8, 8);
    const uint64_t last_low = big_endian(last.bytes.data() + 8, 8);
    const uint64_t difference = last_low - first_low;
    const bool fits = high == (last_low < first_low ? 1U : 0U) && difference != UINT64_MAX;
    return fits ? difference + 1 : UINT64_MAX;
}
