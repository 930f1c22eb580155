/*
 * The lock of a file: one process at a time may use FILE. It locks FILE.lock, which stays when the lock is released,
 * and whose text names the holder. The kernel releases the lock of a process that ends, however it ends.
 */
#ifndef STATE_LOCK_H
#define STATE_LOCK_H

#include <chrono>
#include <functional>
#include <string>

class lock_t {
public:
    /** @return whether to go on waiting for this holder, `natctl (process 1234)`; empty: it has not written its name.
     */
    using is_worth_waiting_fn_t = std::function<bool(const std::string &holder)>;

    /** `program` is how the holder is named: `nat64d`. */
    lock_t(std::string path, std::string program);
    ~lock_t() { release(); }
    lock_t(const lock_t &) = delete;
    lock_t &operator=(const lock_t &) = delete;

    /**
     * Takes the lock. While another process holds it, tries again until `patience` is over. Without `is_worth_waiting`
     * it waits for every holder.
     * @return what went wrong, with the file's name; empty when this process has the lock.
     */
    std::string take(std::chrono::milliseconds patience = {}, const is_worth_waiting_fn_t &is_worth_waiting = {});
    /** Removes the holder's name and releases the lock, if it was taken. */
    void release();
    /** Whether `take` failed because another process holds the lock. */
    bool is_taken() const { return is_taken_; }
    /** That process by its name, `natctl (process 1234)` or `another process`. */
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
 * Takes the lock of a server for whoever changes it (state/directory.h). A natctl that has it ends soon and is waited
 * for, after `on_wait` has its name; a daemon is not.
 * @return why not, with the holder's name; empty when this process has the lock.
 */
std::string take_server_lock(lock_t &lock, const std::string &server, std::chrono::milliseconds patience,
                             const std::function<void(const std::string &holder)> &on_wait = {});

#endif
