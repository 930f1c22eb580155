/* The options of natctl itself, which hold for all commands. */
#ifndef TOOLS_NATCTL_OPTIONS_H
#define TOOLS_NATCTL_OPTIONS_H

#include <cstdint>
#include <optional>
#include <string>

enum class format_t : uint8_t { text, csv, json, jsonl };

struct options_t {
    format_t format = format_t::text;
    bool quiet = false; /* omit messages about success */
    bool trace = false;
    bool dry_run = false;
    std::optional<std::string> capture; /* file for all messages */
    bool keep_going = false;            /* a batch continues after a failure */
    uint32_t pipeline = 1;              /* most outstanding commands of a batch */
    uint32_t timeout_ms = 5000;         /* from the start of a command, or the last reply of a list, to the answer */
    std::string connect;                /* name of a server process; empty: the embedded model */
    uint32_t debug_level = 0;           /* 0 silent to 4 trace */
};

#endif
