/* Replaces whole files atomically, and removes them. */
#ifndef STATE_WRITE_FILE_H
#define STATE_WRITE_FILE_H

#include <functional>
#include <string>
#include <string_view>

#include "state/files.h"

/** Writes a file with mode 0600 atomically and durably, by writing, syncing and renaming PATH.new. @return an error
 * with the name of PATH.new, or an empty text. */
std::string write_file(const std::string &path, const std::string &text, files_t &files = files_t::system());
/** Calls its argument with the parts of a file, in order. */
using content_fn_t = std::function<void(const std::function<void(std::string_view part)> &write)>;
/** Writes a file likewise, without holding all of it in memory. */
std::string write_file(const std::string &path, const content_fn_t &content, files_t &files = files_t::system());
/** Makes PATH another name of the file FROM, atomically and durably, by linking and renaming PATH.new. @return an error
 * with the name of PATH.new or PATH, or an empty text. */
std::string link_file(const std::string &from, const std::string &path, files_t &files = files_t::system());
/** Removes a file durably, if there is one. @return an error with the path, or an empty text. */
std::string remove_file(const std::string &path, files_t &files = files_t::system());

#endif
