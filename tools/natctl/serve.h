/* The server model as a process of its own. */
#ifndef TOOLS_NATCTL_SERVE_H
#define TOOLS_NATCTL_SERVE_H

#include <string>

#include "tools/natctl/output.h"

struct serve_options_t {
    std::string name;       /* under which clients find it */
    std::string state_file; /* empty: the configuration ends with the process */
};

/** Serves until SIGINT or SIGTERM. Answers when clients can connect, and notes each message that is refused. */
outcome_t serve(const serve_options_t &options, output_t &output);

#endif
