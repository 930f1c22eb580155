#include "records/embedding.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr uint32_t ipv4_size = 4;
constexpr uint32_t ipv6_size = 16;
constexpr uint32_t reserved = 8; /* byte with the bits 64 to 71; the IPv4 address skips it */

/** Index in the IPv6 address of byte `i` of the IPv4 address. */
uint32_t place_of(uint8_t length, uint32_t i) {
    const uint32_t place = length / 8U + i;
    return length <= 8 * reserved && place >= reserved ? place + 1 : place;
}

}  // namespace

bool embed_ipv4(const uint8_t prefix[16], uint8_t length, const uint8_t ipv4[4], uint8_t ipv6[16]) {
    if (!is_embedding_length(length)) return false;
    std::memset(ipv6, 0, ipv6_size);
    std::memcpy(ipv6, prefix, length / 8U);
    for (uint32_t i = 0; i < ipv4_size; ++i) {
        ipv6[place_of(length, i)] = ipv4[i];
    }
    return ipv6[reserved] == 0;
}

bool extract_ipv4(const uint8_t ipv6[16], uint8_t length, uint8_t ipv4[4]) {
    if (!is_embedding_length(length)) return false;
    for (uint32_t i = 0; i < ipv4_size; ++i) {
        ipv4[i] = ipv6[place_of(length, i)];
    }
    uint8_t again[ipv6_size];
    return embed_ipv4(ipv6, length, ipv4, again) && std::equal(again, again + ipv6_size, ipv6);
}
