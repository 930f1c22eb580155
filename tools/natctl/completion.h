/* What may come next in a command, and what makes bash offer it. */
#ifndef TOOLS_NATCTL_COMPLETION_H
#define TOOLS_NATCTL_COMPLETION_H

#include <string>
#include <vector>

namespace CLI {
class App;
}

/** The subcommands and options of `root` that may stand where the last of `words` is and begin with it. */
std::vector<std::string> completions(const CLI::App &root, const std::vector<std::string> &words);

/** A bash script that has natctl itself complete its command lines. */
extern const char bash_completion[];

#endif
