#include "config/journal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace {

constexpr uint64_t least_rewrite_bytes = 1U << 16; /* a shorter file is not worth a new snapshot */
constexpr std::string_view closing_mark = "= ";

/** The line that closes a group. */
std::string closing(std::string_view lines, uint64_t count) {
    const auto *bytes = reinterpret_cast<const Bytef *>(lines.data());
    char text[40];
    snprintf(text, sizeof text, "= %llu %08lx\n", static_cast<unsigned long long>(count),
             crc32_z(0, bytes, lines.size()));
    return text;
}

bool write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t now = write(fd, text.data(), text.size());
        if (now < 0 && errno == EINTR) continue;
        if (now < 0) return false;
        text.remove_prefix(static_cast<size_t>(now));
    }
    return true;
}

/** How long the first line of a text is if it is one of the formats; 0: it is none. */
size_t head_of(std::string_view text, const std::vector<std::string> &formats) {
    const size_t length = text.find('\n');
    const bool is_known = length != std::string_view::npos &&
                          std::find(formats.begin(), formats.end(), text.substr(0, length)) != formats.end();
    return is_known ? length + 1 : 0;
}

/** Reads a file of one of the formats, and of another one the beginning. */
bool read_file(int fd, const std::vector<std::string> &formats, std::string &text) {
    char block[1 << 16];
    for (;;) {
        const ssize_t now = read(fd, block, sizeof block);
        if (now < 0 && errno == EINTR) continue;
        if (now <= 0) return now == 0;
        text.append(block, static_cast<size_t>(now));
        if (head_of(text, formats) == 0) return true;
    }
}

bool sync_directory_of(const std::string &path) {
    const std::string directory = path.substr(0, path.rfind('/') + 1) + ".";
    const int fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool is_synced = fd >= 0 && fsync(fd) == 0;
    const int error = errno;
    if (fd >= 0) close(fd);
    errno = error;
    return is_synced;
}

/** Takes the groups of a file apart. */
class groups_t {
public:
    /** `text` is the file behind its first line. */
    explicit groups_t(std::string_view text) : rest_(text) {}

    /** Goes to the next group that is as it was written; false when there is none. */
    bool next() {
        lines_ = rest_;
        first_ = lines_taken_ + 1;
        count_ = 0;
        for (std::string_view line; take_line(line); ++count_) {
            if (line.substr(0, closing_mark.size()) != closing_mark) continue;
            lines_ = lines_.substr(0, static_cast<size_t>(line.data() - lines_.data()));
            /* More lines than it says: they begin with a group that has lost its end. */
            is_unfinished_ = rest_.empty() && std::strtoull(line.data() + closing_mark.size(), nullptr, 10) >= count_;
            return closing(lines_, count_) == std::string(line) + "\n";
        }
        count_ += rest_.empty() ? 0 : 1;
        is_unfinished_ = true;
        return false;
    }
    std::string_view lines() const { return lines_; }
    uint64_t count() const { return count_; }
    /** Whether what there is no group in can be the last one, of which not everything was written. */
    bool is_unfinished() const { return is_unfinished_; }
    /** Of the group's first line; that of the file is 1. */
    uint64_t first_line_number() const { return first_; }

private:
    bool take_line(std::string_view &line) {
        const size_t length = rest_.find('\n');
        if (length == std::string_view::npos) return false;
        line = rest_.substr(0, length);
        rest_.remove_prefix(length + 1);
        ++lines_taken_;
        return true;
    }

    std::string_view rest_;
    std::string_view lines_;
    uint64_t count_ = 0;
    uint64_t first_ = 0;
    uint64_t lines_taken_ = 1;
    bool is_unfinished_ = false;
};

}  // namespace

journal_t::journal_t(std::string path, std::vector<std::string> formats, snapshot_fn_t snapshot, count_fn_t count)
    : path_(std::move(path)), formats_(std::move(formats)), snapshot_(std::move(snapshot)), count_(std::move(count)) {}

journal_t::~journal_t() {
    for (const int fd : {fd_, lock_fd_}) {
        if (fd >= 0) close(fd);
    }
}

std::string journal_t::open(const read_fn_t &read) {
    std::string error = lock();
    if (error.empty()) error = load(read);
    if (!error.empty()) return error;
    const bool is_long = is_of_this_format_ && bytes_ > least_rewrite_bytes;
    const bool goes_on = is_long && !is_worth_rewriting() && can_go_on();
    if (goes_on && append_group().empty()) return ""; /* an empty group shows as much as a snapshot */
    error = rewrite();
    if (error.empty() || is_torn_ || (fd_ < 0 && !can_go_on())) return error;
    warning_ = error;
    return "";
}

std::string journal_t::look(const read_fn_t &read) {
    return load(read);
}

/** Opens the file that was there, if groups can stand behind it. */
bool journal_t::can_go_on() {
    if (bytes_ == 0 || dropped_lines_ != 0) return false;
    fd_ = ::open(path_.c_str(), O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC);
    return fd_ >= 0;
}

std::string journal_t::lock() {
    const std::string name = path_ + ".lock";
    lock_fd_ = ::open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (lock_fd_ >= 0 && flock(lock_fd_, LOCK_EX | LOCK_NB) == 0) return "";
    is_taken_ = lock_fd_ >= 0 && errno == EWOULDBLOCK;
    return is_taken_ ? path_ + ": another process has it" : failure(name);
}

