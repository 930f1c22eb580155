/* Parses the text of a document file in either notation. */
#ifndef CONFIG_LOAD_H
#define CONFIG_LOAD_H

#include <string_view>

#include "config/document.h"
#include "config/problem.h"

/**
 * Parses and checks a document of either notation.
 * @param problems gets all errors and warnings, in the order of their lines.
 * @return a settled document, undefined after an error.
 */
document_t load_document(std::string_view text, problems_t &problems);

/**
 * Parses text that write_lines wrote from the actual state of a server. The document is not checked, because a server
 * may hold a configuration that the checks of documents refuse.
 * @param problems gets the errors if the text is not one that write_lines wrote.
 */
document_t load_written(std::string_view text, problems_t &problems);

#endif
