/* Files that are read as a whole. */
#ifndef STATE_READ_FILE_H
#define STATE_READ_FILE_H

#include <optional>
#include <string>

/** Text of a file; nothing, with `error` filled, when it cannot be read. */
std::optional<std::string> read_file(const std::string &path, std::string &error);

#endif
