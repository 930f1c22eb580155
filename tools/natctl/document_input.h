/* Reads the documents that the user gives to a command, and reports their errors. */
#ifndef TOOLS_NATCTL_DOCUMENT_INPUT_H
#define TOOLS_NATCTL_DOCUMENT_INPUT_H

#include <cstddef>
#include <string>

#include "config/document.h"
#include "config/problem.h"
#include "state/read_file.h"
#include "tools/natctl/pal.h"

/** Reads a file, or with `-` standard input. Returns an error text, empty on success. A text of more than `most` bytes
 * is an error. */
std::string read_text(const std::string &file, std::string &text, size_t most = most_file_bytes);

/** Notes all problems. False: there is an error among them, and the call is refused because of the file. */
bool judge(call_t &call, const std::string &file, const problems_t &problems);

/** Reads the document of a command. False: failed, the outcome of the call has the reason. */
bool read_document(call_t &call, const std::string &file, document_t &document, problems_t &problems);

/** The problems as an array of objects. */
json_t problems_json(const problems_t &problems);

#endif
