/* The prompt of natctl. */
#ifndef TOOLS_NATCTL_SHELL_H
#define TOOLS_NATCTL_SHELL_H

#include <istream>

#include "tools/natctl/batch.h"

/** Lines typed at a prompt with history and completion when standard input is a terminal, else the lines of `input`;
 * the prompt names the server, if there is one. `exit` ends them. The history is kept from shell
 * to shell where that can be done. */
next_line_fn_t shell_lines(std::istream &input, const std::string &server);

#endif
