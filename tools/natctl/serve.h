/* The server model as a process of its own. */
#ifndef TOOLS_NATCTL_SERVE_H
#define TOOLS_NATCTL_SERVE_H

#include <ostream>
#include <string>

#include "tools/natctl/outcome.h"

struct serve_options_t {
    std::string name;       /* under which clients find it */
    std::string state_file; /* empty: the configuration ends with the process */
};

/**
 * Serves until SIGINT or SIGTERM. Writes a ready line to `answers` when clients can connect, and a line to `notes` for
 * each message that is refused.
 */
outcome_t serve(const serve_options_t &options, std::ostream &answers, std::ostream &notes);

#endif
