#include "tools/natctl/fields.h"

#include <arpa/inet.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <cstring>

#include "tools/natctl/hex.h"

namespace {

constexpr uint32_t family_ipv6 = 1;

bool parse_number(const std::string &text, uint64_t &out) {
    bool hexadecimal = text.rfind("0x", 0) == 0;
    const char *end = text.data() + text.size();
    auto [stop, error] = std::from_chars(text.data() + (hexadecimal ? 2 : 0), end, out, hexadecimal ? 16 : 10);
    return error == std::errc() && stop == end;
}

bool parse_ipv4(const std::string &text, fwx_nat64_addr_t &out) {
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1) return false;
    uint32_t word = ntohl(address.s_addr);
    out = {};
    std::memcpy(out.addr, &word, sizeof word);
    return true;
}

bool parse_ipv6(const std::string &text, fwx_nat64_addr_t &out) {
    out = {};
    out.family = family_ipv6;
    return inet_pton(AF_INET6, text.c_str(), out.addr) == 1;
}

struct prefix_form_t {
    int family;
    uint32_t max_length; /* bits */
    const char *name;
    const char *example;
};

/** Writes the max_length / 8 leading bytes of the prefix; they are all of it that a message carries. */
void read_prefix(const std::string &option, const std::string &text, const prefix_form_t &form, uint8_t *out,
                 uint8_t &length) {
    std::string allowed = std::string("an ") + form.name + " prefix of at most " + std::to_string(form.max_length) +
                          " bits, such as " + form.example;
    size_t slash = text.find('/');
    uint8_t address[sizeof(in6_addr)] = {};
    uint64_t bits = 0;
    bool readable = slash != std::string::npos && inet_pton(form.family, text.substr(0, slash).c_str(), address) == 1 &&
                    parse_number(text.substr(slash + 1), bits);
    if (!readable || bits > form.max_length) refuse_field(option, text, allowed);
    for (size_t bit = bits; bit < 8 * sizeof address; ++bit) {
        bool is_set = (address[bit / 8] >> (7 - bit % 8) & 1) != 0;
        if (is_set) refuse_field(option, text, "a prefix with no bits set behind its first " + std::to_string(bits));
    }
    std::memcpy(out, address, form.max_length / 8);
    length = static_cast<uint8_t>(bits);
}

using read_fn_t = std::function<void(const std::string &text)>;

option_t text_field(CLI::App &app, const std::string &option, const read_fn_t &read, const std::string &meaning,
                    const std::string &allowed) {
    return option_t(*app.add_option_function<std::string>(option, read, meaning)->type_name(allowed));
}

}  // namespace

option_t option_t::required(bool is_required) const {
    option_->required(is_required);
    return *this;
}

void option_t::mark(uint32_t &flag) const {
    option_->each([&flag](const std::string &) { flag = 1; });
}

void refuse_field(const std::string &option, const std::string &value, const std::string &allowed) {
    throw CLI::ValidationError(option + " " + (value.empty() ? "''" : value) + ": must be " + allowed,
                               CLI::ExitCodes::ValidationError);
}

std::string range_text(uint64_t min, uint64_t max) {
    return min == max ? std::to_string(min) : std::to_string(min) + " to " + std::to_string(max);
}

uint64_t read_number(const std::string &option, const std::string &text, uint64_t min, uint64_t max) {
    uint64_t value = 0;
    if (!parse_number(text, value) || value < min || value > max) refuse_field(option, text, range_text(min, max));
    return value;
}

option_t wide_number_field(CLI::App &app, const std::string &option, std::function<void(uint64_t)> store,
                           const std::string &meaning, uint64_t min, uint64_t max) {
    auto read = [=, store = std::move(store)](const std::string &text) { store(read_number(option, text, min, max)); };
    return text_field(app, option, read, meaning, range_text(min, max));
}

option_t numbers_field(CLI::App &app, const std::string &option, uint16_t *out, size_t count,
                       const std::string &meaning) {
    auto read = [option, out, count](const std::string &text) {
        std::vector<std::string> parts = CLI::detail::split(text, ',');
        if (parts.size() != count) refuse_field(option, text, std::to_string(count) + " numbers between commas");
        for (size_t i = 0; i < count; ++i) {
            out[i] = static_cast<uint16_t>(read_number(option, parts[i], 0, UINT16_MAX));
        }
    };
    return text_field(app, option, read, meaning,
                      std::to_string(count) + " numbers of " + range_text(0, UINT16_MAX) + ", between commas");
}

option_t address_field(CLI::App &app, const std::string &option, fwx_nat64_addr_t &out, const std::string &meaning) {
    auto read = [option, &out](const std::string &text) {
        if (!parse_ipv4(text, out) && !parse_ipv6(text, out)) {
            refuse_field(option, text, "an address such as 192.0.2.1 or 2001:db8::1");
        }
    };
    return text_field(app, option, read, meaning, "ADDRESS");
}

option_t ipv4_field(CLI::App &app, const std::string &option, fwx_nat64_addr_t &out, const std::string &meaning) {
    auto read = [option, &out](const std::string &text) {
        if (!parse_ipv4(text, out)) refuse_field(option, text, "an IPv4 address such as 192.0.2.1");
    };
    return text_field(app, option, read, meaning, "IPV4-ADDRESS");
}

option_t ipv6_prefix_field(CLI::App &app, const std::string &option, uint8_t *out, size_t bytes, uint8_t &length,
                           const std::string &meaning) {
    prefix_form_t form{AF_INET6, static_cast<uint32_t>(8 * bytes), "IPv6", "2001:db8::/32"};
    auto read = [=, &length](const std::string &text) { read_prefix(option, text, form, out, length); };
    return text_field(app, option, read, meaning, "IPV6-PREFIX/0.." + std::to_string(form.max_length));
}

option_t ipv4_prefix_field(CLI::App &app, const std::string &option, uint8_t (&out)[4], uint8_t &length,
                           const std::string &meaning) {
    prefix_form_t form{AF_INET, 32, "IPv4", "192.0.2.0/24"};
    auto read = [=, &out, &length](const std::string &text) { read_prefix(option, text, form, out, length); };
    return text_field(app, option, read, meaning, "IPV4-PREFIX/0..32");
}

option_t hex_field(CLI::App &app, const std::string &option, uint8_t *out, size_t bytes, const std::string &meaning) {
    std::string allowed = std::to_string(2 * bytes) + " hexadecimal digits";
    auto read = [=](const std::string &text) {
        if (!parse_hex(text, out, bytes)) refuse_field(option, text, allowed);
    };
    return text_field(app, option, read, meaning, allowed);
}

option_t choice_field(CLI::App &app, const std::string &option, uint32_t &out, std::vector<choice_t> choices,
                      const std::string &meaning) {
    std::string allowed;
    for (const choice_t &choice : choices) {
        allowed += (allowed.empty() ? "" : "|") + std::string(choice.text);
    }
    auto read = [option, &out, choices = std::move(choices), allowed](const std::string &text) {
        for (const choice_t &choice : choices) {
            if (text == choice.text) {
                out = choice.value;
                return;
            }
        }
        refuse_field(option, text, allowed);
    };
    return text_field(app, option, read, meaning, allowed);
}

void flag_field(CLI::App &app, const std::string &option, bool &out, const std::string &meaning) {
    app.add_flag(option, out, meaning);
}

uint32_t ipv4_word(const fwx_nat64_addr_t &address) {
    uint32_t word = 0;
    std::memcpy(&word, address.addr, sizeof word);
    return word;
}
