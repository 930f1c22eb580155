/* The kinds of fields: how the bytes of a field are to be read. */
#ifndef WIRE_KINDS_H
#define WIRE_KINDS_H

#include <cstdint>

#include "fwx_nat64/wire.h"

/**
 * X-macro of every kind: X(kind, its name on the protocol page, the page's explanation of the bytes, "" if the name
 * says enough). Numbers are little-endian unless the kind says otherwise. `kind` is also the dissector's key.
 */
#define WIRE_KINDS(X)                                                                                       \
    X(number, "number", "")                                                                                 \
    X(hex, "hexadecimal number", "")                                                                        \
    X(operation, "operation", "WIRE_OPERATIONS")                                                            \
    X(flag, "flag", "a number, 0 or not")                                                                   \
    X(code, "result code", "")                                                                              \
    X(bytes, "bytes", "")                                                                                   \
    X(ipv4, "IPv4 address", "network order")                                                                \
    X(ipv4_swapped, "IPv4 prefix, last byte first", "four bytes")                                           \
    X(ipv6_swapped, "IPv6 prefix, last byte first", "the first eight bytes of the prefix")                  \
    X(address, "address record",                                                                            \
      "WIRE_FAMILY_SIZE bytes family (WIRE_FAMILY_IPV4 IPv4, else IPv6), WIRE_ADDRESS_SIZE bytes address; " \
      "IPv4 in network order in the first four")                                                            \
    X(prefix, "prefix record",                                                                              \
      "WIRE_PREFIX_SIZE bytes of an IPv6 prefix, WIRE_PREFIX_RESERVED_SIZE reserved bytes, "                \
      "WIRE_PREFIX_LENGTH_SIZE byte prefix length in bits")

#define WIRE_KIND(kind, name, bytes) kind,
enum class wire_kind_t : uint8_t { WIRE_KINDS(WIRE_KIND) };
#undef WIRE_KIND

#endif
