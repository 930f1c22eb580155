/* Prefixes of the standard form: their canonical texts, the intervals they cover, and the prefixes of an interval. */
#include "config/ietf_values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

#include "records/value.h"

namespace {

constexpr std::string_view domain_word = "domain-";
constexpr std::string_view rule_word = "-rule-";

std::string ipv4_text(uint32_t address) {
    const uint32_t word = htonl(address);
    return address_text(AF_INET, &word);
}

/** True for a decimal number of at most 32 bits without leading zeros. */
bool is_plain_number(std::string_view text) {
    uint64_t value = 0;
    return parse_number(text, value) && value <= UINT32_MAX && text == std::to_string(value);
}

}  // namespace

uint32_t ip_prefix_t::bits() const {
    return family == AF_INET ? 32 : 128;
}

std::string ip_prefix_t::text() const {
    return prefix_text(family, bytes, sizeof bytes, length);
}

std::string ip_prefix_t::address() const {
    return address_text(family, bytes);
}

bool parse_prefix(std::string_view text, ip_prefix_t &out) {
    out = {};
    const size_t slash = text.find('/');
    if (slash == std::string_view::npos) return false;
    const std::string_view address = text.substr(0, slash);
    out.family = address.find(':') == std::string_view::npos ? AF_INET : AF_INET6;
    uint64_t length = 0;
    const bool is_prefix = is_plain_number(text.substr(slash + 1)) && parse_number(text.substr(slash + 1), length) &&
                           length <= out.bits() && parse_address_bytes(out.family, address, out.bytes);
    if (!is_prefix) return false;
    out.length = static_cast<uint32_t>(length);
    for (size_t i = 0; i < sizeof out.bytes; ++i) {
        const uint64_t kept = std::min<uint64_t>(8, length > 8 * i ? length - 8 * i : 0);
        out.bytes[i] = static_cast<uint8_t>(out.bytes[i] & 0xff00U >> kept);
    }
    return true;
}

span_text_t span_of(const ip_prefix_t &prefix) {
    uint32_t word = 0;
    std::memcpy(&word, prefix.bytes, sizeof word);
    const uint32_t first = ntohl(word);
    const uint64_t count = uint64_t{1} << (prefix.bits() - prefix.length);
    return {ipv4_text(first), ipv4_text(static_cast<uint32_t>(first + count - 1))};
}

std::string ipv4_piece_t::text() const {
    uint32_t length = 32;
    while (length > 0 && last - first >= (uint64_t{1} << (32 - length))) {
        --length;
    }
    return ipv4_text(first) + "/" + std::to_string(length);
}

std::vector<ipv4_piece_t> prefixes_of(uint32_t first, uint32_t last) {
    std::vector<ipv4_piece_t> pieces;
    for (uint64_t next = first; next <= last;) {
        uint64_t count = 1;
        while (next % (2 * count) == 0 && next + 2 * count - 1 <= last) {
            count *= 2;
        }
        pieces.push_back({static_cast<uint32_t>(next), static_cast<uint32_t>(next + count - 1)});
        next += count;
    }
    return pieces;
}

std::string rule_name_text(std::string_view domain, std::string_view rule) {
    return std::string(domain_word).append(domain).append(rule_word).append(rule);
}

bool parse_rule_name(std::string_view text, std::string &domain, std::string &rule) {
    const size_t split = text.find(rule_word);
    const bool has_words = text.substr(0, domain_word.size()) == domain_word && split != std::string_view::npos;
    if (!has_words) return false;
    domain = text.substr(domain_word.size(), split - domain_word.size());
    rule = text.substr(split + rule_word.size());
    return is_plain_number(domain) && is_plain_number(rule) && rule != "0";
}
