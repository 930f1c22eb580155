/*
 * A command line as a table: commands, their options, and the functions that read the options' values. Help, completion
 * and errors come from the same table. Only command_line.cpp includes the argument parser, because its header is large.
 *
 * The caller fills a table before it makes the parser. The table must outlive the parser.
 */
#ifndef TOOLS_COMMAND_LINE_H
#define TOOLS_COMMAND_LINE_H

#include <cstdint>
#include <functional>
#include <limits>
#include <list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/field.h"

/** An option, or a positional argument. */
struct option_spec_t {
    /** Reads a value. Returns an error text, empty on success. */
    using read_fn_t = std::function<std::string(const std::string &text)>;

    std::string names; /* `--inside,--src`; `file` for an argument */
    std::string meaning;
    std::string form; /* of the value: `FILE`, `1 to 7, or udp`; empty for a flag */
    read_fn_t read;
    bool *flag = nullptr; /* set when the option is given */
    bool is_required = false;
    bool is_repeatable = false;      /* `read` is called for each value */
    std::string preset;              /* the default, for the help */
    std::vector<std::string> others; /* names of earlier options that exclude this one */

    bool is_argument() const { return names.front() != '-'; }
    bool is_flag() const { return form.empty(); }
    /** The names that begin with two dashes, without the dashes. */
    std::vector<std::string> long_names() const;

    option_spec_t &required(bool is_it = true) {
        is_required = is_it;
        return *this;
    }
    option_spec_t &excludes(const option_spec_t &earlier) {
        others.push_back(earlier.names);
        return *this;
    }
};

/** A command. It has subcommands, one of which must follow, or an action. */
struct command_spec_t {
    std::string name;
    std::string summary;
    std::string footer;                               /* text after the options in the help */
    std::string version;                              /* of a root: the text of --version; empty: no such option */
    std::function<void(const std::string &path)> act; /* `path`: "timeout set" */
    std::list<option_spec_t> options;
    std::list<command_spec_t> commands;
    bool is_listed = true;           /* shown in the help of its parent */
    bool takes_root_options = true;  /* options of the root may follow it */
    std::vector<std::string> others; /* names of the root's options that exclude it */

    option_spec_t &add(option_spec_t option) { return options.emplace_back(std::move(option)); }
    command_spec_t &command(std::string word, std::string summary_text,
                            std::function<void(const std::string &path)> action = {});
};

/** An error in a command line, and the command in which it occurred. */
struct usage_error_t {
    std::string command;
    std::string text;
};
/** The command line asks for help or the version; `text` is the answer. */
struct help_request_t {
    std::string text;
};

class command_parser_t {
public:
    explicit command_parser_t(const command_spec_t &root);
    ~command_parser_t();
    command_parser_t(const command_parser_t &) = delete;
    command_parser_t &operator=(const command_parser_t &) = delete;

    /** Reads a command line and runs the command's action. Throws usage_error_t or help_request_t. */
    void parse(std::vector<std::string> words);

private:
    class impl_t;
    std::unique_ptr<impl_t> impl_;
};

constexpr int usage_status = 2;

/** Reads the options of a program without commands.
 * @return -1 to continue; otherwise the exit status with which to end, after the help or the error was printed. */
int read_command_line(const command_spec_t &root, int argc, const char *const *argv);

/* Options that are read into a variable. The variable must live until the command's action has returned. The error for
 * a wrong value names the option, the value and the allowed values. */

option_spec_t &text_field(command_spec_t &command, std::string_view option, option_spec_t::read_fn_t read,
                          std::string meaning, std::string form);
/** An option that accepts any text. */
option_spec_t &word_field(command_spec_t &command, std::string_view option, std::string &out, std::string meaning,
                          std::string form);
/** The option of a field that is read into `record`. */
option_spec_t &add_field(command_spec_t &command, const record_field_t &field, void *record);

/* `option` and `meaning` must live as long as `command`. */

template <typename number_t>
option_spec_t &number_field(command_spec_t &command, const char *option, number_t &out, const char *meaning,
                            uint64_t min = 0, uint64_t max = std::numeric_limits<number_t>::max()) {
    return add_field(
        command, record_field(option, nullptr, record_kind_t::number, 0, sizeof out, meaning).within(min, max), &out);
}
/** A time in milliseconds. */
template <typename number_t>
option_spec_t &milliseconds_field(command_spec_t &command, const char *option, number_t &out, const char *meaning,
                                  uint64_t min, uint64_t max) {
    return add_field(
        command,
        record_field(option, nullptr, record_kind_t::number, 0, sizeof out, meaning).within(min, max).in_milliseconds(),
        &out);
}
/** A time of 1 s to 1 day, in seconds. */
inline option_spec_t &duration_field(command_spec_t &command, const char *option, uint64_t &out_s,
                                     const char *meaning) {
    return add_field(
        command,
        record_field(option, nullptr, record_kind_t::number, 0, sizeof out_s, meaning).within(1, 86400).in_seconds(),
        &out_s);
}
/** An IP protocol, by name or number. */
inline option_spec_t &protocol_field(command_spec_t &command, const char *option, uint32_t &out, const char *meaning) {
    return add_field(command,
                     record_field(option, nullptr, record_kind_t::number, 0, sizeof out, meaning)
                         .within(1, UINT8_MAX)
                         .named(wire_protocol_names),
                     &out);
}
/** An IPv4 or IPv6 address. */
inline option_spec_t &address_field(command_spec_t &command, const char *option, fwx_nat64_addr_t &out,
                                    const char *meaning) {
    return add_field(command, record_field(option, nullptr, record_kind_t::address, 0, sizeof out, meaning), &out);
}
inline option_spec_t &ipv4_field(command_spec_t &command, const char *option, fwx_nat64_addr_t &out,
                                 const char *meaning) {
    return add_field(command, record_field(option, nullptr, record_kind_t::ipv4, 0, sizeof out, meaning), &out);
}
/** Exactly `bytes` bytes, as hexadecimal digits. */
inline option_spec_t &hex_field(command_spec_t &command, const char *option, uint8_t *out, size_t bytes,
                                const char *meaning) {
    return add_field(command, record_field(option, nullptr, record_kind_t::bytes, 0, bytes, meaning), out);
}

struct choice_t {
    const char *text;
    uint32_t value;
};
/** One of a few words. */
option_spec_t &choice_field(command_spec_t &command, const std::string &option, uint32_t &out,
                            std::vector<choice_t> choices, const std::string &meaning);

/** An option without a value: true when it is given. */
option_spec_t &flag_field(command_spec_t &command, const std::string &option, bool &out, const std::string &meaning);

#endif
