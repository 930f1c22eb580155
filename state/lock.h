/*
 * A lock between processes for the use of FILE. It is a flock of FILE.lock, a file that contains the holder's name and
 * stays when the lock is released. The kernel releases the lock when the holder ends, even if it is killed.
 */
#ifndef STATE_LOCK_H
#define STATE_LOCK_H

#include <chrono>
#include <functional>
#include <string>

class lock_t {
public:
    /** @return true to go on waiting for this holder, `natctl (process 1234)`. Empty: its name is not known. */
    using is_worth_waiting_fn_t = std::function<bool(const std::string &holder)>;

    /** @param program name of this program for FILE.lock, such as `nat64d` */
    lock_t(std::string path, std::string program);
    ~lock_t() { release(); }
    lock_t(const lock_t &) = delete;
    lock_t &operator=(const lock_t &) = delete;

    /**
     * Takes the lock. Blocks for up to `patience` while another process holds it, and only as long as
     * `is_worth_waiting` returns true for the holder. Without this function it waits for every holder.
     * @return an empty text if this process has the lock, else an error with the file's name.
     */
    std::string take(std::chrono::milliseconds patience = {}, const is_worth_waiting_fn_t &is_worth_waiting = {});
    /** Removes the holder's name and releases the lock, if it was taken. */
    void release();
    /** True if `take` failed because another process holds the lock. */
    bool is_taken() const { return is_taken_; }
    /** The name of that process: `natctl (process 1234)`, or `another process` if it is unknown. */
    const std::string &holder() const { return holder_; }

private:
    std::string try_once();
    std::string read_name(int fd) const;
    void write_name() const;

    const std::string path_;
    const std::string program_;
    std::string holder_;
    int fd_ = -1; /* while the lock is held */
    bool is_taken_ = false;
};

/**
 * Takes the lock of a server (lock_path_of), which every process needs that changes the server. If a natctl holds it,
 * waits for up to `patience`, because natctl ends soon; first calls `on_wait` with its name. Does not wait for a
 * daemon.
 * @return an empty text if this process has the lock, else an error, with the holder's name if the lock is taken.
 */
std::string take_server_lock(lock_t &lock, const std::string &server, std::chrono::milliseconds patience,
                             const std::function<void(const std::string &holder)> &on_wait = {});

#endif
