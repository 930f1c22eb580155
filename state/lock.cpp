/* flock on FILE.lock, and the holder's name in it. The name is only for messages and for deciding whether to wait. */
#include "state/lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <thread>
#include <utility>

#include "state/directory.h"
#include "state/files.h"

namespace {

constexpr std::chrono::milliseconds poll{10};
/* The name can be stale at first: a new holder may not have written its own yet, and a killed one leaves its name. */
constexpr int polls_to_believe_name = 20;

}  // namespace

lock_t::lock_t(std::string path, std::string program) : path_(std::move(path)), program_(std::move(program)) {}

std::string lock_t::take(std::chrono::milliseconds patience, const is_worth_waiting_fn_t &is_worth_waiting) {
    /* Polls are counted and not timed: flock cannot wait for a limited time. */
    for (int polls = 0;; ++polls) {
        std::string error = try_once();
        if (!is_taken_) return error;
        const bool is_name_sure = polls >= polls_to_believe_name;
        const bool is_hopeless = is_name_sure && is_worth_waiting && !is_worth_waiting(holder_);
        if (is_hopeless || polls * poll >= patience) {
            if (holder_.empty()) holder_ = "another process";
            return error;
        }
        std::this_thread::sleep_for(poll);
    }
}

std::string take_server_lock(lock_t &lock, const std::string &server, std::chrono::milliseconds patience,
                             const std::function<void(const std::string &holder)> &on_wait) {
    const std::string path = lock_path_of(server);
    if (path.empty()) return "no server can have the name \"" + server + '"';
    std::string error = make_state_directory(path.substr(0, path.rfind('/')));
    bool is_told = false;
    const auto may_end_soon = [&](const std::string &who) {
        const bool may = who.empty() || who.rfind("natctl ", 0) == 0;
        const bool must_tell = may && on_wait && !std::exchange(is_told, true);
        if (must_tell) on_wait(who.empty() ? "another process" : who);
        return may;
    };
    if (error.empty()) error = lock.take(patience, may_end_soon);
    return lock.is_taken() ? "server " + server + ": " + lock.holder() + " is changing it" : error;
}

std::string lock_t::try_once() {
    is_taken_ = false;
    if (!can_name_file(path_)) return path_ + ": not a regular file";
    const std::string name = path_ + ".lock";
    const int fd = ::open(name.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    if (fd < 0) return errno == ELOOP ? name + ": not a regular file" : file_error(name);
    struct stat status {};
    std::string error = fstat(fd, &status) == 0 ? distrusted(name, status) : file_error(name);
    if (error.empty() && flock(fd, LOCK_EX | LOCK_NB) != 0) {
        error = file_error(name);
        is_taken_ = errno == EWOULDBLOCK;
    }
    if (is_taken_) {
        holder_ = read_name(fd);
        error = path_ + ": locked by " + (holder_.empty() ? "another process" : holder_);
    }
    if (!error.empty()) {
        ::close(fd);
        return error;
    }
    fd_ = fd;
    write_name();
    return "";
}

std::string lock_t::read_name(int fd) const {
    char text[128];
    const ssize_t size = pread(fd, text, sizeof text, 0);
    const std::string name(text, size > 0 ? static_cast<size_t>(size) : 0);
    return name.substr(0, name.find('\n'));
}

/** Ignores errors, for example of a full disk, because the lock works without the name. */
void lock_t::write_name() const {
    const std::string text = program_ + " (process " + std::to_string(getpid()) + ")\n";
    const bool is_written = ftruncate(fd_, 0) == 0 && pwrite(fd_, text.data(), text.size(), 0) > 0;
    static_cast<void>(is_written);
}

void lock_t::release() {
    if (fd_ < 0) return;
    const bool is_cleared = ftruncate(fd_, 0) == 0;
    static_cast<void>(is_cleared); /* a stale name can only mislead a reader of the file */
    ::close(fd_);
    fd_ = -1;
}
