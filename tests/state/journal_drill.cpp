/*
 * Kills a process that keeps a journal at random moments. Several threads of it make changes, and its writes, syncs and
 * renames fail at random. After each kill, every acknowledged change must be in the journal, and no change only in
 * part. The next process continues with the same file.
 *
 * Each writer has one entry of three lines, each with the number of its last change. Different numbers therefore show a
 * change that is there only in part.
 * usage: journal_drill KILLS [SEED]
 */
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>
#include <vector>

#include "state/journal.h"
#include "state/lock.h"

namespace {

constexpr size_t writers = 4;
constexpr size_t parts = 3;
constexpr size_t longest_line = 3000;
constexpr uint32_t longest_life_ms = 40;
constexpr const char *format = "drilled journal 1";
constexpr int status_not_made = 3;   /* a new file could not be created */
constexpr int status_not_opened = 4; /* an existing file could not be opened */

/** A message of the process to the drill, through a pipe. */
struct event_t {
    enum class kind_t : uint32_t { opened, torn, begun, acknowledged, refused };
    kind_t kind;
    uint32_t writer;
    uint64_t change;
};

/** Files whose operations fail at random. A failed sync loses the bytes that were appended since the last one. */
class failing_files_t : public files_t {
public:
    /** One operation in `one_in` fails; 0: none fails. */
    failing_files_t(uint32_t one_in, uint32_t seed) : one_in_(one_in), random_(seed) {}

    int open(const std::string &path, int flags) override {
        const int fd = files_t::open(path, flags);
        struct stat status {};
        if (fd >= 0 && fstat(fd, &status) == 0) synced_[fd] = written_[fd] = status.st_size;
        return fd;
    }
    int create(const std::string &path, mode_t mode) override {
        const int fd = fails() ? fail(ENOSPC) : files_t::create(path, mode);
        synced_[fd] = written_[fd] = 0;
        return fd;
    }
    ssize_t write(int fd, const void *bytes, size_t size, off_t at) override {
        const bool is_cut = fails();
        const ssize_t result = files_t::write(fd, bytes, is_cut ? size / 2 : size, at);
        written_[fd] = std::max(written_[fd], at + static_cast<off_t>(size));
        return is_cut ? fail(ENOSPC) : result;
    }
    int sync(int fd) override {
        if (fails()) return ftruncate(fd, synced_[fd]) == 0 ? fail(EIO) : -1;
        synced_[fd] = written_[fd];
        return files_t::sync(fd);
    }
    int sync_directory_of(const std::string &path) override {
        return fails() ? fail(EIO) : files_t::sync_directory_of(path);
    }
    int rename(const std::string &from, const std::string &to) override {
        if (!fails()) return files_t::rename(from, to);
        if (fails(2)) files_t::rename(from, to);
        return fail(EIO);
    }

private:
    bool fails() { return one_in_ != 0 && fails(one_in_); }
    bool fails(uint32_t one_in) { return random_() % one_in == 0; }
    static int fail(int error) {
        errno = error;
        return -1;
    }

    const uint32_t one_in_;
    std::mt19937 random_;
    std::map<int, off_t> synced_; /* durable bytes of a file */
    std::map<int, off_t> written_;
};

/** The entries of a journal, by writer and part. */
class entries_t {
public:
    std::string read(std::string_view line) {
        std::istringstream words{std::string(line)};
        size_t writer = writers;
        size_t part = parts;
        uint64_t change = 0;
        words >> writer >> part >> change;
        if (!words || writer >= writers || part >= parts) return "no entry";
        changes[writer][part] = change;
        return "";
    }
    void write(const journal_t::write_fn_t &write) const {
        for (size_t writer = 0; writer < writers; ++writer) {
            for (size_t part = 0; part < parts; ++part) {
                write(line(writer, part, 1));
            }
        }
    }
    std::string line(size_t writer, size_t part, size_t length) const {
        return std::to_string(writer) + " " + std::to_string(part) + " " + std::to_string(changes[writer][part]) + " " +
               std::string(length, 'x');
    }

