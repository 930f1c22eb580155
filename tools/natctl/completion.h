/* What may come next in a command, and what makes shells offer it. */
#ifndef TOOLS_NATCTL_COMPLETION_H
#define TOOLS_NATCTL_COMPLETION_H

#include <string>
#include <vector>

#include "tools/command_line.h"

/**
 * What may stand where the last of `words` is and begins with it: subcommands, options that are not there yet, values
 * of the option before it or of an argument. Where a file's name may stand: completion_of_files alone.
 */
std::vector<std::string> completions(const command_spec_t &root, const std::vector<std::string> &words);

constexpr char completion_of_files[] = ":";

/** A script that has natctl itself complete its command lines in a shell. */
struct shell_completion_t {
    const char *shell; /* `bash` */
    const char *summary;
    const char *script;
};
extern const shell_completion_t shell_completions[3];

#endif
