/*
 * Reads state files, and files and standard input that a user has named. The name may be that of a FIFO, a device or a
 * huge file. Therefore nothing here waits for something other than a regular file, and sizes are limited.
 */
#ifndef STATE_READ_FILE_H
#define STATE_READ_FILE_H

#include <cstddef>
#include <cstdint>
#include <istream>
#include <optional>
#include <string>

constexpr size_t most_file_bytes = size_t{256} << 20;
constexpr size_t most_certificate_bytes = size_t{1} << 20;
constexpr size_t most_password_bytes = size_t{64} << 10;

/** Reads a regular file of at most `most` bytes. @return its text, or nothing after setting `error`. */
std::optional<std::string> read_file(const std::string &path, std::string &error, size_t most = most_file_bytes);
/** Reads a stream to its end, likewise. `error` begins with `name`. */
std::optional<std::string> read_stream(std::istream &stream, const std::string &name, std::string &error,
                                       size_t most = most_file_bytes);

/** Reads a state file, likewise, but only if no other user can change it (`distrusted` in state/files.h). It is not
 * read through a symbolic link. */
std::optional<std::string> read_state_file(const std::string &path, std::string &error);

struct state_line_t {
    std::string line;        /* without its line feed, and cut after 64 KiB */
    uint64_t file_bytes = 0; /* size of the whole file */
};
/** Reads the first line of a state file of any size, likewise. */
std::optional<state_line_t> read_state_line(const std::string &path, std::string &error);
/** True if nothing has that name, not even a dangling symbolic link. */
bool is_missing(const std::string &path);

/**
 * Checks that a file or descriptor can be read line by line. Regular files, pipes, sockets, terminals and /dev/null
 * can. Other devices cannot, because some of them never end.
 * @return an empty text, or an error with the name.
 */
std::string line_input_fault(const std::string &path);
std::string line_input_fault(int fd, const std::string &name);

/** True if users other than the owner have any permission on a file. False if its mode cannot be read. */
bool is_open_to_others(const std::string &path);

#endif
