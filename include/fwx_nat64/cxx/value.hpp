/** @file
 * Addresses and prefixes, made from their usual text form, and enumerations of the kinds in records. A string literal
 * is parsed at compile time, and an invalid one does not compile. For other text there is `parse`, which returns
 * nullopt for text that it does not accept.
 */
#ifndef FWX_NAT64_CXX_VALUE_HPP
#define FWX_NAT64_CXX_VALUE_HPP

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "fwx_nat64/fwx_nat64.h"

namespace fwx::nat64 {

using std::chrono::seconds;

namespace detail {

/** Reads a number of at most `max_digits` digits and at most `max` from the start of the text, and removes its digits.
 */
constexpr std::optional<uint32_t> take_number(std::string_view &text, uint32_t base, size_t max_digits, uint32_t max) {
    uint32_t value = 0;
    size_t digits = 0;
    for (; digits < text.size() && digits < max_digits; ++digits) {
        const char c = text[digits];
        uint32_t digit = base;
        if (c >= '0' && c <= '9') digit = static_cast<uint32_t>(c - '0');
        if (base == 16 && c >= 'a' && c <= 'f') digit = static_cast<uint32_t>(c - 'a') + 10;
        if (base == 16 && c >= 'A' && c <= 'F') digit = static_cast<uint32_t>(c - 'A') + 10;
        if (digit >= base) break;
        value = value * base + digit;
    }
    const bool has_leading_zero = base == 10 && digits > 1 && text[0] == '0';
    if (digits == 0 || value > max || has_leading_zero) return std::nullopt;
    text.remove_prefix(digits);
    return value;
}

constexpr std::optional<uint32_t> read_ipv4(std::string_view text) {
    uint32_t word = 0;
    for (int part = 0; part < 4; ++part) {
        if (part != 0) {
            if (text.empty() || text[0] != '.') return std::nullopt;
            text.remove_prefix(1);
        }
        const std::optional<uint32_t> byte = take_number(text, 10, 3, 255);
        if (!byte) return std::nullopt;
        word = word << 8 | *byte;
    }
    return text.empty() ? std::optional(word) : std::nullopt;
}

using ipv6_bytes = std::array<uint8_t, 16>;

constexpr std::optional<ipv6_bytes> read_ipv6(std::string_view text) {
    std::array<uint16_t, 8> groups{};
    size_t count = 0;
    size_t gap = 9; /* index of the group after `::`; 9: there is no `::` */
    if (text.substr(0, 2) == "::") {
        gap = 0;
        text.remove_prefix(2);
    }
    while (!text.empty()) {
        if (count == groups.size()) return std::nullopt;
        if (count < 7 && text.find(':') == std::string_view::npos && text.find('.') != std::string_view::npos) {
            const std::optional<uint32_t> word = read_ipv4(text);
            if (!word) return std::nullopt;
            groups[count++] = static_cast<uint16_t>(*word >> 16);
            groups[count++] = static_cast<uint16_t>(*word);
            break;
        }
        const std::optional<uint32_t> group = take_number(text, 16, 4, 0xffff);
        if (!group) return std::nullopt;
        groups[count++] = static_cast<uint16_t>(*group);
        if (text.empty()) break;
        if (text.substr(0, 2) == "::" && gap == 9) {
            gap = count;
            text.remove_prefix(2);
        } else if (text[0] == ':' && text.size() > 1) {
            text.remove_prefix(1);
        } else {
            return std::nullopt;
        }
    }
    const bool is_whole = gap == 9 ? count == 8 : count < 8;
    if (!is_whole) return std::nullopt;
    ipv6_bytes bytes{};
    for (size_t i = 0; i < count; ++i) {
        const size_t at = i < gap ? i : 8 - count + i;
        bytes[2 * at] = static_cast<uint8_t>(groups[i] >> 8);
        bytes[2 * at + 1] = static_cast<uint8_t>(groups[i]);
    }
    return bytes;
}

/** Splits `address/length`. */
constexpr bool split_prefix(std::string_view text, uint32_t max, std::string_view &address, uint32_t &length) {
    const size_t slash = text.find('/');
    if (slash == std::string_view::npos) return false;
    address = text.substr(0, slash);
    std::string_view digits = text.substr(slash + 1);
    const std::optional<uint32_t> read = take_number(digits, 10, 3, max);
    if (!read || !digits.empty()) return false;
    length = *read;
    return true;
}

template <class value_type>
consteval value_type stated(std::optional<value_type> value) {
    if (!value) throw "the text is no such value";
    return *value;
}

}  // namespace detail

/** An IPv4 address. */
class ipv4_address {
public:
    constexpr ipv4_address() = default;
    /** From a word in host order. */
    constexpr explicit ipv4_address(uint32_t word) : word_(word) {}
    template <size_t size>
    consteval ipv4_address(const char (&text)[size]) : word_(detail::stated(detail::read_ipv4({text, size - 1}))) {}
    static constexpr std::optional<ipv4_address> parse(std::string_view text) {
        const std::optional<uint32_t> word = detail::read_ipv4(text);
        return word ? std::optional(ipv4_address(*word)) : std::nullopt;
    }

