/* `natctl serve`: the server model as a process of its own. */
#ifndef TOOLS_NATCTL_SERVE_H
#define TOOLS_NATCTL_SERVE_H

#include <string>

#include "tools/natctl/output.h"

struct serve_options_t {
    std::string name;       /* the name that clients connect to */
    std::string state_file; /* empty: the configuration ends with the process */
};

/** Serves until SIGINT or SIGTERM. Announces when clients can connect, and notes each refused message. */
outcome_t serve(const serve_options_t &options, output_t &output);

#endif
