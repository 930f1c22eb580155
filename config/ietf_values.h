/* Values that the standard form writes in another way than documents do. */
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
    /** Of the address alone. */
    std::string address() const;
};

/** Reads a prefix of either family; bits behind it are cleared, as its canonical form has them. */
bool parse_prefix(std::string_view text, ip_prefix_t &out);

/** First and last address of an IPv4 prefix, as texts. */
struct span_text_t {
    std::string first;
    std::string last;
};
span_text_t span_of(const ip_prefix_t &prefix);

/** The fewest prefixes that are the addresses from the first to the last one, which is not below it; in host order. */
struct ipv4_piece_t {
    uint32_t first;
    uint32_t last;

    std::string text() const;
};
std::vector<ipv4_piece_t> prefixes_of(uint32_t first, uint32_t last);

/** The name of a basic rule, `domain-1-rule-2`, from its numbers and back. */
std::string rule_name_text(std::string_view domain, std::string_view rule);
bool parse_rule_name(std::string_view text, std::string &domain, std::string &rule);

#endif
