/*
 * The two notations of documents. Readers report all errors of a text at once. After an error the document is
 * undefined. Readers do not settle the document.
 *
 * The first notation is lines. Each line is a command of natctl that adds or sets, in any order:
 *
 *     # nat64 configuration version 1
 *     pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.254
 *
 * The comment with the version may be missing if there is a command. The second notation is JSON. It has the same
 * fields by their names, and their values as numbers or as texts that an option takes:
 *
 *     {"version":1,"items":{"pool":[{"id":1,"param":1,"start":"192.0.2.1","end":"192.0.2.254"}]}}
 */
#ifndef CONFIG_NOTATION_H
#define CONFIG_NOTATION_H

#include <functional>
#include <string>
#include <string_view>

#include "config/document.h"
#include "config/problem.h"

constexpr uint32_t document_version = 1;
constexpr std::string_view version_mark = "# nat64 configuration version ";

/* Parse a text. False if it is not a document of this version; then the document is undefined. */
bool read_lines(std::string_view text, document_t &document, problems_t &problems);
bool read_json(std::string_view text, document_t &document, problems_t &problems);

/*
 * Writers of a settled document. The same items give the same bytes, and parsing them gives the same items. The order
 * of the items is one in which an empty server accepts them, so the lines can be used as a batch. Fields with their
 * default values are left out.
 */

std::string write_lines(const document_t &document);
/** Calls `write` with the parts of the same text, in order. A part is valid during the call. */
void write_lines(const document_t &document, const std::function<void(std::string_view part)> &write);
std::string write_json(const document_t &document);

/** The line of a command, without a line feed: `pool del --id 1`. */
std::string command_line(const record_family_t &family, uint32_t op, const void *record);
/** Appends the same to `out`. */
void append_command_line(std::string &out, const record_family_t &family, uint32_t op, const void *record);

#endif