    std::array<std::array<uint64_t, parts>, writers> changes{};
};

/** The process that is killed: several threads queue changes, and one thread commits them to the journal. */
class keeper_t {
public:
    keeper_t(const std::string &path, int told, std::mt19937 &random)
        : told_(told),
          files_(std::array{0U, 40U, 8U}[random() % 3], static_cast<uint32_t>(random())),
          random_(static_cast<uint32_t>(random())),
          is_new_(!std::filesystem::exists(path)),
          lock_(path, "journal_drill"),
          journal_(
              path, {format}, [this](const auto &write) { entries_.write(write); }, files_) {}

    int run() {
        if (!lock_.take(std::chrono::seconds(10)).empty()) return status_not_opened;
        const std::string error = journal_.open([this](std::string_view line) { return entries_.read(line); });
        if (!error.empty()) return is_new_ ? status_not_made : status_not_opened;
        tell({event_t::kind_t::opened, 0, 0});
        if (!journal_.notes().empty()) tell({event_t::kind_t::torn, 0, 0});
        for (uint32_t writer = 0; writer < writers; ++writer) {
            std::thread([this, writer] { write_changes(writer); }).detach();
        }
        for (;;) {
            commit_changes();
        }
    }

private:
    struct change_t {
        uint32_t writer;
        uint64_t number;
    };

    /** Sends a message. Needs no lock, because a short write to a pipe is atomic. */
    void tell(const event_t &event) const {
        if (write(told_, &event, sizeof event) != sizeof event) _exit(1);
    }

    void write_changes(uint32_t writer) {
        for (uint64_t number = entries_.changes[writer][0] + 1;; ++number) {
            tell({event_t::kind_t::begun, writer, number});
            std::unique_lock lock(mutex_);
            waiting_.push_back({writer, number});
            has_changed_.notify_all();
            has_changed_.wait(lock, [&] { return answered_[writer] == number; });
        }
    }

    void commit_changes() {
        std::vector<change_t> changes;
        {
            std::unique_lock lock(mutex_);
            has_changed_.wait(lock, [&] { return !waiting_.empty(); });
            changes.swap(waiting_);
        }
        for (const change_t &change : changes) {
            for (size_t part = 0; part < parts; ++part) {
                entries_.changes[change.writer][part] = change.number;
                journal_.append(entries_.line(change.writer, part, random_() % longest_line));
            }
        }
        const bool is_durable = journal_.commit().empty();
        for (const change_t &change : changes) {
            tell({is_durable ? event_t::kind_t::acknowledged : event_t::kind_t::refused, change.writer, change.number});
        }
        const std::lock_guard lock(mutex_);
        for (const change_t &change : changes) {
            answered_[change.writer] = change.number;
        }
        has_changed_.notify_all();
    }

    const int told_;
    failing_files_t files_;
    std::mt19937 random_;
    const bool is_new_;
    entries_t entries_; /* writers read it only before their first change */
    lock_t lock_;
    journal_t journal_;
    std::mutex mutex_;
    std::condition_variable has_changed_;
    std::vector<change_t> waiting_;
    std::array<uint64_t, writers> answered_{};
};

class drill_t {
public:
    drill_t(std::string path, uint32_t seed) : path_(std::move(path)), random_(seed) {}

    /** Starts a process, kills it after a while, and returns true if its journal is correct. */
    bool round() {
        int told[2];
        if (pipe(told) != 0) return false;
        const auto seed = static_cast<uint32_t>(random_());
        const pid_t child = fork();
        if (child == 0) {
            close(told[0]);
            std::mt19937 random(seed);
            _exit(keeper_t(path_, told[1], random).run());
        }
        close(told[1]);
        listen(told[0], child);
        close(told[0]);
        int status = 0;
        waitpid(child, &status, 0);
        const bool was_not_made = WIFEXITED(status) && WEXITSTATUS(status) == status_not_made;
        if (!was_not_made && !WIFSIGNALED(status)) {
            fprintf(stderr, "the keeper could not open the journal\n");
            return false;
        }
        return check();
    }
    bool has_seen_all() const {
        return count(event_t::kind_t::acknowledged) != 0 && count(event_t::kind_t::refused) != 0;
    }
    void report(unsigned kills) const {
        printf(
            "%u kills: %llu changes acknowledged, %llu refused, %llu torn files, %llu snapshots seen; "
            "no acknowledged change missing, none there by half\n",
            kills, count(event_t::kind_t::acknowledged), count(event_t::kind_t::refused), count(event_t::kind_t::torn),
            static_cast<unsigned long long>(replaced_));
    }

private:
    unsigned long long count(event_t::kind_t kind) const { return counts_[static_cast<size_t>(kind)]; }

