/* The simulated disk: names and contents as the cache has them, and as they are on disk. */
#include "simulated_disk.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace {

constexpr size_t most_at_once = 40000; /* bytes that one write takes */

template <typename result_t>
result_t fail(int error) {
    errno = error;
    return -1;
}

}  // namespace

void simulated_disk_t::file_t::bring_to_disk(size_t begin, size_t end) {
    if (end > on_disk.size()) on_disk.resize(end);
    on_disk.replace(begin, end - begin, cached, begin, end - begin);
}

/** Counts an operation and injects its fault. `half` does a part of an operation that fails or kills the process. */
template <typename call_t, typename half_t>
auto simulated_disk_t::faulty(call_t call, half_t half) -> decltype(call()) {
    using result_t = decltype(call());
    if (is_dead_) return fail<result_t>(EIO);
    const auto found = faults_.find(++operations_);
    if (found == faults_.end()) return call();
    if (found->second == fault_t::fails_though_done) {
        call();
        return fail<result_t>(EIO);
    }
    half();
    if (found->second == fault_t::fails) return fail<result_t>(EIO);
    is_dead_ = true;
    throw process_died_t();
}

template <typename call_t>
auto simulated_disk_t::faulty(call_t call) -> decltype(call()) {
    return faulty(call, [] {});
}

int simulated_disk_t::add_open(const std::shared_ptr<file_t> &file) {
    open_[++last_fd_] = file;
    return last_fd_;
}

/** An open that fails, even with `fails_though_done`, opens nothing. */
int simulated_disk_t::open(const std::string &path, int) {
    const auto found = names_.find(path);
    const int result = faulty([&] { return found == names_.end() ? fail<int>(ENOENT) : 0; });
    return result < 0 ? result : add_open(found->second);
}

int simulated_disk_t::create(const std::string &path, mode_t mode) {
    const int result = faulty([&] {
        if (!has_room) return fail<int>(ENOSPC);
        if (has(path)) return fail<int>(EEXIST);
        names_[path] = std::make_shared<file_t>();
        names_[path]->mode = mode;
        return 0;
    });
    return result < 0 ? result : add_open(names_.at(path));
}

int simulated_disk_t::stat(int fd, struct stat &status) {
    return faulty([&] {
        status = {};
        status.st_mode = S_IFREG | open_.at(fd)->mode;
        status.st_uid = geteuid();
        return 0;
    });
}

ssize_t simulated_disk_t::read(int fd, void *to, size_t size, off_t at) {
    return faulty([&]() -> ssize_t {
        const std::string &cached = open_.at(fd)->cached;
        const size_t begin = std::min(static_cast<size_t>(at), cached.size());
        return static_cast<ssize_t>(cached.copy(static_cast<char *>(to), size, begin));
    });
}

ssize_t simulated_disk_t::write(int fd, const void *bytes, size_t size, off_t at) {
    const auto put = [&](size_t count) -> ssize_t {
        if (!has_room) return fail<ssize_t>(ENOSPC);
        const auto begin = static_cast<size_t>(at);
        file_t &file = *open_.at(fd);
        if (begin + count > file.cached.size()) file.cached.resize(begin + count);
        file.cached.replace(begin, count, static_cast<const char *>(bytes), count);
        file.unsynced.emplace_back(begin, begin + count);
        return static_cast<ssize_t>(count);
    };
    const size_t count = std::min(size, most_at_once);
    return faulty([&] { return put(count); }, [&] { put(count / 2); });
}

int simulated_disk_t::sync(int fd) {
    file_t &file = *open_.at(fd);
    return faulty(
        [&] {
            for (const auto &[begin, end] : file.unsynced) {
                file.bring_to_disk(begin, end);
            }
            file.unsynced.clear();
            return 0;
        },
        [&] { file.unsynced.clear(); });
}

int simulated_disk_t::sync_directory_of(const std::string &) {
    return faulty([&] {
        names_on_disk_ = names_;
        return 0;
    });
}

int simulated_disk_t::rename(const std::string &from, const std::string &to) {
    return faulty([&] {
        if (!has(from)) return fail<int>(ENOENT);
        names_[to] = names_[from];
        names_.erase(from);
        return 0;
    });
}

int simulated_disk_t::link(const std::string &from, const std::string &to) {
    return faulty([&] {
        if (!has_room) return fail<int>(ENOSPC);
        if (has(to)) return fail<int>(EEXIST);
        names_[to] = names_.at(from);
        return 0;
    });
}

int simulated_disk_t::remove(const std::string &path) {
    return faulty([&] { return names_.erase(path) == 0 ? fail<int>(ENOENT) : 0; });
}

void simulated_disk_t::put(const std::string &path, const std::string &content) {
    names_[path] = names_on_disk_[path] = std::make_shared<file_t>();
    names_[path]->cached = names_[path]->on_disk = content;
}

bool simulated_disk_t::has_unsynced_bytes() const {
    const auto is_unsynced = [](const auto &name_and_file) {
        return name_and_file.second->cached != name_and_file.second->on_disk;
    };
    return std::any_of(names_.begin(), names_.end(), is_unsynced) ||
           std::any_of(names_on_disk_.begin(), names_on_disk_.end(), is_unsynced);
}

simulated_disk_t simulated_disk_t::next_process() const {
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

simulated_disk_t simulated_disk_t::after_crash(bool are_names_kept, unsynced_t unsynced) const {
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
