/* Parses and formats values that the standard form writes differently from documents: prefixes and rule names. */
#ifndef CONFIG_IETF_VALUES_H
#define CONFIG_IETF_VALUES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

struct ip_prefix_t {
    int family; /* AF_INET or AF_INET6 */
    uint8_t bytes[16];
    uint32_t length;

    uint32_t bits() const;
    bool is_host() const { return length == bits(); }
    std::string text() const;
    /** The address without the length. */
    std::string address() const;
};

/** Parses a prefix of either family into its canonical form: bits behind the prefix are cleared. */
bool parse_prefix(std::string_view text, ip_prefix_t &out);

/** First and last address of an IPv4 prefix, as texts. */
struct span_text_t {
    std::string first;
    std::string last;
};
span_text_t span_of(const ip_prefix_t &prefix);

/** A prefix as its first and last address, in host order. */
struct ipv4_piece_t {
    uint32_t first;
    uint32_t last;

    std::string text() const;
};
/** The fewest prefixes that cover exactly the addresses from first to last, in host order. Requires: first <= last. */
std::vector<ipv4_piece_t> prefixes_of(uint32_t first, uint32_t last);

/** The name of a basic rule, such as `domain-1-rule-2`, from its numbers and back. */
std::string rule_name_text(std::string_view domain, std::string_view rule);
bool parse_rule_name(std::string_view text, std::string &domain, std::string &rule);

#endif
