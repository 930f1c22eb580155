/*
 * A disk in memory, under the files of state/. Any operation can fail, before or after it is done, or kill its process.
 * A crash of the machine loses unsynced data.
 *
 * A failed sync loses the data that it should have written: the cache still has them, but no later sync writes them. A
 * new or replaced name is durable after the next sync of the directory.
 */
#ifndef TESTS_STATE_SIMULATED_DISK_H
#define TESTS_STATE_SIMULATED_DISK_H

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "state/files.h"

/** Thrown by the operation at which the process dies. Later operations do nothing. */
struct process_died_t {};

class simulated_disk_t : public files_t {
public:
    enum class fault_t { fails, fails_though_done, dies };
    /** The part of unsynced data that a crash leaves. */
    enum class unsynced_t { kept, lost, first_half_kept, second_half_kept, last_write_kept };

    simulated_disk_t() = default;
    simulated_disk_t(simulated_disk_t &&other) noexcept { *this = std::move(other); }
    simulated_disk_t &operator=(simulated_disk_t &&other) noexcept {
        names_ = std::move(other.names_);
        names_on_disk_ = std::move(other.names_on_disk_);
        return *this;
    }

    /** Injects a fault into an operation from now on; the next one is number 1. */
    void arm(size_t operation, fault_t fault) { faults_[operations_ + operation] = fault; }
    size_t operations() const { return operations_; }
    bool has_faults_left() const { return !faults_.empty() && faults_.rbegin()->first > operations_; }
    /** While false, writing and creating files fail. */
    bool has_room = true;

    /** The disk as the next process finds it, without faults. */
    simulated_disk_t next_process() const {
        simulated_disk_t next;
        std::map<const file_t *, std::shared_ptr<file_t>> copies;
        const auto copy = [&](const names_t &from, names_t &to) {
            for (const auto &[name, file] : from) {
                std::shared_ptr<file_t> &its_copy = copies[file.get()];
                if (its_copy == nullptr) its_copy = std::make_shared<file_t>(*file);
                to[name] = its_copy;
            }
        };
        copy(names_, next.names_);
        copy(names_on_disk_, next.names_on_disk_);
        return next;
    }
    /** The disk as the next process finds it after a crash of the machine, without faults. */
    simulated_disk_t after_crash(bool are_names_kept, unsynced_t unsynced) const {
        simulated_disk_t next = next_process();
        (are_names_kept ? next.names_on_disk_ : next.names_) = are_names_kept ? next.names_ : next.names_on_disk_;
        for (const auto &name_and_file : next.names_) {
            file_t &file = *name_and_file.second;
            for (const auto &range : file.unsynced) {
                const auto [begin, end] = range;
                const size_t middle = begin + (end - begin) / 2;
                const bool is_kept = unsynced == unsynced_t::kept ||
                                     (unsynced == unsynced_t::last_write_kept && &range == &file.unsynced.back());
                if (is_kept || unsynced == unsynced_t::first_half_kept) file.bring_to_disk(begin, middle);
                if (is_kept || unsynced == unsynced_t::second_half_kept) file.bring_to_disk(middle, end);
            }
            file.unsynced.clear();
            file.cached = file.on_disk;
        }
        return next;
    }

    /** True if a crash could lose names or bytes. */
    bool has_unsynced_names() const { return names_ != names_on_disk_; }
    bool has_unsynced_bytes() const {
        const auto is_unsynced = [](const auto &name_and_file) {
            return name_and_file.second->cached != name_and_file.second->on_disk;
        };
        return std::any_of(names_.begin(), names_.end(), is_unsynced) ||
               std::any_of(names_on_disk_.begin(), names_on_disk_.end(), is_unsynced);
    }

    bool has(const std::string &path) const { return names_.count(path) != 0; }
    std::string content(const std::string &path) const { return names_.at(path)->cached; }
    /** Creates a durable file. */
    void put(const std::string &path, const std::string &content) {
        names_[path] = names_on_disk_[path] = std::make_shared<file_t>();
        names_[path]->cached = names_[path]->on_disk = content;
    }
    size_t open_files() const { return open_.size(); }

