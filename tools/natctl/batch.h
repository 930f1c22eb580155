/* Runs commands that arrive line by line, from a file or the shell. */
#ifndef TOOLS_NATCTL_BATCH_H
#define TOOLS_NATCTL_BATCH_H

#include <functional>
#include <istream>
#include <string>

#include "tools/natctl/line_parser.h"
#include "tools/natctl/options.h"
#include "tools/natctl/output.h"
#include "tools/natctl/pal.h"

/** Reads the next line; false at the end. Throws usage_error_t when the input cannot be read. */
using next_line_fn_t = std::function<bool(std::string &line)>;

/** Reads the lines of a stream, which must outlive the returned function. Errors begin with `name`. */
next_line_fn_t lines_of(std::istream &stream, const usage_error_t &name);

struct line_source_t {
    usage_error_t name; /* errors of the input begin with it */
    /* False: a backslash at the end of a line joins the next line to it. True: lines have no numbers, a failure does
     * not stop the batch, and each line is answered before the next one is read. */
    bool is_shell = false;
};

/** Runs the commands of all lines in order. It stops at the first failure unless told to keep going, and always when
 * the server's process has ended. At an interrupt it waits for the outstanding commands; a second interrupt kills
 * natctl. Returns the status of the first failure. */
status_t run_batch(line_parser_t &parser, const line_source_t &source, const next_line_fn_t &next_line,
                   const options_t &options, pal_t &pal, output_t &output);

#endif
