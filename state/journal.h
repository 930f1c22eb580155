/*
 * A journal: groups of lines in a file, each durable or refused.
 *
 * The file begins with a line that names its format. Lines follow in groups, each closed by a line of its own,
 * `= LINES CRC32`, whose checksum covers the lines of the group. The first group is a snapshot. `commit` writes and
 * syncs a group as a whole, so a crash leaves every group that was committed and perhaps a piece of one that was not. A
 * snapshot replaces the file: it is written beside it as FILE.new, synced and renamed, and the directory is synced.
 *
 * After a failed write or sync, nobody knows what the file holds behind its last committed group. The journal then
 * appends nothing more to that file: every commit fails until one has written a full snapshot to a new file.
 *
 * The caller holds the lock of the file (state/lock.h). Nothing here is thread-safe. A process that may write large
 * files ignores SIGXFSZ. A line has no line feed and does not begin with `=`.
 */
#ifndef STATE_JOURNAL_H
#define STATE_JOURNAL_H

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "state/files.h"

class journal_t {
public:
    /** Takes a line that was read; returns what is wrong with it, or an empty text. `line` lives during the call. */
    using read_fn_t = std::function<std::string(std::string_view line)>;
    using write_fn_t = std::function<void(std::string_view line)>;
    /** Writes lines that stand for everything that was ever read and appended. */
    using snapshot_fn_t = std::function<void(const write_fn_t &write)>;

    /**
     * @param formats the first line of the files that are written, then those of older files whose lines can be read
     * @param snapshot is called during open and commit
     */
    journal_t(std::string path, std::vector<std::string> formats, snapshot_fn_t snapshot,
              files_t &files = files_t::system());
    ~journal_t() { close(); }
    journal_t(const journal_t &) = delete;
    journal_t &operator=(const journal_t &) = delete;

    /**
     * Reads every line that was committed and writes a snapshot, which checks that changes can be saved; where there is
     * no room for one, it writes an empty group behind the file. A file that does not exist is made with mode 0600. A
     * file that can be read but not written opens all the same; then `error` is set. To be called once.
     * @return why the journal cannot be used, with the file's name; lines may have been read by then. Refused are: a
     * file that is not regular, belongs to another user or can be written by others; none of the formats; damage before
     * the last group; a line that `read` refuses; a new file that cannot be made.
     */
    std::string open(const read_fn_t &read);
    /** Reads as `open` does and changes nothing, so it needs no lock. A group that is being written is left out.
     * Instead of open. */
    std::string look(const read_fn_t &read);
    /** What `open` left out because it was no whole group, and where a copy of the file is (FILE.damaged). */
    const std::vector<std::string> &notes() const { return notes_; }

    /** Adds a line to the group that the next commit writes. */
    void append(std::string_view line);
    /** Whether a commit has something to do: lines were appended, or an error stands. */
    bool is_unsaved() const { return group_lines_ != 0 || !error_.empty(); }
    /**
     * Makes everything that was ever appended durable. It appends a group, or writes a snapshot when the file is longer
     * than 64 KiB and twice as long as its last snapshot, or the last try of one. While an error stands it writes a
     * snapshot, and after one that took long to fail it refuses for ten times as long without trying.
     * @return the error that stands, with the file's name; empty when everything is durable.
     */
    std::string commit();
    /** Why nothing is durable since the last successful commit; empty while commits succeed. */
    const std::string &error() const { return error_; }
    /** Why the last snapshot that was due could not be written, while groups are still appended; empty if it could. */
    const std::string &warning() const { return warning_; }

private:
    std::string load(const read_fn_t &read);
    std::string read_file(std::string &text);
    std::string take_groups(std::string_view groups_text, const read_fn_t &read);
    void set_damaged_aside();
    std::string begin_writing();
    bool write_all(int fd, std::string_view text, uint64_t at);
    bool continue_file();
    std::string append_group();
    std::string write_snapshot();
    std::string try_again();
    std::string refuse(const std::string &error);
    void close();

    const std::string path_;
    const std::vector<std::string> formats_;
    const snapshot_fn_t snapshot_;
    files_t &files_;
    int fd_ = -1;        /* of the file that groups are appended to; none while an error stands */
    mode_t mode_ = 0600; /* of the file, kept by its successors */
    std::string group_;  /* appended and not committed */
    uint64_t group_lines_ = 0;
    uint64_t bytes_ = 0;       /* of the file; 0: there is none */
    uint64_t snapshot_at_ = 0; /* bytes of the file above which a snapshot is due */
    std::string last_group_;   /* while opening: the file's last bytes; empty if that group is its snapshot */
    uint64_t dropped_lines_ = 0;
    std::vector<std::string> notes_;
    std::string warning_;
    std::string error_;
    uint64_t retry_at_ms_ = 0; /* no snapshot is tried before, while an error stands */
};

#endif
