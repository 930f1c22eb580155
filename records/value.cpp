/* Parsers and formatters of values. Addresses have formatters of their own because listings need millions of them. */
#include "records/value.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>

namespace {

constexpr uint32_t family_ipv6 = 1;
constexpr size_t word_count = sizeof(in6_addr) / sizeof(uint16_t);

/* Listings and journals format addresses by the million, so they are formatted here and not by the C library, which is
 * slower. Each part is written as four characters without a branch, and the next part overwrites the surplus ones. */

struct part_t {
    char text[3];
    uint8_t size;
};

constexpr std::array<part_t, 256> make_decimal_parts() {
    std::array<part_t, 256> parts{};
    for (uint32_t value = 0; value < parts.size(); ++value) {
        part_t &part = parts[value];
        if (value >= 100) part.text[part.size++] = static_cast<char>('0' + value / 100);
        if (value >= 10) part.text[part.size++] = static_cast<char>('0' + value / 10 % 10);
        part.text[part.size++] = static_cast<char>('0' + value % 10);
    }
    return parts;
}

constexpr std::array<part_t, 256> decimal_parts = make_decimal_parts();
constexpr char hexadecimal_digits[] = "0123456789abcdef";

char *write_ipv4(const uint8_t *bytes, char *out) {
    for (size_t i = 0; i < sizeof(in_addr); ++i) {
        if (i > 0) *out++ = '.';
        const part_t &part = decimal_parts[bytes[i]];
        std::memcpy(out, &part, sizeof part);
        out += part.size;
    }
    return out;
}

/** Writes a 16-bit word in hexadecimal, without leading zeros. */
char *write_word(uint32_t word, char *out) {
    uint32_t digits = word < 0x10 ? 1 : word < 0x100 ? 2 : word < 0x1000 ? 3 : 4;
    word <<= 4 * (4 - digits);
    for (size_t i = 0; i < 4; ++i) {
        out[i] = hexadecimal_digits[word >> (12 - 4 * i) & 15];
    }
    return out + digits;
}

struct run_t {
    size_t first;
    size_t count;
};

/** The first of the longest runs of zeros. */
run_t longest_zeros(const uint32_t (&words)[word_count]) {
    run_t longest = {0, 0};
    size_t count = 0;
    for (size_t i = 0; i < word_count; ++i) {
        count = words[i] == 0 ? count + 1 : 0;
        if (count > longest.count) longest = {i + 1 - count, count};
    }
    return longest;
}

char *write_ipv6(const uint8_t *bytes, char *out) {
    uint32_t words[word_count];
    for (size_t i = 0; i < word_count; ++i) {
        words[i] = uint32_t{bytes[2 * i]} << 8 | bytes[2 * i + 1];
    }
    const run_t zeros = longest_zeros(words);
    const bool ends_as_ipv4 = zeros.first == 0 && (zeros.count == 6 || (zeros.count == 5 && words[5] == 0xffff));
    if (ends_as_ipv4) {
        inet_ntop(AF_INET6, bytes, out, INET6_ADDRSTRLEN);
        return out + std::strlen(out);
    }
    for (size_t i = 0; i < word_count;) {
        const bool is_left_out = i == zeros.first && zeros.count > 1;
        if (i > 0 || is_left_out) *out++ = ':';
        if (is_left_out) {
            i += zeros.count;
            if (i == word_count) *out++ = ':';
        } else {
            out = write_word(words[i++], out);
        }
    }
    return out;
}

}  // namespace

bool parse_number(std::string_view text, uint64_t &out) {
    const bool is_hexadecimal = text.substr(0, 2) == "0x";
    if (is_hexadecimal) text.remove_prefix(2);
    const char *end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, out, is_hexadecimal ? 16 : 10);
    return error == std::errc() && stop == end;
}

