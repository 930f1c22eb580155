/* The client of nat64d's control socket: `natctl daemon`. */
#ifndef TOOLS_NATCTL_DAEMON_COMMAND_H
#define TOOLS_NATCTL_DAEMON_COMMAND_H

#include "tools/natctl/options.h"
#include "tools/natctl/outcome.h"

/** `verb` is `status`, `replay` or `reload`. The outcome of the latter two is `refused` if the server is not in sync
 * afterwards, or the latest document is not in force. */
outcome_t ask_daemon(const std::string &verb, const options_t &options);

#endif
