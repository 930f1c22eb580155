/*
 * A disk in memory, under the files of state/. Any operation can fail, before or after it is done, or kill its process.
 * A crash of the machine loses unsynced data.
 *
 * A failed sync loses the data that it should have written: the cache still has them, but no later sync writes them. A
 * new or replaced name is durable after the next sync of the directory.
 */
#ifndef TESTS_STATE_SIMULATED_DISK_H
#define TESTS_STATE_SIMULATED_DISK_H

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

    /** Injects a fault into an operation from now on; the next one is number 1. */
    void arm(size_t operation, fault_t fault) { faults_[operations_ + operation] = fault; }
    size_t operations() const { return operations_; }
    bool has_faults_left() const { return !faults_.empty() && faults_.rbegin()->first > operations_; }
    /** While false, writing and creating files fail. */
    bool has_room = true;

    /** The disk as the next process finds it, without faults. */
    simulated_disk_t next_process() const;
    /** The disk as the next process finds it after a crash of the machine, without faults. */
    simulated_disk_t after_crash(bool are_names_kept, unsynced_t unsynced) const;

    /** True if a crash could lose names or bytes. */
    bool has_unsynced_names() const { return names_ != names_on_disk_; }
    bool has_unsynced_bytes() const;

    bool has(const std::string &path) const { return names_.count(path) != 0; }
    std::string content(const std::string &path) const { return names_.at(path)->cached; }
    /** Creates a durable file. */
    void put(const std::string &path, const std::string &content);
    size_t open_files() const { return open_.size(); }

    simulated_disk_t() = default;
    simulated_disk_t(simulated_disk_t &&other) noexcept { *this = std::move(other); }
    simulated_disk_t &operator=(simulated_disk_t &&other) noexcept {
        names_ = std::move(other.names_);
        names_on_disk_ = std::move(other.names_on_disk_);
        return *this;
    }

    int open(const std::string &path, int flags) override;
    int create(const std::string &path, mode_t mode) override;
    void close(int fd) override { open_.erase(fd); }
    int stat(int fd, struct stat &status) override;
    ssize_t read(int fd, void *to, size_t size, off_t at) override;
    ssize_t write(int fd, const void *bytes, size_t size, off_t at) override;
    int sync(int fd) override;
    int sync_directory_of(const std::string &path) override;
    int rename(const std::string &from, const std::string &to) override;
    int link(const std::string &from, const std::string &to) override;
    int remove(const std::string &path) override;

private:
    struct file_t {
        std::string cached;
        std::string on_disk;
        std::vector<std::pair<size_t, size_t>> unsynced; /* begin and end of each unsynced write, in `cached` */
        mode_t mode = 0600;

        void bring_to_disk(size_t begin, size_t end);
    };
    using names_t = std::map<std::string, std::shared_ptr<file_t>>;

    template <typename call_t, typename half_t>
    auto faulty(call_t call, half_t half) -> decltype(call());
    template <typename call_t>
    auto faulty(call_t call) -> decltype(call());
    int add_open(const std::shared_ptr<file_t> &file);

    names_t names_;
    names_t names_on_disk_;
    std::map<int, std::shared_ptr<file_t>> open_;
    int last_fd_ = 0;
    size_t operations_ = 0;
    std::map<size_t, fault_t> faults_;
    bool is_dead_ = false;
};

#endif
