/* `natctl top`: shows the state of a server and refreshes it. */
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
 * Refreshes until a signal or, on a terminal, the key q. With --json, with `is_once`, and for text that goes to no
 * terminal, it looks only once.
 * @param is_terminal true if the answers of `output` go to a terminal, which is standard output.
 */
outcome_t top(const top_options_t &wanted, const options_t &options, bool is_terminal, output_t &output);

#endif
