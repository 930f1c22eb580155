/* Commands that come line by line. */
#ifndef TOOLS_NATCTL_BATCH_H
#define TOOLS_NATCTL_BATCH_H

#include <functional>
#include <istream>
#include <string>

#include "tools/natctl/line_parser.h"
#include "tools/natctl/options.h"
#include "tools/natctl/output.h"
#include "tools/natctl/pal.h"

/** Reads the next line; false at the end. Throws usage_error_t when it cannot tell what comes next. */
using next_line_fn_t = std::function<bool(std::string &line)>;

/** The lines of a stream, which must outlive what reads them; `source` is the beginning of its errors. */
next_line_fn_t lines_of(std::istream &stream, const usage_error_t &source);

/** `file`: a line that ends with a backslash goes on with the next. `shell`: lines have no numbers, a failure ends
 * nothing, and the answer to a line is there before the next one is read. */
enum class line_source_t : uint8_t { file, shell };

/** Carries the commands of all lines out in order; stops at the first failure unless told to keep going, and anyway
 * when the server's process has ended, or at an interrupt: then it waits for what is started, and a second one kills.
 * Returns the status of the first failure. */
status_t run_batch(line_parser_t &parser, line_source_t source, const next_line_fn_t &next_line,
                   const options_t &options, pal_t &pal, output_t &output);

#endif
