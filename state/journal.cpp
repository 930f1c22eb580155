/*
 * Parsing, opening, appending and snapshots of a journal. The comments of `continue_file`, `write_snapshot` and
 * `refuse` say what a failed write, sync or rename leaves behind, and why the next step is safe then.
 */
#include "state/journal.h"

#include <fcntl.h>
#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "fwx_host/loop.h"

namespace {

constexpr uint64_t least_snapshot_bytes = 1U << 16; /* a shorter file is not worth a new snapshot */
constexpr std::string_view closing_mark = "= ";

/** The line that closes a group. */
std::string closing(std::string_view lines, uint64_t count) {
    const auto *bytes = reinterpret_cast<const Bytef *>(lines.data());
    char text[40];
    snprintf(text, sizeof text, "= %llu %08lx\n", static_cast<unsigned long long>(count),
             crc32_z(0, bytes, lines.size()));
    return text;
}

/** Length of the first line of a text, with its line feed, if it is one of the formats; else 0. */
size_t head_of(std::string_view text, const std::vector<std::string> &formats) {
    const size_t length = text.find('\n');
    const bool is_known = length != std::string_view::npos &&
                          std::find(formats.begin(), formats.end(), text.substr(0, length)) != formats.end();
    return is_known ? length + 1 : 0;
}

/** Parses the groups of a file. */
class groups_t {
public:
    /** `text` is the file behind its first line. */
    explicit groups_t(std::string_view text) : rest_(text) {}

