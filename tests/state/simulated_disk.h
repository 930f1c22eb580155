/*
 * A disk in memory under the files of state/. Each operation can fail, with or without having been done, or be the last
 * one of its process; and a crash of the machine loses what was not synced.
 *
 * A failed sync loses what it should have written: the cache still shows it, and no later sync writes it. A name, new
 * or replaced, is on disk after the next sync of the directory.
 */
#ifndef TESTS_STATE_SIMULATED_DISK_H
#define TESTS_STATE_SIMULATED_DISK_H

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "state/files.h"

/** Thrown by the operation at which the process dies; the operations behind it do nothing. */
struct process_died_t {};

class simulated_disk_t : public files_t {
public:
    enum class fault_t { fails, fails_though_done, dies };
    /** What a crash leaves of what was written and not synced. */
    enum class unsynced_t { kept, lost, first_half_kept, second_half_kept, last_write_kept };

    /** The operation of that number fails; the next one is number 1. */
    void arm(size_t operation, fault_t fault) { faults_[operations_ + operation] = fault; }
    size_t operations() const { return operations_; }
    bool has_faults_left() const { return !faults_.empty() && faults_.rbegin()->first > operations_; }
    /** From now on nothing can be written or made, until `has_room` is set again. */
    bool has_room = true;

    /** Another process finds the disk as it is; nothing fails any more. */
    simulated_disk_t next_process() const;
    /** So does another process after the machine has crashed. */
    simulated_disk_t after_crash(bool are_names_kept, unsynced_t unsynced) const;

    /** Whether a crash would lose anything: names, or bytes. */
    bool has_unsynced_names() const { return names_ != names_on_disk_; }
    bool has_unsynced_bytes() const;

    bool has(const std::string &path) const { return names_.count(path) != 0; }
    std::string content(const std::string &path) const { return names_.at(path)->cached; }
    /** Puts a file there, durably. */
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
        std::vector<std::pair<size_t, size_t>> unsynced; /* where it begins and ends, in `cached` */
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
