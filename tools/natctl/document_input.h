/* Documents that a command is given, and what is wrong with them. */
#ifndef TOOLS_NATCTL_DOCUMENT_INPUT_H
#define TOOLS_NATCTL_DOCUMENT_INPUT_H

#include <cstddef>
#include <string>

#include "config/document.h"
#include "config/problem.h"
#include "state/read_file.h"
#include "tools/natctl/pal.h"

/** Reads a file, or with `-` standard input. Returns what is wrong: also a text that is longer than `most` bytes. */
std::string read_text(const std::string &file, std::string &text, size_t most = most_file_bytes);

/** Says all problems; false: they have an error, and the call is refused for the file. */
bool judge(call_t &call, const std::string &file, const problems_t &problems);

/** Reads the document of a command; false: the call says what is wrong. */
bool read_document(call_t &call, const std::string &file, document_t &document, problems_t &problems);

/** As an array of objects. */
json_t problems_json(const problems_t &problems);

#endif
