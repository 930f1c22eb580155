/*
 * Lines that are kept: a file with a snapshot and, behind it, what was appended since.
 *
 * The file begins with a line that names its format. Lines follow in groups, each closed by a line of its own,
 * `= LINES CRC32`, whose checksum covers the lines of the group; the first group is the snapshot. A group is written
 * and synced as a whole, so a process that is killed, or a machine that stops, leaves all groups that were committed,
 * and behind them perhaps a piece of one that was not. The file is replaced only by one that is complete and synced,
 * which is written beside it as FILE.new.
 *
 * One process has a journal at a time; FILE.lock, which stays, is what it locks. Nothing here is thread-safe. A process
 * that may write large files ignores SIGXFSZ. A line has no line feed and does not begin with `=`.
 */
#ifndef CONFIG_JOURNAL_H
#define CONFIG_JOURNAL_H

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

class journal_t {
public:
    /** Takes a line back; returns what is wrong with it, empty when nothing is. `line` lives during the call. */
    using read_fn_t = std::function<std::string(std::string_view line)>;
    using write_fn_t = std::function<void(std::string_view line)>;
    /** Hands over lines that stand for all that were appended. */
    using snapshot_fn_t = std::function<void(const write_fn_t &write)>;
    /** Tells how many lines a snapshot would have, more or less. */
    using count_fn_t = std::function<uint64_t()>;

    /** `formats` are first lines of files: of the one that is written, and of older ones whose lines can be read; at
     * least one. The snapshot is taken during open and commit. Without `count` every snapshot is taken to be
     * worth its writing. */
    journal_t(std::string path, std::vector<std::string> formats, snapshot_fn_t snapshot, count_fn_t count = {});
    ~journal_t();
    journal_t(const journal_t &) = delete;
    journal_t &operator=(const journal_t &) = delete;

    /**
     * Takes the lock, hands over every line that was committed, and writes a snapshot, or an empty group behind a long
     * file that is not worth one, which shows that changes can be kept; a file that is not there is made, with mode
     * 0600. Where there is room for no snapshot beside the file, it goes on behind the groups that are there, with a
     * warning. To be called once.
     * @return what went wrong, with the file's name; empty when nothing did. The file is as it was then, though lines
     *         may have been handed over. Wrong are: a journal that another process has, anything but a regular file of
     *         one of the formats, damage before its last group, a line that `read` does not take, and every failure to
     * read or write.
     */
    std::string open(const read_fn_t &read);
    /** Hands the lines over as open does, and leaves everything else alone: another process may have the journal and
     * write to it, and what it has not committed is left out. Instead of open. */
    std::string look(const read_fn_t &read);
    /** Whether open failed because another process has the journal. */
    bool is_taken() const { return is_taken_; }
    /** Lines at the end that are no whole group, which open left out: most likely nobody was told that they were
     * committed. If there are any, the file as it was is kept as FILE.damaged. */
    uint64_t dropped_lines() const { return dropped_lines_; }
    /** Why the last snapshot that was due could not be written, while groups still can; empty: it could. */
    const std::string &warning() const { return warning_; }

    /** Adds a line to the group that the next commit writes. */
    void append(std::string_view line);
    /** Whether a commit has something to do: lines were appended, or the last commit failed. */
    bool is_unsaved() const { return group_lines_ != 0 || is_torn_; }
    /**
     * Brings what was appended to the disk. Writes a new snapshot instead when the file, if it is longer than 64 KiB,
     * has become twice as long as its last one, or the last try, and the new one would have half of its lines at most;
     * and after a failure. Of a snapshot that took long to fail there is no next one for ten times as long.
     * @return what went wrong, with the file's name; empty when everything that was ever appended is on disk.
     */
    std::string commit();

private:
    std::string lock();
    std::string load(const read_fn_t &read);
    std::string take_groups(std::string_view text, const read_fn_t &read);
    void keep_damaged() const;
    std::string rewrite();
    std::string try_again();
    std::string append_group();
    bool is_worth_rewriting() const;
    bool can_go_on();
    /** What is said of a call that has just failed. */
    static std::string failure(const std::string &path);

    const std::string path_;
    const std::vector<std::string> formats_;
    const snapshot_fn_t snapshot_;
    const count_fn_t count_;
    int lock_fd_ = -1;
    int fd_ = -1;        /* of the file, at its end */
    mode_t mode_ = 0600; /* that the file keeps */
    std::string group_;  /* appended and not committed */
    uint64_t group_lines_ = 0;
    uint64_t dropped_lines_ = 0;
    uint64_t bytes_ = 0;      /* of the file; 0: there is none */
    uint64_t lines_ = 0;      /* in its groups */
    uint64_t rewrite_at_ = 0; /* bytes of the file above which a snapshot is due */
    std::string warning_;
    std::string last_error_; /* of a snapshot, while the file is torn */
    std::chrono::steady_clock::time_point retry_at_{};
    bool is_of_this_format_ = false;
    bool is_taken_ = false;
    bool is_torn_ = false; /* what stands behind the last committed group is unknown: only a snapshot helps */
};

#endif
