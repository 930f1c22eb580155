/* Commands that come line by line. */
#ifndef TOOLS_BATCH_H
#define TOOLS_BATCH_H

#include <functional>
#include <string>
#include <vector>

#include "tools/natctl/grammar.h"
#include "tools/natctl/options.h"
#include "tools/natctl/output.h"
#include "tools/natctl/pal.h"

/**
 * The words of a line: separated by blanks, quoted with ' or " where they hold any, up to a `#` that begins a word.
 * Throws usage_error_t for a quote without its end.
 */
std::vector<std::string> split_line(const std::string &line);

/** Reads the next line; false at the end. */
using next_line_fn_t = std::function<bool(std::string &line)>;

/** `shell`: lines have no numbers, and a failure ends nothing. */
enum class line_source_t : uint8_t { file, shell };

/** Carries the commands of all lines out in order; stops at the first failure unless told to keep going. Returns the
 * status of the first failure. */
status_t run_batch(command_parser_t &parser, line_source_t source, const next_line_fn_t &next_line,
                   const options_t &options, pal_t &pal, output_t &output);

#endif