    /** An open that fails, even with `fails_though_done`, opens nothing. */
    int open(const std::string &path, int) override {
        const int result = faulty([&] { return has(path) ? 0 : fail(ENOENT); });
        return result < 0 ? result : add_open(path);
    }
    int create(const std::string &path, mode_t mode) override {
        const int result = faulty([&] {
            if (!has_room || has(path)) return fail(has_room ? EEXIST : ENOSPC);
            names_[path] = std::make_shared<file_t>();
            names_[path]->mode = mode;
            return 0;
        });
        return result < 0 ? result : add_open(path);
    }
    void close(int fd) override { open_.erase(fd); }
    int stat(int fd, struct stat &status) override {
        return faulty([&] {
            status = {};
            status.st_mode = S_IFREG | open_.at(fd)->mode;
            status.st_uid = geteuid();
            return 0;
        });
    }
    ssize_t read(int fd, void *to, size_t size, off_t at) override {
        return faulty([&] {
            const std::string &cached = open_.at(fd)->cached;
            const size_t begin = std::min(static_cast<size_t>(at), cached.size());
            return static_cast<int>(cached.copy(static_cast<char *>(to), size, begin));
        });
    }
    ssize_t write(int fd, const void *bytes, size_t size, off_t at) override {
        const auto put = [&](size_t count) {
            if (!has_room) return fail(ENOSPC);
            const auto begin = static_cast<size_t>(at);
            file_t &file = *open_.at(fd);
            if (begin + count > file.cached.size()) file.cached.resize(begin + count);
            file.cached.replace(begin, count, static_cast<const char *>(bytes), count);
            file.unsynced.emplace_back(begin, begin + count);
            return static_cast<int>(count);
        };
        const size_t count = std::min(size, most_at_once);
        return faulty([&] { return put(count); }, [&] { put(count / 2); });
    }
    int sync(int fd) override {
        file_t &file = *open_.at(fd);
        const auto bring_all = [&file] {
            for (const auto &[begin, end] : file.unsynced) {
                file.bring_to_disk(begin, end);
            }
            file.unsynced.clear();
            return 0;
        };
        return faulty(bring_all, [&file] { file.unsynced.clear(); });
    }
    int sync_directory_of(const std::string &) override {
        return faulty([&] {
            names_on_disk_ = names_;
            return 0;
        });
    }
    int rename(const std::string &from, const std::string &to) override {
        return faulty([&] {
            if (!has(from)) return fail(ENOENT);
            if (has(to) && names_[to] == names_[from]) return 0; /* as POSIX has it: both names stay */
            names_[to] = names_[from];
            names_.erase(from);
            return 0;
        });
    }
    int link(const std::string &from, const std::string &to) override {
        return faulty([&] {
            if (!has_room || has(to)) return fail(has_room ? EEXIST : ENOSPC);
            names_[to] = names_.at(from);
            return 0;
        });
    }
    int remove(const std::string &path) override {
        return faulty([&] { return names_.erase(path) == 0 ? fail(ENOENT) : 0; });
    }

private:
    static constexpr size_t most_at_once = 40000; /* bytes that one write takes */

    struct file_t {
        std::string cached;
        std::string on_disk;
        std::vector<std::pair<size_t, size_t>> unsynced; /* begin and end of each unsynced write, in `cached` */
        mode_t mode = 0600;

        void bring_to_disk(size_t begin, size_t end) {
            if (end > on_disk.size()) on_disk.resize(end);
            on_disk.replace(begin, end - begin, cached, begin, end - begin);
        }
    };
    using names_t = std::map<std::string, std::shared_ptr<file_t>>;

    static int fail(int error) {
        errno = error;
        return -1;
    }
    /** Counts an operation and injects its fault. `half` does a part of an operation that fails or kills the process.
     */
    template <typename call_t, typename half_t>
    int faulty(call_t call, half_t half) {
        if (is_dead_) return fail(EIO);
        const auto found = faults_.find(++operations_);
        if (found == faults_.end()) return call();
        found->second == fault_t::fails_though_done ? static_cast<void>(call()) : half();
        is_dead_ = found->second == fault_t::dies;
        if (is_dead_) throw process_died_t();
        return fail(EIO);
    }
    template <typename call_t>
    int faulty(call_t call) {
        return faulty(call, [] {});
    }
    int add_open(const std::string &path) {
        open_[++last_fd_] = names_.at(path);
        return last_fd_;
    }

    names_t names_;
    names_t names_on_disk_;
    std::map<int, std::shared_ptr<file_t>> open_;
    int last_fd_ = 0;
    size_t operations_ = 0;
    std::map<size_t, fault_t> faults_;
    bool is_dead_ = false;
};

#endif
