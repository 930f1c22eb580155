/* `natctl top`: how a server does, looked at again and again. */
#ifndef TOOLS_NATCTL_TOP_COMMAND_H
#define TOOLS_NATCTL_TOP_COMMAND_H

#include <cstdint>

#include "tools/natctl/options.h"
#include "tools/natctl/outcome.h"
#include "tools/natctl/output.h"

struct top_options_t {
    uint64_t interval_ms = 1000;
    bool is_once = false;
};

/**
 * Looks until a signal or, on a terminal, the key q ends it; with JSON in one document, with `is_once`, and where the
 * text goes to no terminal, once.
 * @param is_terminal the answers of `output` go to a terminal, which is standard output.
 */
outcome_t top(const top_options_t &wanted, const options_t &options, bool is_terminal, output_t &output);

#endif
