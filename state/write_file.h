/* Files that are written as a whole. */
#ifndef STATE_WRITE_FILE_H
#define STATE_WRITE_FILE_H

#include <string>

/** Writes a file, by way of PATH.new, that is there as a whole or not at all, synced, and this user's alone. Returns
 * what went wrong, empty when nothing did. */
std::string write_file(const std::string &path, const std::string &text);

#endif