    /** In host order. */
    constexpr uint32_t word() const { return word_; }
    std::string text() const {
        char buffer[INET_ADDRSTRLEN];
        const uint32_t network = htonl(word_);
        return inet_ntop(AF_INET, &network, buffer, sizeof buffer);
    }
    friend constexpr auto operator<=>(const ipv4_address &, const ipv4_address &) = default;

private:
    uint32_t word_ = 0;
};

/** An IPv6 address. */
class ipv6_address {
public:
    using bytes_type = detail::ipv6_bytes;

    constexpr ipv6_address() = default;
    constexpr explicit ipv6_address(const bytes_type &bytes) : bytes_(bytes) {}
    template <size_t size>
    consteval ipv6_address(const char (&text)[size]) : bytes_(detail::stated(detail::read_ipv6({text, size - 1}))) {}
    static constexpr std::optional<ipv6_address> parse(std::string_view text) {
        const std::optional<bytes_type> bytes = detail::read_ipv6(text);
        return bytes ? std::optional(ipv6_address(*bytes)) : std::nullopt;
    }

    /** First byte most significant. */
    constexpr const bytes_type &bytes() const { return bytes_; }
    std::string text() const {
        char buffer[INET6_ADDRSTRLEN];
        return inet_ntop(AF_INET6, bytes_.data(), buffer, sizeof buffer);
    }
    friend constexpr auto operator<=>(const ipv6_address &, const ipv6_address &) = default;

private:
    bytes_type bytes_{};
};

/** An IPv4 or IPv6 address. */
class ip_address {
public:
    /** 0.0.0.0, which matches every address in a filter. */
    constexpr ip_address() = default;
    constexpr ip_address(ipv4_address address) {
        for (size_t i = 0; i < 4; ++i) {
            record_.addr[i] = static_cast<uint8_t>(address.word() >> 8 * i);
        }
    }
    constexpr ip_address(const ipv6_address &address) : record_{family_ipv6, {}} {
        for (size_t i = 0; i < sizeof record_.addr; ++i) {
            record_.addr[i] = address.bytes()[i];
        }
    }
    template <size_t size>
    consteval ip_address(const char (&text)[size]) : ip_address(detail::stated(parse({text, size - 1}))) {}
    static constexpr std::optional<ip_address> parse(std::string_view text) {
        if (const auto ipv4 = ipv4_address::parse(text)) return ip_address(*ipv4);
        if (const auto ipv6 = ipv6_address::parse(text)) return ip_address(*ipv6);
        return std::nullopt;
    }
    /** From an address in a reply of the server, where IPv4 is in network order. */
    static ip_address of_answer(const fwx_nat64_addr_t &address) {
        ip_address made;
        made.record_ = address;
        if (address.family == FWX_NAT64_FAMILY_IPV4) std::reverse(made.record_.addr, made.record_.addr + 4);
        return made;
    }

