#include "tools/nat64d/control.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace {

constexpr size_t longest_line = 64;
constexpr size_t most_visitors = 16;

bool is_answered(const sockaddr_un &address) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const bool is_there =
        fd >= 0 && (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 || errno == EAGAIN);
    if (fd >= 0) close(fd);
    return is_there;
}

}  // namespace

control_t::~control_t() {
    *is_alive_ = false;
    if (listener_ != nullptr) unlink(path_.c_str());
}

std::string control_t::listen(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return path + ": too long for a socket";
    path.copy(address.sun_path, path.size());
    const std::filesystem::path folder = std::filesystem::path(path).parent_path();
    mkdir(folder.parent_path().c_str(), S_IRWXU); /* what is not there then is told by bind */
    mkdir(folder.c_str(), S_IRWXU);
    if (is_answered(address)) return path + ": another nat64d listens there";
    unlink(path.c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    auto listener = std::make_unique<watched_descriptor_t>(loop_, fd, [this] { accept_visitor(); });
    const bool is_listening = listener->is_watched() &&
                              bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0 &&
                              ::listen(fd, SOMAXCONN) == 0;
    if (!is_listening) return path + ": " + std::strerror(errno);
    path_ = path;
    listener_ = std::move(listener);
    return "";
}

void control_t::accept_visitor() {
    const int fd = accept4(listener_->fd(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
    if (fd < 0) return;
    if (visitors_.size() == most_visitors) { /* the one that has been here longest makes room */
        visitors_.erase(visitors_.begin());
    }
    const uint64_t id = ++last_id_;
    visitors_[id].descriptor = std::make_unique<watched_descriptor_t>(loop_, fd, [this, id] { hear(id); });
}

void control_t::hear(uint64_t id) {
    visitor_t &visitor = visitors_.at(id);
    char room[longest_line];
    const ssize_t size = read(visitor.descriptor->fd(), room, sizeof room);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    const bool is_gone = size <= 0 || visitor.has_asked || visitor.line.size() > longest_line;
    if (is_gone) {
        visitors_.erase(id);
        return;
    }
    visitor.line.append(room, static_cast<size_t>(size));
    const size_t end = visitor.line.find('\n');
    if (end == std::string::npos) return;
    visitor.has_asked = true;
    asked_(visitor.line.substr(0, end), [this, id, alive = is_alive_](const std::string &line) {
        if (*alive) answer(id, line);
    });
}

void control_t::answer(uint64_t id, const std::string &line) {
    const auto found = visitors_.find(id);
    if (found == visitors_.end()) return;
    const std::string text = line + '\n';
    /* An answer is small beside a socket's buffer, which is empty. */
    if (send(found->second.descriptor->fd(), text.data(), text.size(), MSG_NOSIGNAL) < 0) errno = 0;
    visitors_.erase(found);
}
