/* natctl as a function, so that tests can call it: words in, answers and notes out. */
#ifndef TOOLS_NATCTL_CLI_H
#define TOOLS_NATCTL_CLI_H

#include <istream>
#include <ostream>
#include <string>
#include <vector>

/**
 * Runs the command line `words` and returns the exit status. `batch -` reads `input`. Answers go to `answers`,
 * everything else to `notes`.
 */
int run_natctl(const std::vector<std::string> &words, std::istream &input, std::ostream &answers, std::ostream &notes);

#endif
