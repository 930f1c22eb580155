/* IPv4 addresses embedded in IPv6 addresses as RFC 6052 defines it. All addresses are in network byte order. */
#ifndef RECORDS_EMBEDDING_H
#define RECORDS_EMBEDDING_H

#include <cstdint>

/** The prefix lengths, in bits, that RFC 6052 allows. */
constexpr uint8_t embedding_lengths[] = {32, 40, 48, 56, 64, 96};

constexpr bool is_embedding_length(uint8_t length) {
    for (const uint8_t each : embedding_lengths) {
        if (each == length) return true;
    }
    return false;
}

/**
 * Writes the IPv4 address behind the first `length` bits of `prefix`. Bits 64 to 71 and all bits behind the address are
 * zero.
 * @return false if `length` is not in embedding_lengths, or if a prefix of 96 bits has one of the bits 64 to 71 set.
 */
bool embed_ipv4(const uint8_t prefix[16], uint8_t length, const uint8_t ipv4[4], uint8_t ipv6[16]);

/**
 * Reads the IPv4 address that stands behind the first `length` bits.
 * @return false if `length` is not in embedding_lengths, or if a bit is set where embed_ipv4 writes zero.
 */
bool extract_ipv4(const uint8_t ipv6[16], uint8_t length, uint8_t ipv4[4]);

#endif
