/*
 * Files and standard input, as a user names them. A name may be anything that the user can get at: what is no regular
 * file is not waited for, and nothing is read past a limit.
 */
#ifndef STATE_READ_FILE_H
#define STATE_READ_FILE_H

#include <cstddef>
#include <istream>
#include <optional>
#include <string>

constexpr size_t most_file_bytes = size_t{256} << 20;
constexpr size_t most_certificate_bytes = size_t{1} << 20;
constexpr size_t most_password_bytes = size_t{64} << 10;

/** Text of a regular file of at most so many bytes; nothing, with `error` filled, when it cannot be read. */
std::optional<std::string> read_file(const std::string &path, std::string &error, size_t most = most_file_bytes);
/** Text of a stream up to its end, likewise; `name` is the beginning of errors. */
std::optional<std::string> read_stream(std::istream &stream, const std::string &name, std::string &error,
                                       size_t most = most_file_bytes);

/** What keeps a file or a descriptor from being read line by line, empty: nothing. Regular files, pipes, sockets and
 * terminals can be, and so can /dev/null; other devices never end. */
std::string line_input_fault(const std::string &path);
std::string line_input_fault(int fd, const std::string &name);

/** Whether users other than its owner may read or write a file; false also when that cannot be told. */
bool is_open_to_others(const std::string &path);

#endif
