/* What the user asked of natctl as a whole, whatever the command. */
#ifndef TOOLS_NATCTL_OPTIONS_H
#define TOOLS_NATCTL_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

enum class format_t : uint8_t { text, csv, json, jsonl };

struct options_t {
    format_t format = format_t::text;
    bool quiet = false; /* nothing is said of what went well */
    bool trace = false;
    bool dry_run = false;
    std::optional<std::string> capture; /* file that gets the messages */
    bool keep_going = false;            /* a batch goes on after a failure */
    uint32_t pipeline = 1;              /* commands of a batch that may wait for their answers at a time */
    uint32_t timeout_ms = 5000;         /* from the start of a command to its verdict */
    std::string connect;                /* name of a server process; empty: the embedded model */
    uint32_t debug_level = 0;           /* 0 silent to 4 trace */
};

#endif