bool parse_duration(std::string_view text, uint32_t unit_ms, uint64_t &out) {
    if (text.empty() || parse_number(text, out)) return !text.empty();
    constexpr struct {
        std::string_view name;
        uint32_t ms;
    } units[] = {{"d", 86400000}, {"h", 3600000}, {"m", 60000}, {"s", 1000}, {"ms", 1}};
    uint64_t total_ms = 0;
    for (const auto &unit : units) {
        const size_t digits = std::min(text.find_first_not_of("0123456789"), text.size());
        const std::string_view behind = text.substr(digits);
        if (behind.substr(0, std::min(behind.find_first_of("0123456789"), behind.size())) != unit.name) continue;
        uint64_t part = 0;
        const bool fits = parse_number(text.substr(0, digits), part) && !__builtin_mul_overflow(part, unit.ms, &part) &&
                          !__builtin_add_overflow(total_ms, part, &total_ms);
        if (!fits) return false;
        text.remove_prefix(digits + unit.name.size());
    }
    out = total_ms / unit_ms;
    return text.empty() && total_ms % unit_ms == 0;
}

bool parse_address(std::string_view text, fwx_nat64_addr_t &out) {
    if (parse_ipv4(text, out)) return true;
    out.family = family_ipv6;
    return parse_address_bytes(AF_INET6, text, out.addr);
}

bool parse_ipv4(std::string_view text, fwx_nat64_addr_t &out) {
    uint32_t word = 0;
    if (!parse_address_bytes(AF_INET, text, &word)) return false;
    word = ntohl(word);
    out = {};
    std::memcpy(out.addr, &word, sizeof word);
    return true;
}

bool parse_address_bytes(int family, std::string_view text, void *out) {
    char terminated[INET6_ADDRSTRLEN];
    const bool fits = text.size() < sizeof terminated && text.find('\0') == std::string_view::npos;
    if (!fits) return false;
    terminated[text.copy(terminated, text.size())] = '\0';
    return inet_pton(family, terminated, out) == 1;
}

bool parse_host_port(std::string_view text, std::string_view &host, uint16_t &port) {
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos) return false;
    const char *const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
    host = text.substr(0, colon);
    const bool has_brackets = host.size() > 1 && host.front() == '[' && host.back() == ']';
    if (has_brackets) host = host.substr(1, host.size() - 2);
    in6_addr address;
    const bool is_host = has_brackets ? parse_address_bytes(AF_INET6, host, &address)
                                      : !host.empty() && host.find_first_of("[]:") == std::string_view::npos;
    return is_host && error == std::errc() && stop == end;
}

bool parse_address_port(std::string_view text, fwx_nat64_addr_t &address, uint16_t &port) {
    std::string_view host;
    return parse_host_port(text, host, port) && parse_address(host, address);
}

char *write_address(int family, const void *bytes, char *out) {
    const auto *at = static_cast<const uint8_t *>(bytes);
    return family == AF_INET ? write_ipv4(at, out) : write_ipv6(at, out);
}

std::string address_text(int family, const void *bytes) {
    char text[INET6_ADDRSTRLEN];
    return {text, write_address(family, bytes, text)};
}

std::string address_text(const fwx_nat64_addr_t &address) {
    if (address.family != FWX_NAT64_FAMILY_IPV4) return address_text(AF_INET6, address.addr);
    uint32_t word = 0;
    std::memcpy(&word, address.addr, sizeof word);
    word = htonl(word);
    return address_text(AF_INET, &word);
}

std::string prefix_text(int family, const void *bytes, size_t size, uint32_t length) {
    uint8_t address[sizeof(in6_addr)] = {};
    std::memcpy(address, bytes, size);
    return address_text(family, address) + "/" + std::to_string(length);
}

bool has_prefix(const uint8_t *address, const uint8_t *prefix, uint32_t length) {
    const size_t whole = length / 8;
    const auto mask = static_cast<uint8_t>(0xff00U >> length % 8);
    return std::memcmp(address, prefix, whole) == 0 && (mask == 0 || ((address[whole] ^ prefix[whole]) & mask) == 0);
}

bool parse_hex(std::string_view text, void *out, size_t size) {
    if (text.size() != 2 * size) return false;
    for (size_t i = 0; i < size; ++i) {
        const char *digits = text.data() + 2 * i;
        const auto [stop, error] = std::from_chars(digits, digits + 2, static_cast<uint8_t *>(out)[i], 16);
        if (error != std::errc() || stop != digits + 2) return false;
    }
    return true;
}

std::string hex_digits(const void *bytes, size_t size) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i) {
        const uint8_t byte = static_cast<const uint8_t *>(bytes)[i];
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}
