/* The prompt of `natctl shell`. */
#ifndef TOOLS_NATCTL_SHELL_H
#define TOOLS_NATCTL_SHELL_H

#include <istream>

#include "tools/natctl/batch.h"

/** Reads lines at a prompt with history and completion if standard input is a terminal, otherwise from `input`. The
 * prompt names the server, if there is one. `exit` ends the lines. The history is saved to a file if that is possible.
 */
next_line_fn_t shell_lines(std::istream &input, const std::string &server);

#endif