    /** Kills the process a random time after it has opened the journal, and reads all its messages. */
    void listen(int fd, pid_t child) {
        using clock = std::chrono::steady_clock;
        auto end = clock::now() + std::chrono::seconds(10);
        bool is_killed = false;
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - clock::now()).count();
            if (left <= 0 && !is_killed) is_killed = kill(child, SIGKILL) == 0;
            pollfd readable{fd, POLLIN, 0};
            if (poll(&readable, 1, is_killed ? -1 : static_cast<int>(std::max<long>(left, 0))) == 0) continue;
            event_t event{};
            if (read(fd, &event, sizeof event) != sizeof event) return;
            ++counts_[static_cast<size_t>(event.kind)];
            if (event.kind == event_t::kind_t::opened) {
                end = clock::now() + std::chrono::milliseconds(random_() % longest_life_ms);
            } else if (event.kind == event_t::kind_t::begun) {
                begun_[event.writer] = event.change;
            } else if (event.kind == event_t::kind_t::acknowledged) {
                acknowledged_[event.writer] = event.change;
            }
        }
    }

    bool check() {
        entries_t entries;
        journal_t journal(path_, {format}, [](const auto &) {});
        const std::string error = journal.look([&](std::string_view line) { return entries.read(line); });
        if (!error.empty()) {
            fprintf(stderr, "%s\n", error.c_str());
            return false;
        }
        struct stat status {};
        if (stat(path_.c_str(), &status) == 0 && status.st_ino != inode_) ++replaced_;
        inode_ = status.st_ino;
        bool is_good = true;
        for (size_t writer = 0; writer < writers; ++writer) {
            for (const uint64_t change : entries.changes[writer]) {
                const bool is_whole = change == entries.changes[writer][0];
                const bool is_right = is_whole && change >= acknowledged_[writer] && change <= begun_[writer];
                if (is_right) continue;
                is_good = false;
                fprintf(stderr, "writer %zu: change %llu is in the journal, %llu was acknowledged, %llu begun\n",
                        writer, static_cast<unsigned long long>(change),
                        static_cast<unsigned long long>(acknowledged_[writer]),
                        static_cast<unsigned long long>(begun_[writer]));
            }
        }
        return is_good;
    }

    const std::string path_;
    std::mt19937 random_;
    std::array<uint64_t, writers> begun_{};
    std::array<uint64_t, writers> acknowledged_{};
    std::array<unsigned long long, 5> counts_{};
    uint64_t replaced_ = 0; /* rounds in which a snapshot has replaced the file */
    ino_t inode_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
    const auto kills = static_cast<unsigned>(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 0);
    const auto seed = static_cast<uint32_t>(argc > 2 ? std::strtoul(argv[2], nullptr, 10) : std::random_device()());
    if (kills == 0) {
        fprintf(stderr, "usage: journal_drill KILLS [SEED]\n");
        return 2;
    }
    char directory[] = "/tmp/journal_drill.XXXXXX";
    if (mkdtemp(directory) == nullptr) return 1;
    printf("seed %u\n", seed);
    drill_t drill(std::string(directory) + "/journal", seed);
    bool is_good = true;
    for (unsigned round = 0; is_good && round < kills; ++round) {
        is_good = drill.round();
        if (!is_good) fprintf(stderr, "round %u of seed %u; the journal is in %s\n", round, seed, directory);
    }
    if (!is_good) return 1;
    std::filesystem::remove_all(directory);
    drill.report(kills);
    if (drill.has_seen_all()) return 0;
    fprintf(stderr, "the drill has tried too little\n");
    return 1;
}
