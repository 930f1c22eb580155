/*
 * Parses, formats and compares the values of fields, by their kinds. Error messages quote the option and say which
 * values it takes.
 */
#include "records/field.h"

#include <netinet/in.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "records/misspelt.h"
#include "records/value.h"

namespace {

uint8_t *at(void *record, size_t offset) {
    return static_cast<uint8_t *>(record) + offset;
}
const uint8_t *at(const void *record, size_t offset) {
    return static_cast<const uint8_t *>(record) + offset;
}

std::string range_text(uint64_t min, uint64_t max) {
    return min == max ? std::to_string(min) : std::to_string(min) + " to " + std::to_string(max);
}

std::string number_form(const record_field_t &field) {
    std::string text = range_text(field.min, field.max);
    if (field.time_unit_ms == 1000) text += " seconds, or a time such as 2h4m";
    if (field.time_unit_ms == 1) text += " milliseconds, or a time such as 250ms or 5s";
    if (field.names == nullptr) return text;
    const char *separator = ", or ";
    for (const wire_value_name_t &each : *field.names) {
        text.append(separator).append(each.name);
        separator = ", ";
    }
    return text;
}

bool parse_field_number(const record_field_t &field, std::string_view text, uint64_t &out) {
    const wire_value_name_t *named = field.names == nullptr ? nullptr : field.names->find(text);
    if (named != nullptr) out = named->value;
    return named != nullptr ||
           (field.time_unit_ms != 0 ? parse_duration(text, field.time_unit_ms, out) : parse_number(text, out));
}

std::string read_number(const record_field_t &field, std::string_view text, uint8_t *out, size_t width) {
    uint64_t value = 0;
    const bool is_allowed = parse_field_number(field, text, value) && value >= field.min && value <= field.max;
    if (!is_allowed) return record_field_error(field.option, text, number_form(field));
    std::memcpy(out, &value, width); /* little-endian, as the wire */
    return {};
}

void append_digits(std::string &out, uint64_t value) {
    char digits[20];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

void append_number(const record_field_t &field, const uint8_t *from, size_t width, std::string &out) {
    uint64_t value = 0;
    std::memcpy(&value, from, width);
    const char *name = field.names == nullptr ? nullptr : field.names->name_of(value);
    if (name == nullptr) {
        append_digits(out, value);
    } else {
        out += name;
    }
}

/* Several numbers. */

constexpr size_t number_width = sizeof(uint16_t);

std::string count_text(const record_field_t &field) {
    return std::to_string(field.width / number_width) + " numbers";
}

std::string read_numbers(const record_field_t &field, std::string_view text, uint8_t *out) {
    const bool ends_in_number = !text.empty() && text.back() != ',';
    const auto commas = static_cast<size_t>(std::count(text.begin(), text.end(), ','));
    if (commas + (ends_in_number ? 1 : 0) != field.width / number_width) {
        return record_field_error(field.option, text, count_text(field) + " between commas");
    }
    for (size_t i = 0; i < field.width; i += number_width) {
        const std::string_view number = text.substr(0, text.find(','));
        std::string error = read_number(field, number, out + i, number_width);
        if (!error.empty()) return error;
        text.remove_prefix(std::min(number.size() + 1, text.size()));
    }
    return {};
}

void append_numbers(const record_field_t &field, const uint8_t *from, std::string &out) {
    for (size_t i = 0; i < field.width; i += number_width) {
        if (i != 0) out += ',';
        append_number(field, from + i, number_width, out);
    }
}

/* Addresses. */

std::string read_address(const record_field_t &field, std::string_view text, uint8_t *out) {
    fwx_nat64_addr_t address;
    const bool is_ipv4 = field.kind == record_kind_t::ipv4;
    if (!(is_ipv4 ? parse_ipv4(text, address) : parse_address(text, address))) {
        return record_field_error(
            field.option, text,
            is_ipv4 ? "an IPv4 address such as 192.0.2.1" : "an address such as 192.0.2.1 or 2001:db8::1");
    }
    std::memcpy(out, &address, sizeof address);
    return {};
}

/* Prefixes. */

struct prefix_form_t {
    int family;
    const char *name;
    const char *example;
};

prefix_form_t prefix_form(const record_field_t &field) {
    if (field.kind == record_kind_t::ipv4_prefix) return {AF_INET, "IPv4", "192.0.2.0/24"};
    return {AF_INET6, "IPv6", "2001:db8::/32"};
}

bool has_bits_behind(const uint8_t (&bytes)[sizeof(in6_addr)], uint64_t length) {
    const size_t first = length / 8;
    for (size_t i = first; i < sizeof bytes; ++i) {
        const uint32_t behind = i == first ? 0xffU >> length % 8 : 0xffU;
        if ((bytes[i] & behind) != 0) return true;
    }
    return false;
}

std::string read_prefix(const record_field_t &field, std::string_view text, void *record) {
    const prefix_form_t form = prefix_form(field);
    const size_t slash = text.find('/');
    uint8_t bytes[sizeof(in6_addr)] = {};
    uint64_t length = 0;
    const bool is_readable = slash != std::string_view::npos &&
                             parse_address_bytes(form.family, text.substr(0, slash), bytes) &&
                             parse_number(text.substr(slash + 1), length);
    if (!is_readable || length > field.max) {
        return record_field_error(field.option, text,
                                  std::string("an ") + form.name + " prefix of at most " + std::to_string(field.max) +
                                      " bits, such as " + form.example);
    }
    if (has_bits_behind(bytes, length)) {
        return record_field_error(field.option, text,
                                  "a prefix with no bits set behind its first " + std::to_string(length));
    }
    std::memcpy(at(record, field.offset), bytes, field.width); /* a message carries no more of the prefix */
    *at(record, field.length_offset) = static_cast<uint8_t>(length);
    return {};
}

void append_prefix(const record_field_t &field, const void *record, std::string &out) {
    uint8_t address[sizeof(in6_addr)] = {};
    std::memcpy(address, at(record, field.offset), field.width);
    char text[INET6_ADDRSTRLEN];
    out.append(text, write_address(prefix_form(field).family, address, text)) += '/';
    append_digits(out, *at(record, field.length_offset));
}

/* Bytes. */

std::string digits_text(const record_field_t &field) {
    return std::to_string(2 * field.width) + " hexadecimal digits";
}

std::string read_bytes(const record_field_t &field, std::string_view text, uint8_t *out) {
    if (parse_hex(text, out, field.width)) return {};
    return record_field_error(field.option, text, digits_text(field));
}

/* Order. */

int compare_numbers(const uint8_t *a, const uint8_t *b, size_t width) {
    uint64_t first = 0;
    uint64_t second = 0;
    std::memcpy(&first, a, width);
    std::memcpy(&second, b, width);
    return (first > second ? 1 : 0) - (first < second ? 1 : 0);
}

int compare_addresses(const uint8_t *a, const uint8_t *b) {
    fwx_nat64_addr_t first;
    fwx_nat64_addr_t second;
    std::memcpy(&first, a, sizeof first);
    std::memcpy(&second, b, sizeof second);
    if (first.family != second.family) return first.family < second.family ? -1 : 1;
    if (first.family != FWX_NAT64_FAMILY_IPV4) return std::memcmp(first.addr, second.addr, sizeof first.addr);
    return compare_numbers(first.addr, second.addr, sizeof(uint32_t));
}

std::string read_value(const record_field_t &field, std::string_view text, void *record) {
    uint8_t *out = at(record, field.offset);
    switch (field.kind) {
        case record_kind_t::number:
            return read_number(field, text, out, field.width);
        case record_kind_t::numbers:
            return read_numbers(field, text, out);
        case record_kind_t::address:
        case record_kind_t::ipv4:
            return read_address(field, text, out);
        case record_kind_t::ipv4_prefix:
        case record_kind_t::ipv6_prefix:
            return read_prefix(field, text, record);
        case record_kind_t::bytes:
            return read_bytes(field, text, out);
    }
    return {};
}

}  // namespace

std::string record_field_error(std::string_view option, std::string_view value, const std::string &allowed) {
    std::string text(option);
    return text.append(" ").append(quoted_word(value)).append(": must be ").append(allowed);
}

std::string record_field_read(const record_field_t &field, std::string_view text, void *record) {
    std::string error = read_value(field, text, record);
    if (field.valid_offset != record_nowhere) {
        const uint32_t given = 1;
        std::memcpy(at(record, field.valid_offset), &given, sizeof given);
    }
    return error;
}

bool record_field_is_given(const record_field_t &field, const void *record) {
    uint32_t given = 1;
    if (field.valid_offset != record_nowhere) std::memcpy(&given, at(record, field.valid_offset), sizeof given);
    return given != 0;
}

int record_field_compare(const record_field_t &field, const void *a, const void *b) {
    const uint8_t *first = at(a, field.offset);
    const uint8_t *second = at(b, field.offset);
    if (field.kind == record_kind_t::number) return compare_numbers(first, second, field.width);
    const bool is_address = field.kind == record_kind_t::address || field.kind == record_kind_t::ipv4;
    if (is_address) return compare_addresses(first, second);
    const int order = std::memcmp(first, second, field.width);
    if (order != 0 || field.length_offset == record_nowhere) return order;
    return compare_numbers(at(a, field.length_offset), at(b, field.length_offset), 1);
}

void record_field_append(const record_field_t &field, const void *record, std::string &out) {
    const uint8_t *from = at(record, field.offset);
    switch (field.kind) {
        case record_kind_t::number:
            return append_number(field, from, field.width, out);
        case record_kind_t::numbers:
            return append_numbers(field, from, out);
        case record_kind_t::address:
        case record_kind_t::ipv4: {
            fwx_nat64_addr_t address;
            std::memcpy(&address, from, sizeof address);
            out += address_text(address);
            return;
        }
        case record_kind_t::ipv4_prefix:
        case record_kind_t::ipv6_prefix:
            return append_prefix(field, record, out);
        case record_kind_t::bytes:
            out += hex_digits(from, field.width);
            return;
    }
}

std::string record_field_text(const record_field_t &field, const void *record) {
    std::string text;
    record_field_append(field, record, text);
    return text;
}

std::string record_field_form(const record_field_t &field) {
    switch (field.kind) {
        case record_kind_t::number:
            return number_form(field);
        case record_kind_t::numbers:
            return count_text(field) + " of " + range_text(field.min, field.max) + ", between commas";
        case record_kind_t::address:
            return "ADDRESS";
        case record_kind_t::ipv4:
            return "IPV4-ADDRESS";
        case record_kind_t::ipv4_prefix:
            return "IPV4-PREFIX/0.." + std::to_string(field.max);
        case record_kind_t::ipv6_prefix:
            return "IPV6-PREFIX/0.." + std::to_string(field.max);
        case record_kind_t::bytes:
            return digits_text(field);
    }
    return {};
}
