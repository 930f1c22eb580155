/* IPv4 addresses within IPv6 addresses, as RFC 6052 lays them out. First bytes are most significant. */
#ifndef RECORDS_EMBEDDING_H
#define RECORDS_EMBEDDING_H

#include <cstdint>

/** Bits of the prefixes behind which there is a place for an IPv4 address. */
constexpr uint8_t embedding_lengths[] = {32, 40, 48, 56, 64, 96};

constexpr bool is_embedding_length(uint8_t length) {
    for (const uint8_t each : embedding_lengths) {
        if (each == length) return true;
    }
    return false;
}

/**
 * Puts an IPv4 address behind the first `length` bits of `prefix`, with zeros in bits 64 to 71 and behind it.
 * @return false for any other length, and for a prefix with one of the bits 64 to 71 set.
 */
bool embed_ipv4(const uint8_t prefix[16], uint8_t length, const uint8_t ipv4[4], uint8_t ipv6[16]);

/**
 * Takes the IPv4 address out that stands behind the first `length` bits.
 * @return false for any other length, and for an address with a bit set where embed_ipv4 leaves zeros.
 */
bool extract_ipv4(const uint8_t ipv6[16], uint8_t length, uint8_t ipv4[4]);

#endif
