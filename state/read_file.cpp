/* Opens without blocking, and checks type and size before reading. Checks the size again because files can grow. */
#include "state/read_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "state/files.h"

namespace {

constexpr size_t block_bytes = size_t{1} << 16;

class file_t {
public:
    /** O_NONBLOCK: opening a FIFO does not wait for a writer. */
    explicit file_t(const std::string &path, int flags = 0)
        : fd_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | flags)) {}
    ~file_t() {
        if (fd_ >= 0) close(fd_);
    }
    file_t(const file_t &) = delete;
    file_t &operator=(const file_t &) = delete;

    int fd() const { return fd_; }

private:
    const int fd_;
};

const char *kind_of(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFDIR:
            return "a directory";
        case S_IFIFO:
            return "a pipe";
        case S_IFSOCK:
            return "a socket";
        case S_IFCHR:
        case S_IFBLK:
            return "a device";
        default:
            return "of an unknown kind";
    }
}

std::string system_error(const std::string &name) {
    return name + ": " + std::strerror(errno == 0 ? EIO : errno);
}

std::string too_long(const std::string &name, const std::string &size, size_t most) {
    return name + ": is " + size + " bytes long; the most that is read is " + std::to_string(most);
}

std::string fault_of(const std::string &name, const struct stat &status, bool is_terminal) {
    const bool is_null = S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);
    const bool has_lines = S_ISREG(status.st_mode) || S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode);
    if (has_lines || is_null || is_terminal) return "";
    return name + ": is " + kind_of(status.st_mode) + ", not a file or a pipe";
}

/** @return the status of an open file if it is regular, or nothing after setting `error`. */
std::optional<struct stat> regular_status(const file_t &file, const std::string &path, std::string &error) {
    struct stat status {};
    if (file.fd() < 0 || fstat(file.fd(), &status) != 0) {
        const char *kind = errno == ENXIO ? "a socket" : errno == ELOOP ? "a symbolic link" : nullptr;
        error = kind == nullptr ? system_error(path) : path + ": is " + kind + ", not a regular file";
        return std::nullopt;
    }
    if (S_ISREG(status.st_mode)) return status;
    error = path + ": is " + kind_of(status.st_mode) + ", not a regular file";
    return std::nullopt;
}

/** Reads a file to its end, but not much further than `most` bytes. */
std::optional<std::string> read_bytes(const file_t &file, const std::string &path, std::string &error, size_t most,
                                      size_t expected = 0) {
    std::string text;
    text.reserve(expected);
    std::string block(std::min(block_bytes, most + 1), '\0');
    while (text.size() <= most) {
        const ssize_t got = read(file.fd(), block.data(), block.size());
        if (got == 0) break;
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) {
            error = system_error(path);
            return std::nullopt;
        }
        text.append(block, 0, static_cast<size_t>(got));
    }
    return text;
}

std::optional<std::string> read_whole(const file_t &file, const struct stat &status, const std::string &path,
                                      std::string &error, size_t most) {
    const auto size = static_cast<uint64_t>(status.st_size);
    if (size > most) {
        error = too_long(path, std::to_string(size), most);
        return std::nullopt;
    }
    std::optional<std::string> text = read_bytes(file, path, error, most, size);
    if (!text || text->size() <= most) return text;
    error = too_long(path, "at least " + std::to_string(text->size()), most); /* it has grown meanwhile */
    return std::nullopt;
}

std::optional<struct stat> state_status(const file_t &file, const std::string &path, std::string &error) {
    const std::optional<struct stat> status = regular_status(file, path, error);
    if (!status) return std::nullopt;
    error = distrusted(path, *status);
    return error.empty() ? status : std::nullopt;
}

}  // namespace

std::optional<std::string> read_file(const std::string &path, std::string &error, size_t most) {
    const file_t file(path);
    const std::optional<struct stat> status = regular_status(file, path, error);
    return status ? read_whole(file, *status, path, error, most) : std::nullopt;
}

std::optional<std::string> read_state_file(const std::string &path, std::string &error) {
    const file_t file(path, O_NOFOLLOW);
    const std::optional<struct stat> status = state_status(file, path, error);
    return status ? read_whole(file, *status, path, error, most_file_bytes) : std::nullopt;
}

std::optional<state_line_t> read_state_line(const std::string &path, std::string &error) {
    const file_t file(path, O_NOFOLLOW);
    const std::optional<struct stat> status = state_status(file, path, error);
    const std::optional<std::string> text = status ? read_bytes(file, path, error, block_bytes - 1) : std::nullopt;
    if (!text) return std::nullopt;
    return state_line_t{text->substr(0, text->find('\n')), static_cast<uint64_t>(status->st_size)};
}

bool is_missing(const std::string &path) {
    std::error_code ignored;
    return std::filesystem::symlink_status(path, ignored).type() == std::filesystem::file_type::not_found;
}

std::optional<std::string> read_stream(std::istream &stream, const std::string &name, std::string &error, size_t most) {
    std::string text;
    std::string block(block_bytes, '\0');
    errno = 0;
    while (text.size() <= most &&
           (stream.read(block.data(), static_cast<std::streamsize>(block.size())) || stream.gcount() != 0)) {
        text.append(block, 0, static_cast<size_t>(stream.gcount()));
    }
    if (text.size() > most) {
        error = too_long(name, "at least " + std::to_string(text.size()), most);
        return std::nullopt;
    }
    if (stream.eof() && !stream.bad()) return text;
    error = system_error(name);
    return std::nullopt;
}

std::string line_input_fault(const std::string &path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) return system_error(path);
    const bool is_terminal = S_ISCHR(status.st_mode) && isatty(file_t(path).fd()) != 0;
    return fault_of(path, status, is_terminal);
}

std::string line_input_fault(int fd, const std::string &name) {
    struct stat status {};
    if (fstat(fd, &status) != 0) return system_error(name);
    return fault_of(name, status, isatty(fd) != 0);
}

bool is_open_to_others(const std::string &path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && (status.st_mode & (S_IRWXG | S_IRWXO)) != 0;
}
