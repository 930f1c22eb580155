/*
 * Fields of commands: options whose text is read into a member of a record. A wrong value ends the parse with an error
 * that names the option, the value and what is allowed. The member must live until the command has been parsed.
 */
#ifndef TOOLS_NATCTL_FIELDS_H
#define TOOLS_NATCTL_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "records/field.h"

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
    /** Has a command with both refused. */
    void excludes(const option_t &other) const;

private:
    CLI::Option *option_;
};

/** Enters an option whose text `read` takes; it answers with what is wrong, or an empty text. */
option_t text_field(CLI::App &app, std::string_view option, std::function<std::string(const std::string &text)> read,
                    const std::string &meaning, const std::string &form);
/** Enters the option of a field that is read into `record`. */
option_t add_field(CLI::App &app, const record_field_t &field, void *record);

/* Fields that are a variable each; `option` and `meaning` must live as long as `app`. */

template <typename number_t>
option_t number_field(CLI::App &app, const char *option, number_t &out, const char *meaning, uint64_t min = 0,
                      uint64_t max = std::numeric_limits<number_t>::max()) {
    return add_field(app, record_field(option, nullptr, record_kind_t::number, 0, sizeof out, meaning).within(min, max),
                     &out);
}
/** An IP protocol, by name or number. */
inline option_t protocol_field(CLI::App &app, const char *option, uint32_t &out, const char *meaning) {
    return add_field(app,
                     record_field(option, nullptr, record_kind_t::number, 0, sizeof out, meaning)
                         .within(1, UINT8_MAX)
                         .named(wire_protocol_names),
                     &out);
}
/** An address of either family. */
inline option_t address_field(CLI::App &app, const char *option, fwx_nat64_addr_t &out, const char *meaning) {
    return add_field(app, record_field(option, nullptr, record_kind_t::address, 0, sizeof out, meaning), &out);
}
inline option_t ipv4_field(CLI::App &app, const char *option, fwx_nat64_addr_t &out, const char *meaning) {
    return add_field(app, record_field(option, nullptr, record_kind_t::ipv4, 0, sizeof out, meaning), &out);
}
/** Exactly `bytes` bytes as hexadecimal digits. */
inline option_t hex_field(CLI::App &app, const char *option, uint8_t *out, size_t bytes, const char *meaning) {
    return add_field(app, record_field(option, nullptr, record_kind_t::bytes, 0, bytes, meaning), out);
}

struct choice_t {
    const char *text;
    uint32_t value;
};
/** One of a few words. */
option_t choice_field(CLI::App &app, const std::string &option, uint32_t &out, std::vector<choice_t> choices,
                      const std::string &meaning);

/** A time, `5m`, of a second to a day; in seconds. */
option_t duration_field(CLI::App &app, const std::string &option, uint64_t &out_s, const std::string &meaning);

/** An option without a value: true when it is given. */
void flag_field(CLI::App &app, const std::string &option, bool &out, const std::string &meaning);

#endif
