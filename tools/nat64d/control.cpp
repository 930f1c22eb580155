/*
 * Implements control.h. The number of clients is bounded. Silent clients make room for new ones; a client whose request
 * is in progress stays. A client that closes its side before its answer is dropped.
 */
#include "tools/nat64d/control.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "fwx_host/errors.h"
#include "tools/daemon_socket.h"

namespace {

constexpr size_t longest_line = 64;
constexpr size_t most_clients = 16;

void send_line(int fd, const std::string &line) {
    const std::string text = line + '\n';
    /* Does not block, because the answer fits into the socket's empty buffer. */
    if (send(fd, text.data(), text.size(), MSG_NOSIGNAL) < 0) errno = 0;
}

}  // namespace

control_t::~control_t() {
    fwx_host_user_unlisten(listener_);
}

std::string control_t::listen(const std::string &server) {
    const std::string path = daemon_socket_path(server);
    if (path.empty()) return "no server can have the name \"" + server + '"';
    const auto add_client = [](void *self, int fd) { static_cast<control_t *>(self)->add_client(fd); };
    const uint32_t code = fwx_host_user_listen(daemon_socket_name(server).c_str(), loop_, add_client, this, &listener_);
    if (code == 0) return "";
    if (code == FWX_HOST_ERR_NAME_TAKEN) {
        return path + ": another nat64d of this server listens there; end it, or remove the file if it is no socket";
    }
    if (code == FWX_HOST_ERR_BAD_ARG) return path + ": too long for a socket; name a shorter folder in FWX_HOST_DIR";
    return path + ": " + xerr_strerror(code);
}

void control_t::add_client(int fd) {
    const uint64_t id = ++last_id_;
    auto descriptor = std::make_unique<watched_descriptor_t>(loop_, fd, [this, id] { receive(id); });
    if (!make_room()) return send_line(fd, R"({"error":"too many clients wait for an answer"})");
    if (!descriptor->is_watched()) return;
    clients_[id].descriptor = std::move(descriptor);
    receive(id); /* most clients have sent their request by now, and so are not silent */
}

/** Drops the oldest silent client if there are too many. A client that waits for its answer stays. */
bool control_t::make_room() {
    if (clients_.size() < most_clients) return true;
    const auto silent =
        std::find_if(clients_.begin(), clients_.end(), [](const auto &client) { return !client.second.has_asked; });
    if (silent == clients_.end()) return false;
    clients_.erase(silent);
    return true;
}

void control_t::receive(uint64_t id) {
    client_t &client = clients_.at(id);
    char room[longest_line];
    const ssize_t size = read(client.descriptor->fd(), room, sizeof room);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    const bool is_gone = size <= 0 || client.has_asked || client.line.size() > longest_line;
    if (is_gone) {
        clients_.erase(id);
        return;
    }
    client.line.append(room, static_cast<size_t>(size));
    const size_t end = client.line.find('\n');
    if (end == std::string::npos) return;
    client.has_asked = true;
    asked_(client.line.substr(0, end), [this, id](const std::string &line) { answer(id, line); });
}

void control_t::answer(uint64_t id, const std::string &line) {
    const auto found = clients_.find(id);
    if (found == clients_.end()) return;
    send_line(found->second.descriptor->fd(), line);
    clients_.erase(found);
}
