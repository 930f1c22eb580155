#include "tools/natctl/daemon_command.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "fwx_host/loop.h"
#include "tools/daemon_socket.h"

namespace {

class socket_t {
public:
    explicit socket_t(const std::string &path) : fd_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (path.size() >= sizeof address.sun_path) return;
        path.copy(address.sun_path, path.size());
        is_connected_ = connect(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    }
    ~socket_t() {
        if (fd_ >= 0) close(fd_);
    }
    socket_t(const socket_t &) = delete;
    socket_t &operator=(const socket_t &) = delete;

    bool is_connected() const { return is_connected_; }
    /** Empty when nothing whole came in time. */
    std::string ask(const std::string &word, uint64_t timeout_ms) const {
        const std::string line = word + '\n';
        if (send(fd_, line.data(), line.size(), MSG_NOSIGNAL) < 0) return "";
        const uint64_t deadline = fwx_host_clock_ms() + timeout_ms;
        std::string answer;
        for (uint64_t now = fwx_host_clock_ms(); now < deadline; now = fwx_host_clock_ms()) {
            pollfd waited = {fd_, POLLIN, 0};
            char room[4096];
            const bool has_come = poll(&waited, 1, static_cast<int>(deadline - now)) > 0;
            const ssize_t size = has_come ? read(fd_, room, sizeof room) : 0;
            if (has_come && size <= 0) return "";
            answer.append(room, static_cast<size_t>(size));
            if (!answer.empty() && answer.back() == '\n') return answer;
        }
        return "";
    }

private:
    int fd_;
    bool is_connected_ = false;
};

}  // namespace

outcome_t ask_daemon(const std::string &verb, const options_t &options) {
    outcome_t outcome;
    outcome.command = "daemon " + verb;
    const std::string path = daemon_socket_path(options.connect);
    const socket_t socket(path);
    if (!socket.is_connected()) {
        refuse(outcome, status_t::no_server, 0,
               "no nat64d for server " + options.connect + ": " + path + ": " + std::strerror(errno));
        return outcome;
    }
    const json_t answer = json_t::parse(socket.ask(verb, options.timeout_ms));
    if (!answer.is_object() || answer.contains("error")) {
        const bool is_refused = answer.is_object();
        refuse(outcome, is_refused ? status_t::refused : status_t::no_answer, 0,
               is_refused ? answer["error"].get<std::string>()
                          : "no answer within " + std::to_string(options.timeout_ms) + " ms");
        return outcome;
    }
    outcome.data = answer;
    if (verb == "status") return outcome;
    if (!answer.value("in_step", false)) {
        refuse(outcome, status_t::refused, 0, "not in step: " + answer.value("reason", ""));
    } else if (answer.contains("refused_reason")) {
        refuse(outcome, status_t::refused, 0, "the file's document was refused: " + answer.value("refused_reason", ""));
    }
    return outcome;
}
