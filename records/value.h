/*
 * Values as people write them. A parser answers false for a text that is none of its values; what it wrote into `out`
 * by then means nothing.
 */
#ifndef RECORDS_VALUE_H
#define RECORDS_VALUE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fwx_nat64/config.h"

/** Reads a decimal or 0x-hexadecimal number. */
bool parse_number(std::string_view text, uint64_t &out);

/**
 * Reads a time as a number of units of `unit_ms` milliseconds: a plain number of them, or `1d2h3m4s5ms` with any of its
 * parts, in that order. A time that is not a whole number of units is refused.
 */
bool parse_duration(std::string_view text, uint32_t unit_ms, uint64_t &out);

/** Reads an address of either family; IPv4 in host order. */
bool parse_address(std::string_view text, fwx_nat64_addr_t &out);
/** Reads an IPv4 address. */
bool parse_ipv4(std::string_view text, fwx_nat64_addr_t &out);
/** Reads the bytes of an address of AF_INET or AF_INET6, first byte most significant. */
bool parse_address_bytes(int family, std::string_view text, void *out);

/** Writes the text of an address of AF_INET or AF_INET6, first byte most significant, as inet_ntop does; returns where
 * it ends. Requires: room for INET6_ADDRSTRLEN characters. */
char *write_address(int family, const void *bytes, char *out);
/** The same as a text of its own. */
std::string address_text(int family, const void *bytes);
/** Text of an address record; IPv4 in host order. */
std::string address_text(const fwx_nat64_addr_t &address);

/** Splits `host:80` or `[2001:db8::1]:80`; `host` is then without brackets. Of hosts, only IPv6 addresses have them. */
bool parse_host_port(std::string_view text, std::string_view &host, uint16_t &port);
/** Reads `192.0.2.1:80` or `[2001:db8::1]:80`; IPv4 in host order. */
bool parse_address_port(std::string_view text, fwx_nat64_addr_t &address, uint16_t &port);

/** Text of a prefix of that many bits, of which the first `size` bytes stand at `bytes`: `2001:db8::/32`. */
std::string prefix_text(int family, const void *bytes, size_t size, uint32_t length);

/** Whether an address begins with the first `length` bits of `prefix`. */
bool has_prefix(const uint8_t *address, const uint8_t *prefix, uint32_t length);

/** Reads exactly `size` bytes, two hexadecimal digits each. */
bool parse_hex(std::string_view text, void *out, size_t size);
/** Two lower-case digits a byte. */
std::string hex_digits(const void *bytes, size_t size);

#endif
