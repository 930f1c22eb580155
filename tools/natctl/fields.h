/*
 * Fields of commands: options whose text is read into a member of a record. A wrong value ends the parse with an error
 * that names the option, the value and what is allowed. The member must live until the command has been parsed.
 */
#ifndef TOOLS_FIELDS_H
#define TOOLS_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "fwx_nat64/fwx_nat64.h"

/* The argument parser's own; its header is large, and commands do without it. */
namespace CLI {
class App;
class Option;
}  // namespace CLI

/** An option that was entered. */
class option_t {
public:
    explicit option_t(CLI::Option &option) : option_(&option) {}
    /** Has a command without the option refused. */
    option_t required(bool is_required = true) const;
    /** Has `flag` set to 1 when the option is given. */
    void mark(uint32_t &flag) const;

private:
    CLI::Option *option_;
};

/** Ends the parse: `option value: must be allowed`. */
[[noreturn]] void refuse_field(const std::string &option, const std::string &value, const std::string &allowed);

/** Reads a decimal or 0x-hexadecimal number. */
uint64_t read_number(const std::string &option, const std::string &text, uint64_t min, uint64_t max);
/** `1 to 7`, or `1` when there is no choice. */
std::string range_text(uint64_t min, uint64_t max);

/** A number that `store` puts where it belongs; number_field() does so for members of every width. */
option_t wide_number_field(CLI::App &app, const std::string &option, std::function<void(uint64_t)> store,
                           const std::string &meaning, uint64_t min, uint64_t max);

template <typename number_t>
option_t number_field(CLI::App &app, const std::string &option, number_t &out, const std::string &meaning,
                      uint64_t min = 0, uint64_t max = std::numeric_limits<number_t>::max()) {
    auto store = [&out](uint64_t value) { out = static_cast<number_t>(value); };
    return wide_number_field(app, option, store, meaning, min, max);
}

/** Several numbers between commas, all of them given. */
option_t numbers_field(CLI::App &app, const std::string &option, uint16_t *out, size_t count,
                       const std::string &meaning);

/** An address of either family. */
option_t address_field(CLI::App &app, const std::string &option, fwx_nat64_addr_t &out, const std::string &meaning);
/** An address of which only an IPv4 one will do. */
option_t ipv4_field(CLI::App &app, const std::string &option, fwx_nat64_addr_t &out, const std::string &meaning);

/** An IPv6 prefix of at most 8 * `bytes` bits, its first `bytes` bytes written to `out`. */
option_t ipv6_prefix_field(CLI::App &app, const std::string &option, uint8_t *out, size_t bytes, uint8_t &length,
                           const std::string &meaning);
/** An IPv4 prefix, first byte most significant. */
option_t ipv4_prefix_field(CLI::App &app, const std::string &option, uint8_t (&out)[4], uint8_t &length,
                           const std::string &meaning);

/** Exactly `bytes` bytes as hexadecimal digits. */
option_t hex_field(CLI::App &app, const std::string &option, uint8_t *out, size_t bytes, const std::string &meaning);

struct choice_t {
    const char *text;
    uint32_t value;
};
/** One of a few words. */
option_t choice_field(CLI::App &app, const std::string &option, uint32_t &out, std::vector<choice_t> choices,
                      const std::string &meaning);

/** An option without a value: true when it is given. */
void flag_field(CLI::App &app, const std::string &option, bool &out, const std::string &meaning);

/** IPv4 word of an address, in host order. */
uint32_t ipv4_word(const fwx_nat64_addr_t &address);

#endif
