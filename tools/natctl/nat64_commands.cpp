/* `natctl nat64 explain`: embeds IPv4 addresses in NAT64 prefixes and extracts them (RFC 6052). It asks no server. */
#include <arpa/inet.h>

#include <cstring>

#include "fwx_nat64/result.h"
#include "records/embedding.h"
#include "records/value.h"
#include "tools/natctl/grammar.h"

namespace {

struct prefix_t {
    uint8_t bytes[16];
    uint8_t length; /* in bits; 0: not given */
};
constexpr prefix_t well_known = {{0, 0x64, 0xff, 0x9b}, 96};

struct explain_t {
    fwx_nat64_addr_t address;
    prefix_t prefix;
};

json_t row_of(const prefix_t &prefix, const uint8_t ipv4[4], const uint8_t ipv6[16]) {
    return {{"prefix", address_text(AF_INET6, prefix.bytes) + "/" + std::to_string(prefix.length)},
            {"ipv4", address_text(AF_INET, ipv4)},
            {"ipv6", address_text(AF_INET6, ipv6)}};
}

/** The first `length` bits of an address. */
prefix_t prefix_of(const uint8_t ipv6[16], uint8_t length) {
    prefix_t prefix{{}, length};
    std::memcpy(prefix.bytes, ipv6, length / 8U);
    return prefix;
}

void embed(outcome_t &outcome, const explain_t &wanted) {
    const prefix_t prefix = wanted.prefix.length == 0 ? well_known : wanted.prefix;
    uint32_t word = 0;
    std::memcpy(&word, wanted.address.addr, sizeof word);
    word = htonl(word);
    uint8_t ipv4[sizeof word];
    std::memcpy(ipv4, &word, sizeof word);
    uint8_t ipv6[16];
    embed_ipv4(prefix.bytes, prefix.length, ipv4, ipv6);
    outcome.data = row_of(prefix, ipv4, ipv6);
}

/** Extracts the IPv4 address. Without a prefix it gives a row for each possible prefix length. */
void extract(outcome_t &outcome, const explain_t &wanted) {
    const uint8_t *ipv6 = wanted.address.addr;
    json_t rows = json_t::array();
    for (const uint8_t length : embedding_lengths) {
        const prefix_t prefix = prefix_of(ipv6, length);
        const bool is_wanted = wanted.prefix.length == 0 || std::memcmp(&prefix, &wanted.prefix, sizeof prefix) == 0;
        uint8_t ipv4[4];
        if (is_wanted && extract_ipv4(ipv6, length, ipv4)) rows.push_back(row_of(prefix, ipv4, ipv6));
    }
    if (rows.empty()) {
        refuse(outcome, status_t::refused, FWX_NAT64_ERR_NOT_FOUND,
               address_text(wanted.address) + " holds no IPv4 address" +
                   (wanted.prefix.length == 0 ? ": bits 64 to 71 are not zero" : " behind that prefix"));
        return;
    }
    outcome.data = wanted.prefix.length == 0 ? rows : rows.front();
}

uint32_t explain(call_t &call, const explain_t &wanted) {
    wanted.address.family == FWX_NAT64_FAMILY_IPV4 ? embed(call.outcome, wanted) : extract(call.outcome, wanted);
    return 0;
}

constexpr record_field_t prefix_field =
    record_field("--prefix", "prefix", record_kind_t::ipv6_prefix, offsetof(explain_t, prefix.bytes),
                 sizeof(prefix_t::bytes), "the prefix, of IPv4 addresses 64:ff9b::/96 without it")
        .within(0, 96)
        .length_at(offsetof(explain_t, prefix.length));

std::string read_prefix(const std::string &text, explain_t &out) {
    std::string error = record_field_read(prefix_field, text, &out);
    if (!error.empty()) return error;
    constexpr uint8_t any[4] = {};
    uint8_t ipv6[16];
    if (embed_ipv4(out.prefix.bytes, out.prefix.length, any, ipv6)) return {};
    return record_field_error("--prefix", text, "of 32, 40, 48, 56, 64 or 96 bits, with zeros in bits 64 to 71");
}

}  // namespace

void add_nat64_commands(grammar_t &grammar) {
    grammar.family("nat64", "IPv4 addresses within IPv6 addresses");
    auto wanted = grammar.record<explain_t>();
    command_spec_t &app =
        grammar.immediate("explain", "Embeds an IPv4 address, or extracts it, without asking a server",
                          [wanted](call_t &call) { return explain(call, *wanted); });
    address_field(app, "address", wanted->address, "the address").required();
    auto read = [wanted](const std::string &text) { return read_prefix(text, *wanted); };
    text_field(app, "--prefix", read, prefix_field.meaning, record_field_form(prefix_field));
}