std::string journal_t::load(const read_fn_t &read) {
    const int fd = ::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0 && errno == ENOENT) return "";
    struct stat status {};
    const bool is_known = fd >= 0 && fstat(fd, &status) == 0;
    std::string error = is_known || errno == ELOOP ? path_ + ": not a regular file" : failure(path_);
    if (is_known && S_ISREG(status.st_mode)) {
        mode_ = status.st_mode & 07777;
        bytes_ = static_cast<uint64_t>(status.st_size);
        rewrite_at_ = std::max(2 * bytes_, least_rewrite_bytes);
        std::string text;
        const bool is_read = read_file(fd, formats_, text);
        const size_t head = head_of(text, formats_);
        if (!is_read) {
            error = failure(path_);
        } else if (head != 0) {
            is_of_this_format_ = text.compare(0, head - 1, formats_.front()) == 0;
            error = take_groups(std::string_view(text).substr(head), read);
        } else {
            error = path_ + ": does not begin with " + formats_.front();
        }
    }
    if (fd >= 0) close(fd);
    return error;
}

std::string journal_t::take_groups(std::string_view text, const read_fn_t &read) {
    groups_t groups(text);
    bool has_snapshot = false;
    for (; groups.next(); has_snapshot = true) {
        lines_ += groups.count();
        uint64_t number = groups.first_line_number();
        for (std::string_view rest = groups.lines(); !rest.empty(); ++number) {
            const size_t length = rest.find('\n');
            const std::string error = read(rest.substr(0, length));
            if (!error.empty()) return path_ + ": line " + std::to_string(number) + ": " + error;
            rest.remove_prefix(length + 1);
        }
    }
    if (!has_snapshot || !groups.is_unfinished()) {
        return path_ + ": damaged: the lines from " + std::to_string(groups.first_line_number()) +
               " on are not those that were written";
    }
    dropped_lines_ = groups.count();
    const bool is_ours = lock_fd_ >= 0;
    if (is_ours && dropped_lines_ != 0) keep_damaged();
    return "";
}

void journal_t::keep_damaged() const {
    const std::string name = path_ + ".damaged";
    unlink(name.c_str());
    static_cast<void>(link(path_.c_str(), name.c_str()) == 0); /* without it the lines are left out all the same */
}

void journal_t::append(std::string_view line) {
    if (is_torn_) return; /* the snapshot will have it */
    group_.append(line).append("\n");
    ++group_lines_;
}

std::string journal_t::commit() {
    if (!is_unsaved()) return "";
    if (is_torn_) return try_again();
    const uint64_t appended_bytes = bytes_ + group_.size();
    if (appended_bytes <= rewrite_at_) return append_group();
    if (is_worth_rewriting()) {
        warning_ = rewrite();
        if (is_torn_ || warning_.empty()) return warning_;
    }
    /* There may be no room for a second file where there is some for a group. */
    rewrite_at_ = 2 * appended_bytes;
    return append_group();
}

/** What only adds is as long in a snapshot as it is here. */
bool journal_t::is_worth_rewriting() const {
    return count_ == nullptr || 2 * count_() <= lines_ + group_lines_;
}

/** Writes a snapshot after a failure. */
std::string journal_t::try_again() {
    constexpr std::chrono::milliseconds long_time{10};
    const auto start = std::chrono::steady_clock::now();
    if (start < retry_at_) return last_error_;
    last_error_ = rewrite();
    const auto end = std::chrono::steady_clock::now();
    retry_at_ = end - start < long_time ? end : end + 10 * (end - start);
    return last_error_;
}

std::string journal_t::append_group() {
    group_ += closing(group_, group_lines_);
    const bool is_saved = write_all(fd_, group_) && fdatasync(fd_) == 0;
    std::string error = is_saved ? "" : failure(path_);
    is_torn_ = !is_saved;
    bytes_ += group_.size();
    lines_ += group_lines_;
    group_.clear();
    group_lines_ = 0;
    return error;
}

std::string journal_t::rewrite() {
    std::string lines;
    uint64_t count = 0;
    snapshot_([&](std::string_view line) {
        lines.append(line).append("\n");
        ++count;
    });
    const std::string text = formats_.front() + "\n" + lines + closing(lines, count);

    const std::string name = path_ + ".new";
    unlink(name.c_str()); /* of a process that was killed */
    const int fd = ::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    const bool is_written = fd >= 0 && fchmod(fd, mode_) == 0 && write_all(fd, text) && fsync(fd) == 0;
    const bool is_in_place = is_written && rename(name.c_str(), path_.c_str()) == 0;
    const bool is_saved = is_in_place && sync_directory_of(path_);
    std::string error = is_saved ? "" : failure(is_in_place ? path_ : name);
    if (!is_in_place) {
        if (fd >= 0) close(fd);
        if (fd >= 0) unlink(name.c_str());
        return error;
    }
    if (fd_ >= 0) close(fd_);
    fd_ = fd;
    bytes_ = text.size();
    lines_ = count;
    rewrite_at_ = std::max(2 * bytes_, least_rewrite_bytes);
    is_torn_ = !is_saved;
    group_.clear();
    group_lines_ = 0;
    return error;
}

std::string journal_t::failure(const std::string &path) {
    return path + ": " + std::strerror(errno);
}