    /** Moves to the next group. False at the end, and if the next group is incomplete or its checksum is wrong. */
    bool next() {
        lines_ = rest_;
        first_ = lines_taken_ + 1;
        count_ = 0;
        for (std::string_view line; take_line(line); ++count_) {
            if (line.substr(0, closing_mark.size()) != closing_mark) continue;
            lines_ = lines_.substr(0, static_cast<size_t>(line.data() - lines_.data()));
            /* If there are more lines than the closing line says, the closing line of an earlier group is missing. */
            is_unfinished_ = rest_.empty() && std::strtoull(line.data() + closing_mark.size(), nullptr, 10) >= count_;
            return closing(lines_, count_) == std::string(line) + "\n";
        }
        count_ += rest_.empty() ? 0 : 1;
        is_unfinished_ = true;
        return false;
    }
    std::string_view lines() const { return lines_; }
    /** The bytes behind the last line that `next` has read. */
    std::string_view rest() const { return rest_; }
    uint64_t count() const { return count_; }
    /** After `next` has returned false: true if the rest can be a last group that was only partly written. */
    bool is_unfinished() const { return is_unfinished_; }
    /** Number of the group's first line in the file, whose first line is 1. */
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

journal_t::journal_t(std::string path, std::vector<std::string> formats, snapshot_fn_t snapshot, files_t &files)
    : path_(std::move(path)), formats_(std::move(formats)), snapshot_(std::move(snapshot)), files_(files) {}

/* --- Opening --- */

std::string journal_t::open(const read_fn_t &read) {
    std::string error = load(read);
    if (!error.empty()) return error;
    if (dropped_lines_ != 0) set_damaged_aside();
    error = begin_writing();
    last_group_ = {};
    return error;
}

std::string journal_t::begin_writing() {
    files_.remove(path_ + ".new"); /* left by a killed process; frees its disk space */
    std::string error = write_snapshot();
    const bool is_new = bytes_ == 0;
    if (error.empty() || is_new) return error;
    if (error_.empty() && continue_file()) {
        warning_ = error;
    } else if (error_.empty()) {
        refuse(error);
    }
    return "";
}

std::string journal_t::look(const read_fn_t &read) {
    return load(read);
}

std::string journal_t::load(const read_fn_t &read) {
    std::string text;
    std::string error = read_file(text);
    if (!error.empty() || bytes_ == 0) return error;
    const size_t head = head_of(text, formats_);
    if (head == 0) return path_ + ": does not begin with " + formats_.front();
    return take_groups(std::string_view(text).substr(head), read);
}

/** Reads the file. Stops early if the file has none of the formats. */
std::string journal_t::read_file(std::string &text) {
    std::string not_regular = path_ + ": not a regular file";
    if (!can_name_file(path_)) return not_regular;
    const int fd = files_.open(path_, O_RDONLY);
    if (fd < 0 && errno == ENOENT) return "";
    if (fd < 0) return errno == ELOOP ? not_regular : file_error(path_);
    struct stat status {};
    std::string error = files_.stat(fd, status) == 0 ? distrusted(path_, status) : file_error(path_);
    bool is_at_end = !error.empty();
    while (!is_at_end) {
        char block[1 << 16];
        const ssize_t now = files_.read(fd, block, sizeof block, static_cast<off_t>(text.size()));
        if (now < 0) error = file_error(path_);
        text.append(block, now > 0 ? static_cast<size_t>(now) : 0);
        is_at_end = now <= 0 || head_of(text, formats_) == 0;
    }
    files_.close(fd);
    mode_ = status.st_mode & 0777;
    bytes_ = std::max<uint64_t>(text.size(), 1); /* an empty file is a file */
    snapshot_at_ = std::max(2 * bytes_, least_snapshot_bytes);
    return error;
}

std::string journal_t::take_groups(std::string_view groups_text, const read_fn_t &read) {
    groups_t groups(groups_text);
    size_t count = 0;
    for (; groups.next(); ++count) {
        uint64_t number = groups.first_line_number();
        for (std::string_view rest = groups.lines(); !rest.empty(); ++number) {
            const size_t length = rest.find('\n');
            const std::string error = read(rest.substr(0, length));
            if (!error.empty()) return path_ + ": line " + std::to_string(number) + ": " + error;
            rest.remove_prefix(length + 1);
        }
        const auto begin = static_cast<size_t>(groups.lines().data() - groups_text.data());
        const size_t end = groups_text.size() - groups.rest().size();
        if (count != 0 && groups.rest().empty()) last_group_ = groups_text.substr(begin, end - begin);
    }
    if (count == 0 || !groups.is_unfinished()) {
        return path_ + ": damaged: the lines from " + std::to_string(groups.first_line_number()) +
               " on are not valid groups";
    }
    dropped_lines_ = groups.count();
    return "";
}

void journal_t::set_damaged_aside() {
    const std::string name = path_ + ".damaged";
    files_.remove(name); /* of an earlier crash */
    const bool is_aside = files_.link(path_, name) == 0;
    const char *left_out = dropped_lines_ == 1 ? " line is not a complete group and was left out; "
                                               : " lines are not a complete group and were left out; ";
    notes_.push_back(path_ + ": the last " + std::to_string(dropped_lines_) + left_out +
                     (is_aside ? "a copy of the file is " + name : "no copy could be made: " + file_error(name)));
}

/**
 * Prepares the file that was read for appending, if that is safe. An earlier process may have failed to sync the last
 * group or the file's name. Both are then in the kernel's cache but not on disk. Therefore this function rewrites the
 * last group in place, and syncs the file and the directory, before it appends an empty group.
 */
bool journal_t::continue_file() {
    if (dropped_lines_ != 0) return false;
    fd_ = files_.open(path_, O_WRONLY);
    const bool is_sound = fd_ >= 0 && files_.write_all(fd_, last_group_, bytes_ - last_group_.size()) &&
                          files_.sync(fd_) == 0 && files_.sync_directory_of(path_) == 0;
    if (!is_sound) close();
    return is_sound && append_group().empty();
}

/* --- Writing --- */

void journal_t::append(std::string_view line) {
    if (!error_.empty()) return; /* the next snapshot will contain it */
    group_.append(line).append("\n");
    ++group_lines_;
}

std::string journal_t::commit() {
    if (!is_unsaved()) return "";
    if (!error_.empty()) return try_again();
    const uint64_t appended_bytes = bytes_ + group_.size();
    if (appended_bytes <= snapshot_at_) return append_group();
    const std::string fault = write_snapshot();
    if (fault.empty() || !error_.empty()) return error_;
    warning_ = fault;
    /* The disk may have too little room for a second file but enough for a group. */
    snapshot_at_ = 2 * appended_bytes;
    return append_group();
}

/** After an error: writes a snapshot, unless a slow attempt has failed recently. */
std::string journal_t::try_again() {
    constexpr uint64_t long_ms = 10;
    const uint64_t start = fwx_host_clock_ms();
    if (start < retry_at_ms_) return error_;
    const std::string error = write_snapshot();
    if (error.empty()) return "";
    const uint64_t end = fwx_host_clock_ms();
    retry_at_ms_ = end - start < long_ms ? end : end + 10 * (end - start);
    return refuse(error);
}

std::string journal_t::append_group() {
    group_ += closing(group_, group_lines_);
    const bool is_durable = files_.write_all(fd_, group_, bytes_) && files_.sync(fd_) == 0;
    if (!is_durable) return refuse(file_error(path_));
    bytes_ += group_.size();
    group_.clear();
    group_lines_ = 0;
    return "";
}

/**
 * Replaces the file by a snapshot and clears the error. If this fails before the rename, the file is unchanged, and
 * only the return value reports the failure. Once the rename was tried, it is unknown which of the two files a crash
 * would leave. A failure then sets `error_`, so nothing is appended any more.
 */
std::string journal_t::write_snapshot() {
    std::string lines;
    uint64_t count = 0;
    snapshot_([&](std::string_view line) {
        lines.append(line).append("\n");
        ++count;
    });
    const std::string text = formats_.front() + "\n" + lines + closing(lines, count);

    const std::string name = path_ + ".new";
    files_.remove(name); /* if it could not be removed before */
    const int fd = files_.create(name, mode_);
    const bool is_written = fd >= 0 && files_.write_all(fd, text, 0) && files_.sync(fd) == 0;
    const bool is_renamed = is_written && files_.rename(name, path_) == 0;
    const bool is_durable = is_renamed && files_.sync_directory_of(path_) == 0;
    if (!is_durable) {
        std::string error = file_error(is_renamed ? path_ : name);
        if (fd >= 0) files_.close(fd);
        if (fd >= 0 && !is_renamed) files_.remove(name);
        return is_written ? refuse(error) : error;
    }
    close();
    fd_ = fd;
    bytes_ = text.size();
    snapshot_at_ = std::max(2 * bytes_, least_snapshot_bytes);
    group_.clear();
    group_lines_ = 0;
    warning_.clear();
    error_.clear();
    return "";
}

/** Sets the error, which only a snapshot clears. Closes the file, so that nothing can be appended to it. */
std::string journal_t::refuse(const std::string &error) {
    close();
    group_.clear();
    group_lines_ = 0;
    warning_.clear();
    error_ = error;
    return error;
}

void journal_t::close() {
    if (fd_ >= 0) files_.close(fd_);
    fd_ = -1;
}