    /** The address as commands take it: IPv4 in host order. */
    constexpr const fwx_nat64_addr_t &record() const { return record_; }
    std::string text() const {
        if (record_.family == FWX_NAT64_FAMILY_IPV4) {
            return ipv4_address(record_.addr[0] | uint32_t{record_.addr[1]} << 8 | uint32_t{record_.addr[2]} << 16 |
                                uint32_t{record_.addr[3]} << 24)
                .text();
        }
        ipv6_address::bytes_type bytes;
        std::copy_n(record_.addr, bytes.size(), bytes.begin());
        return ipv6_address(bytes).text();
    }

private:
    static constexpr uint32_t family_ipv6 = 1; /* any value except 0 means IPv6; the C programs here write 1 */

    fwx_nat64_addr_t record_{};
};

/** A prefix: an address and a length in bits. The bits after the length are kept as given. */
template <class address_type, uint8_t max_length>
class basic_prefix {
public:
    constexpr basic_prefix() = default;
    constexpr basic_prefix(const address_type &address, uint8_t length) : address_(address), length_(length) {}
    template <size_t size>
    consteval basic_prefix(const char (&text)[size]) : basic_prefix(detail::stated(parse({text, size - 1}))) {}
    static constexpr std::optional<basic_prefix> parse(std::string_view text) {
        std::string_view address;
        uint32_t length = 0;
        if (!detail::split_prefix(text, max_length, address, length)) return std::nullopt;
        const auto read = address_type::parse(address);
        return read ? std::optional(basic_prefix(*read, static_cast<uint8_t>(length))) : std::nullopt;
    }

    constexpr const address_type &address() const { return address_; }
    constexpr uint8_t length() const { return length_; }
    std::string text() const { return address_.text() + '/' + std::to_string(length_); }
    friend constexpr bool operator==(const basic_prefix &, const basic_prefix &) = default;

private:
    address_type address_;
    uint8_t length_ = 0;
};
using ipv4_prefix = basic_prefix<ipv4_address, 32>;
using ipv6_prefix = basic_prefix<ipv6_address, 128>;

/** Kinds of timeouts, in the numbering of this project's server. */
enum class timeout_kind : uint32_t {
    udp = FWX_NAT64_TIMEOUT_UDP,
    tcp_trans = FWX_NAT64_TIMEOUT_TCP_TRANS,
    tcp_est = FWX_NAT64_TIMEOUT_TCP_EST,
    tcp_in_syn = FWX_NAT64_TIMEOUT_TCP_IN_SYN,
    fragment_min = FWX_NAT64_TIMEOUT_FRAGMENT_MIN,
    icmp = FWX_NAT64_TIMEOUT_ICMP,
    udp_min = FWX_NAT64_TIMEOUT_UDP_MIN,
};
/** Uses of a global prefix. */
enum class prefix_kind : uint32_t {
    stateful = FWX_NAT64_PREFIX_STATEFUL,
    stateless = FWX_NAT64_PREFIX_STATELESS,
    stateless_v6v4 = FWX_NAT64_PREFIX_STATELESS_V6V4,
    dns64 = FWX_NAT64_PREFIX_DNS64,
};
/** Mapping behaviours of a dynamic mapping: endpoint-independent, address-dependent, address- and port-dependent. */
enum class mapping_kind : uint32_t {
    eim = FWX_NAT64_DMAPPING_EIM,
    adm = FWX_NAT64_DMAPPING_ADM,
    apdm = FWX_NAT64_DMAPPING_APDM,
};
/** Kinds of neighbours. */
enum class adjacency_kind : uint32_t {
    inside = FWX_NAT64_ADJ_INSIDE,
    outside = FWX_NAT64_ADJ_OUTSIDE,
    logging = FWX_NAT64_ADJ_LOGGING,
    replication = FWX_NAT64_ADJ_REPLICATION,
};
/** Events that a logging destination gets. */
enum class logging_template : uint16_t {
    all = FWX_NAT64_LOGGING_TEMPLATE_ALL,
    session = FWX_NAT64_LOGGING_TEMPLATE_SESSION,
    bib = FWX_NAT64_LOGGING_TEMPLATE_BIB,
    ports = FWX_NAT64_LOGGING_TEMPLATE_PORTS,
};
/** IP protocols. */
enum class protocol : uint8_t { any = 0, icmp = 1, tcp = 6, udp = 17, icmpv6 = 58 };

}  // namespace fwx::nat64

#endif
