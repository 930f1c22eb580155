/* Documents as they lie in files. */
#ifndef CONFIG_LOAD_H
#define CONFIG_LOAD_H

#include <string_view>

#include "config/document.h"
#include "config/problem.h"

/**
 * Reads a document of either notation and checks it. Adds to `problems`, in the order of their lines, all that is wrong
 * with it and all that is worth knowing; after an error the document is of no use.
 */
document_t load_document(std::string_view text, problems_t &problems);

/** Reads what write_lines has written of a server, which may hold what no document may ask for. Adds to `problems` what
 * was not written so. */
document_t load_written(std::string_view text, problems_t &problems);

#endif
