/* The file operations of this folder, virtual so that a test can make each of them fail or simulate a crash. */
#ifndef STATE_FILES_H
#define STATE_FILES_H

#include <sys/stat.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/** The operating system's files. Operations return -1 and set errno when they fail. Opening, reading and writing are
 * repeated after an interruption by a signal. */
class files_t {
public:
    files_t() = default;
    virtual ~files_t() = default;
    files_t(const files_t &) = delete;
    files_t &operator=(const files_t &) = delete;

    /** Opens a file that exists, without following a symbolic link and without waiting for another process. */
    virtual int open(const std::string &path, int flags);
    /** Creates a file that must not exist yet, for writing, with exactly this mode. */
    virtual int create(const std::string &path, mode_t mode);
    virtual void close(int fd);
    virtual int stat(int fd, struct stat &status);
    virtual ssize_t read(int fd, void *to, size_t size, off_t at);
    /** May write less than `size`. */
    virtual ssize_t write(int fd, const void *bytes, size_t size, off_t at);
    /** Writes all of a text. */
    bool write_all(int fd, std::string_view text, uint64_t at);
    /** Makes the content of a file durable. */
    virtual int sync(int fd);
    /** Makes the names in the directory of `path` durable. */
    virtual int sync_directory_of(const std::string &path);
    virtual int rename(const std::string &from, const std::string &to);
    virtual int link(const std::string &from, const std::string &to);
    virtual int remove(const std::string &path);

    /** The only instance that callers need, because it holds no state. */
    static files_t &system();
};

/** False for an empty path and for one that ends with a slash, because the slash would follow a symbolic link. */
bool can_name_file(const std::string &path);
/**
 * Checks that only this user can change a file.
 * @return an empty text for a regular file that this user owns and no other user may write to. Otherwise an error with
 * the path.
 */
std::string distrusted(const std::string &path, const struct stat &status);
/** @return the path and the text of errno. */
std::string file_error(const std::string &path);

#endif
