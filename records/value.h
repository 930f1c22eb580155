/*
 * Parses and formats numbers, times, addresses and prefixes. A parser returns false if the text is not such a value.
 * Its `out` is then undefined.
 */
#ifndef RECORDS_VALUE_H
#define RECORDS_VALUE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fwx_nat64/config.h"

/** Parses a decimal number, or a hexadecimal one with `0x`. */
bool parse_number(std::string_view text, uint64_t &out);

/**
 * Parses a time into a number of units of `unit_ms` milliseconds. The text is either this number, or `1d2h3m4s5ms` with
 * any of its parts in that order. False if the time is not a whole number of units.
 */
bool parse_duration(std::string_view text, uint32_t unit_ms, uint64_t &out);

/** Parses an address of either family; IPv4 in host order. */
bool parse_address(std::string_view text, fwx_nat64_addr_t &out);
/** Parses an IPv4 address, in host order. */
bool parse_ipv4(std::string_view text, fwx_nat64_addr_t &out);
/** Parses an address of AF_INET or AF_INET6; `out` is in network byte order. */
bool parse_address_bytes(int family, std::string_view text, void *out);

/**
 * Formats an address of AF_INET or AF_INET6, in network byte order, as inet_ntop does, but without a terminator.
 * Requires: room for INET6_ADDRSTRLEN characters.
 * @return the end of the text.
 */
char *write_address(int family, const void *bytes, char *out);
/** The same as a string. */
std::string address_text(int family, const void *bytes);
/** Formats an address record; IPv4 in host order. */
std::string address_text(const fwx_nat64_addr_t &address);

/** Splits `host:80` or `[2001:db8::1]:80`. `host` gets no brackets. Only an IPv6 address may have them, and must. */
bool parse_host_port(std::string_view text, std::string_view &host, uint16_t &port);
/** Parses `192.0.2.1:80` or `[2001:db8::1]:80`; IPv4 in host order. */
bool parse_address_port(std::string_view text, fwx_nat64_addr_t &address, uint16_t &port);

/** Formats a prefix of `length` bits, such as `2001:db8::/32`. `bytes` has its first `size` bytes; others are zero. */
std::string prefix_text(int family, const void *bytes, size_t size, uint32_t length);

/** True if an address begins with the first `length` bits of `prefix`. */
bool has_prefix(const uint8_t *address, const uint8_t *prefix, uint32_t length);

/** Parses exactly `size` bytes of two hexadecimal digits each. */
bool parse_hex(std::string_view text, void *out, size_t size);
/** Formats each byte as two lower-case hexadecimal digits. */
std::string hex_digits(const void *bytes, size_t size);

#endif
