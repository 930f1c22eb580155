/* Asks the nat64d of a server how it does, and for what it can do. */
#ifndef TOOLS_NATCTL_DAEMON_COMMAND_H
#define TOOLS_NATCTL_DAEMON_COMMAND_H

#include "tools/natctl/options.h"
#include "tools/natctl/outcome.h"

/** `verb` is `status`, `replay` or `reload`. The latter two are refused when the server is not in step behind them, or
 * the file's document is not in force. */
outcome_t ask_daemon(const std::string &verb, const options_t &options);

#endif
