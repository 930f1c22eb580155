/*
 * A journal: a file of groups of lines. Each group is committed as a whole or not at all.
 *
 * The file begins with a line that names its format. Groups of lines follow. Each group ends with the line
 * `= LINES CRC32`, and its checksum covers the lines of the group. The first group is a snapshot. `commit` writes and
 * syncs a whole group, so a crash leaves every committed group, and perhaps a part of one that was not committed. A
 * snapshot replaces the file: it is written to FILE.new, synced and renamed, and the directory is synced.
 *
 * After a failed write or sync, the content of the file behind its last committed group is unknown. The journal then
 * appends nothing more to that file: every commit fails until one has written a full snapshot to a new file.
 *
 * The caller must hold the lock of the file (state/lock.h). Nothing here is thread-safe. A process that may write large
 * files must ignore SIGXFSZ. A line must not contain a line feed or begin with `=`.
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
    /** Takes a line that was read. Returns an error or an empty text. `line` is valid during the call. */
    using read_fn_t = std::function<std::string(std::string_view line)>;
    using write_fn_t = std::function<void(std::string_view line)>;
    /** Writes lines that replace all lines that were read and appended so far. */
    using snapshot_fn_t = std::function<void(const write_fn_t &write)>;

    /**
     * @param formats first lines of files: the one to write, then older ones that can be read too
     * @param snapshot called by `open` and `commit`
     */
    journal_t(std::string path, std::vector<std::string> formats, snapshot_fn_t snapshot,
              files_t &files = files_t::system());
    ~journal_t() { close(); }
    journal_t(const journal_t &) = delete;
    journal_t &operator=(const journal_t &) = delete;

    /**
     * Reads every committed line, then writes a snapshot to check that changes can be saved. If there is no room for a
     * snapshot, it appends an empty group instead. A missing file is created with mode 0600. A file that can be read
     * but not written opens all the same; then `error` is set. To be called once.
     * @return an empty text, or an error with the file's name if the journal cannot be used; some lines may have been
     * read by then. It is an error if the file is not regular, belongs to another user or is writable by others; if it
     * has none of the formats; if a part before the last group is damaged; if `read` returns an error; and if a new
     * file cannot be created.
     */
    std::string open(const read_fn_t &read);
    /** Reads as `open` does, but changes nothing and so needs no lock. Leaves out a group that is being written. To be
     * called instead of `open`. */
    std::string look(const read_fn_t &read);
    /** Notes about lines that `open` left out because their group is not complete. A note names the copy of the file
     * (FILE.damaged). */
    const std::vector<std::string> &notes() const { return notes_; }

    /** Adds a line to the group that the next commit writes. */
    void append(std::string_view line);
    /** True if `commit` has something to do: lines were appended, or the last commit failed. */
    bool is_unsaved() const { return group_lines_ != 0 || !error_.empty(); }
    /**
     * Makes all lines that were appended durable. It appends a group. If the file has become longer than 64 KiB and
     * twice as long as at the last snapshot or the last attempt at one, it writes a snapshot instead. After an error it
     * always writes a snapshot. If an attempt took long to fail, commits fail without an attempt for ten times as long.
     * @return an empty text if everything is durable, else the error with the file's name.
     */
    std::string commit();
    /** The error of the last commit; empty if it succeeded. */
    const std::string &error() const { return error_; }
    /** Why the last snapshot failed although groups can still be appended; empty if it succeeded. */
    const std::string &warning() const { return warning_; }

private:
    std::string load(const read_fn_t &read);
    std::string read_file(std::string &text);
    std::string take_groups(std::string_view groups_text, const read_fn_t &read);
    void set_damaged_aside();
    std::string begin_writing();
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
    int fd_ = -1;        /* of the file; closed while there is an error */
    mode_t mode_ = 0600; /* of the file and of those that replace it */
    std::string group_;  /* lines appended since the last commit */
    uint64_t group_lines_ = 0;
    uint64_t bytes_ = 0;       /* size of the file; 0: there is no file */
    uint64_t snapshot_at_ = 0; /* size above which the next commit writes a snapshot */
    std::string last_group_;   /* while opening: the last group of the file; empty if that is the snapshot */
    uint64_t dropped_lines_ = 0;
    std::vector<std::string> notes_;
    std::string warning_;
    std::string error_;
    uint64_t retry_at_ms_ = 0; /* after an error: no attempt at a snapshot before this time */
};

#endif
