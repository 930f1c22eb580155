/* Reads the fields of a message as values: numbers, booleans, and texts that need no escapes in JSON. Both decode.cpp
 * and the faster entry_lines.cpp format them. */
#ifndef TOOLS_NATCTL_FIELD_VALUE_H
#define TOOLS_NATCTL_FIELD_VALUE_H

#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "records/family.h"
#include "records/value.h"
#include "wire/messages.h"

/** Suffix of the key that holds the name of a value: `protocol` and `protocol_name`. */
constexpr std::string_view name_suffix = "_name";

/** Maximum length of a text written in place, which is an address. */
constexpr size_t field_text_room = INET6_ADDRSTRLEN;

/** Writes `0x1f`; returns its end. */
inline char *write_hex(uint64_t value, char *out) {
    *out++ = '0';
    *out++ = 'x';
    return std::to_chars(out, out + 2 * sizeof value, value, 16).ptr;
}

/** Writes the address whose first `size` bytes are at `at`, last byte first. Returns its end. */
inline char *write_swapped_address(int family, const uint8_t *at, size_t size, char *out) {
    uint8_t bytes[sizeof(in6_addr)] = {};
    std::reverse_copy(at, at + size, bytes);
    return write_address(family, bytes, out);
}

inline char *write_record_address(const uint8_t *at, char *out) {
    fwx_nat64_addr_t address;
    std::memcpy(&address, at, sizeof address);
    return write_address(address.family == FWX_NAT64_FAMILY_IPV4 ? AF_INET : AF_INET6, address.addr, out);
}

/**
 * Passes the field's value to `sink`, as a uint64_t, a bool or a std::string_view. Most texts are passed to
 * `sink.text(write)` instead: `write(char *out)` writes the text into field_text_room characters and returns its end.
 */
template <typename sink_t>
auto with_value(const wire_field_t &field, const uint8_t *at, const sink_t &sink) {
    switch (field.kind) {
        case wire_kind_t::number:
        case wire_kind_t::code:
            break;
        case wire_kind_t::flag:
            return sink(wire_read(at, field.width) != 0);
        case wire_kind_t::hex:
            return sink.text([&](char *out) { return write_hex(wire_read(at, field.width), out); });
        case wire_kind_t::operation:
            if (const char *name = record_operation_name(wire_read(at, field.width))) {
                return sink(std::string_view(name));
            }
            break;
        case wire_kind_t::bytes:
            return sink(std::string_view(hex_digits(at, field.width)));
        case wire_kind_t::ipv4:
            return sink.text([&](char *out) { return write_address(AF_INET, at, out); });
        case wire_kind_t::ipv4_swapped:
            return sink.text([&](char *out) { return write_swapped_address(AF_INET, at, field.width, out); });
        case wire_kind_t::ipv6_swapped:
            return sink.text([&](char *out) { return write_swapped_address(AF_INET6, at, field.width, out); });
        case wire_kind_t::address:
            return sink.text([&](char *out) { return write_record_address(at, out); });
        case wire_kind_t::prefix:
            return sink(std::string_view(prefix_text(AF_INET6, at, sizeof(fwx_nat64_prefix_t::prefix),
                                                     at[offsetof(fwx_nat64_prefix_t, prefix_len)])));
    }
    return sink(wire_read(at, field.width));
}

#endif
