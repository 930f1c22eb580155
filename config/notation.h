/*
 * How documents are written. Readers take all that a document may be; what is wrong with it are problems, all of them,
 * and a document with an error is of no use. Nothing is settled yet.
 *
 * Lines are commands that add or set, as natctl has them, in any order:
 *
 *     # nat64 configuration version 1
 *     pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.254
 *
 * The comment that says the version may be missing where there is a command. JSON has the same fields by their names,
 * their values as numbers or as texts that an option takes:
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

/* False: the text is no document of this version, whose items mean nothing. */
bool read_lines(std::string_view text, document_t &document, problems_t &problems);
bool read_json(std::string_view text, document_t &document, problems_t &problems);

/*
 * Writers of a settled document. The same items give the same bytes, and read back they give the same items. Items
 * stand in the order in which a server that has none takes them, so the lines are a batch for one. Fields that have
 * their initial values are left out.
 */

std::string write_lines(const document_t &document);
/** The same line by line, without line feeds and the one that says the version; each lives during the call. */
void write_lines(const document_t &document, const std::function<void(std::string_view line)> &write);
std::string write_json(const document_t &document);

/** The line of a command, without a line feed: `pool del --id 1`. */
std::string command_line(const record_family_t &family, uint32_t op, const void *record);
/** Appends the same to a text. */
void append_command_line(std::string &out, const record_family_t &family, uint32_t op, const void *record);

#endif
