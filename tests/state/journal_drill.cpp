/*
 * Kills a process that keeps a journal at random moments, while its writes, syncs and renames fail at random. After
 * each kill, every acknowledged change must be in the journal, and no change only in part. The next process continues
 * with the same file. A change of a writer is three lines, which it numbers, and a commit has the changes of one or
 * more writers. usage: journal_drill [KILLS [SEED]]
 */
#include <poll.h>
#include <sys/mman.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <new>
#include <numeric>
#include <random>

#include "keeper.h"
#include "tests/support/child.h"

namespace {

constexpr size_t writers = 4;
constexpr size_t parts = 3;
constexpr size_t longest_line = 3000; /* of filling, which is not part of a snapshot */
constexpr uint32_t longest_life_ms = 40;
constexpr int status_not_made = 3;   /* a new file could not be created */
constexpr int status_not_opened = 4; /* an existing file could not be opened */

/** What the processes have done so far, in memory that outlives them. */
struct record_t {
    std::array<std::atomic<uint64_t>, writers> begun{}; /* lines of each writer */
    std::array<std::atomic<uint64_t>, writers> acknowledged{};
    std::atomic<unsigned> commits{};
    std::atomic<unsigned> refusals{};
    std::atomic<unsigned> torn_files{};
};

/** Files whose operations fail at random. A failed sync loses the bytes that were appended since the last one. */
class failing_files_t : public files_t {
public:
    /** One operation in `one_in` fails; 0: none fails. */
    failing_files_t(uint32_t one_in, uint32_t seed) : one_in_(one_in), random_(seed) {}

    int open(const std::string &path, int flags) override {
        const int fd = files_t::open(path, flags);
        if (fd >= 0) synced_[fd] = size_of(fd);
        return fd;
    }
    int create(const std::string &path, mode_t mode) override {
        const int fd = fails() ? fail(ENOSPC) : files_t::create(path, mode);
        synced_[fd] = 0;
        return fd;
    }
    ssize_t write(int fd, const void *bytes, size_t size, off_t at) override {
        if (!fails()) return files_t::write(fd, bytes, size, at);
        files_t::write(fd, bytes, size / 2, at);
        return fail(ENOSPC);
    }
    int sync(int fd) override {
        if (fails()) return ftruncate(fd, synced_[fd]) == 0 ? fail(EIO) : -1;
        synced_[fd] = size_of(fd);
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
    static off_t size_of(int fd) {
        struct stat status {};
        return fstat(fd, &status) == 0 ? status.st_size : 0;
    }

    const uint32_t one_in_;
    std::mt19937 random_;
    std::map<int, off_t> synced_; /* durable bytes of a file */
};

using counts_t = std::array<uint64_t, writers>;

std::string line_of(size_t writer, uint64_t number) {
    return std::to_string(writer) + " " + std::to_string(number);
}

/** Counts the lines of each writer. They must be numbered without a gap. */
counts_t count_lines(const lines_t &lines) {
    counts_t counts{};
    for (const std::string &line : lines) {
        const size_t writer = std::strtoul(line.c_str(), nullptr, 10);
        if (writer < writers && line == line_of(writer, counts[writer])) ++counts[writer];
    }
    return counts;
}

/** The process that is killed. Writes to `ready` when the journal is open. Returns when it cannot be opened. */
int keep(const std::string &path, std::mt19937 random, record_t &record, int ready) {
    const bool is_new = !std::filesystem::exists(path);
    failing_files_t files(std::array{0U, 40U, 8U}[random() % 3], static_cast<uint32_t>(random()));
    keeper_t keeper(path, files);
    if (!keeper.open().empty()) return is_new ? status_not_made : status_not_opened;
    if (!keeper.journal().notes().empty()) ++record.torn_files;
    if (write(ready, "", 1) != 1) return status_not_opened;
    for (counts_t counts = count_lines(keeper.lines);;) {
        const size_t chosen = 1 + random() % ((1U << writers) - 1); /* a bit for each writer */
        for (size_t writer = 0; writer < writers; ++writer) {
            if ((chosen >> writer & 1) == 0) continue;
            record.begun[writer] = counts[writer] + parts;
            for (size_t part = 0; part < parts; ++part) {
                keeper.add(line_of(writer, counts[writer]++));
                keeper.add(keeper_t::filling(1 + random() % longest_line));
            }
        }
        const bool is_durable = keeper.commit().empty();
        ++(is_durable ? record.commits : record.refusals);
        for (size_t writer = 0; writer < writers && is_durable; ++writer) {
            record.acknowledged[writer] = counts[writer];
        }
    }
}

/** Whether every acknowledged change is in the journal, and none only in part. */
bool check(const std::string &path, const record_t &record) {
    keeper_t keeper(path);
    const std::string error = keeper.look();
    const counts_t counts = count_lines(keeper.lines);
    bool is_good = error.empty() && keeper.lines.size() == std::accumulate(counts.begin(), counts.end(), size_t{0});
    for (size_t writer = 0; writer < writers; ++writer) {
        const unsigned long long lines = counts[writer];
        const unsigned long long acknowledged = record.acknowledged[writer];
        const unsigned long long begun = record.begun[writer];
        if (lines % parts == 0 && lines >= acknowledged && lines <= begun) continue;
        is_good = false;
        fprintf(stderr, "writer %zu: %llu lines are in the journal, %llu were acknowledged, %llu begun\n", writer,
                lines, acknowledged, begun);
    }
    if (!is_good) fprintf(stderr, "%s: %s\n", path.c_str(), error.empty() ? "is wrong" : error.c_str());
    return is_good;
}

/** Starts a process, kills it after a while, and returns true if its journal is correct. */
bool run_round(const std::string &path, std::mt19937 &random, record_t &record) {
    const std::mt19937 random_of_child(static_cast<uint32_t>(random()));
    child_t child;
    const bool is_open = child.start([&](int ready) { _exit(keep(path, random_of_child, record, ready)); });
    if (is_open) poll(nullptr, 0, static_cast<int>(random() % longest_life_ms));
    const int status = child.end(SIGKILL);
    if (status == (is_open ? -1 : status_not_made)) return check(path, record);
    fprintf(stderr, "the keeper could not open the journal, or ended by itself\n");
    return false;
}

}  // namespace

int main(int argc, char **argv) {
    const auto kills = static_cast<unsigned>(argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 100);
    const auto seed = static_cast<uint32_t>(argc > 2 ? std::strtoul(argv[2], nullptr, 10) : std::random_device()());
    char directory[] = "/tmp/journal_drill.XXXXXX";
    void *shared = mmap(nullptr, sizeof(record_t), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (mkdtemp(directory) == nullptr || shared == MAP_FAILED) return 1;
    auto &record = *new (shared) record_t;
    printf("seed %u\n", seed);
    std::mt19937 random(seed);
    for (unsigned round = 0; round < kills; ++round) {
        if (run_round(std::string(directory) + "/journal", random, record)) continue;
        fprintf(stderr, "round %u of seed %u; the journal is in %s\n", round, seed, directory);
        return 1;
    }
    std::filesystem::remove_all(directory);
    printf("%u kills: %u commits, %u refused, %u torn files; no acknowledged change missing, none there by half\n",
           kills, record.commits.load(), record.refusals.load(), record.torn_files.load());
    if (record.commits != 0 && record.refusals != 0) return 0;
    fprintf(stderr, "the drill has tried too little\n");
    return 1;
}
