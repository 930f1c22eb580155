/* natctl as a function: words in, answers and notes out. */
#ifndef TOOLS_NATCTL_CLI_H
#define TOOLS_NATCTL_CLI_H

#include <istream>
#include <ostream>
#include <string>
#include <vector>

/**
 * Does what the words of a command line ask for and returns the exit status. `input` is what `batch -` reads; answers
 * go to `answers`, everything else to `notes`.
 */
int run_natctl(const std::vector<std::string> &words, std::istream &input, std::ostream &answers, std::ostream &notes);

#endif
