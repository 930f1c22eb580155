/* Completion of command lines, for natctl's own shell and for bash, zsh and fish. */
#ifndef TOOLS_NATCTL_COMPLETION_H
#define TOOLS_NATCTL_COMPLETION_H

#include <string>
#include <vector>

#include "tools/command_line.h"

/**
 * The words that may replace the last of `words` and begin with it: subcommands, options not given yet, values of the
 * preceding option or of an argument. Where a file name is expected, only completion_of_files.
 */
std::vector<std::string> completions(const command_spec_t &root, const std::vector<std::string> &words);

constexpr char completion_of_files[] = ":";

/** A script that makes a shell ask natctl for completions of its command lines. */
struct shell_completion_t {
    const char *shell; /* `bash` */
    const char *summary;
    const char *script;
};
extern const shell_completion_t shell_completions[3];

#endif
