/*
 * Implements daemon_command.h. The answer of the control socket is not trusted: its length is bounded, it must be an
 * object with the members of a status, and its texts are cleaned before they are shown.
 */
#include "tools/natctl/daemon_command.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "fwx_host/errors.h"
#include "fwx_host/loop.h"
#include "fwx_host/user_socket.h"
#include "tools/daemon_socket.h"

namespace {

constexpr size_t longest_answer = size_t{1} << 20;
constexpr size_t longest_reason = 4096; /* the longest text shown, in bytes */

class socket_t {
public:
    /** Connects; `code()` is the result. */
    socket_t(const std::string &server, uint64_t timeout_ms)
        : deadline_ms_(fwx_host_clock_ms() + timeout_ms),
          code_(daemon_socket_path(server).empty()
                    ? FWX_HOST_ERR_BAD_ARG
                    : fwx_host_user_connect(daemon_socket_name(server).c_str(), timeout_ms, &fd_)) {}
    ~socket_t() {
        if (fd_ >= 0) close(fd_);
    }
    socket_t(const socket_t &) = delete;
    socket_t &operator=(const socket_t &) = delete;

    uint32_t code() const { return code_; }
    /** Sends the word and waits for the answer. Returns why there is none, or an empty text. */
    std::string ask(const std::string &word, const std::string &in_time, std::string &answer) const {
        const std::string line = word + '\n';
        const char *closed = "the connection was closed without a complete answer";
        if (send(fd_, line.data(), line.size(), MSG_NOSIGNAL) < 0) return closed;
        while (answer.size() <= longest_answer) {
            const uint64_t now = fwx_host_clock_ms();
            if (now >= deadline_ms_) return "no answer" + in_time;
            pollfd waited = {fd_, POLLIN, 0};
            char room[4096];
            if (poll(&waited, 1, static_cast<int>(std::min<uint64_t>(deadline_ms_ - now, INT32_MAX))) <= 0) continue;
            const ssize_t size = read(fd_, room, sizeof room);
            if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (size <= 0) return closed;
            answer.append(room, static_cast<size_t>(size));
            if (answer.back() == '\n') return "";
        }
        return "the answer is longer than " + std::to_string(longest_answer) + " bytes";
    }

private:
    int fd_ = -1;
    uint64_t deadline_ms_;
    uint32_t code_;
};

outcome_t refused(outcome_t outcome, status_t status, const std::string &error) {
    refuse(outcome, status, 0, error);
    return outcome;
}

/** The text of a member of the answer, cleaned, as one line. */
std::string line_of(const json_t &answer, const char *name) {
    return clean_line(answer.value(name, ""), longest_reason);
}

}  // namespace

outcome_t ask_daemon(const std::string &verb, const options_t &options) {
    outcome_t outcome;
    outcome.command = "daemon " + verb;
    const std::string path = daemon_socket_path(options.connect);
    const socket_t socket(options.connect, options.timeout_ms);
    const std::string in_time = " within " + std::to_string(options.timeout_ms) + " ms";
    if (socket.code() == FWX_HOST_ERR_BUSY) {
        return refused(outcome, status_t::no_answer, path + ": nat64d takes no client" + in_time);
    }
    if (socket.code() != 0) {
        const bool is_away = socket.code() == FWX_HOST_ERR_NO_SERVER;
        return refused(outcome, status_t::no_server,
                       "no nat64d for server " + options.connect + ": " + path + ": " +
                           (is_away ? "no process listens there" : xerr_strerror(socket.code())));
    }
    std::string text;
    const std::string fault = socket.ask(verb, in_time, text);
    if (!fault.empty()) return refused(outcome, status_t::no_answer, path + ": " + fault);
    const json_t answer = json_t::parse(text);
    const json_t *error = answer.find("error");
    if (error != nullptr && error->is_string()) {
        return refused(outcome, status_t::refused, line_of(answer, "error"));
    }
    json_members_t members(answer);
    const bool is_in_step = members.flag("in_step");
    members.text("server", longest_reason);
    if (!members.is_good()) {
        return refused(
            outcome, status_t::no_answer,
            path + ": the answer is not one of nat64d: " + members.fault() + "; end the process that listens there");
    }
    outcome.data = answer;
    if (verb == "status") return outcome;
    const json_t &store = answer["store"];
    const bool is_unconfirmed = verb == "reload" && store.is_object() && store["up"] == false;
    if (!is_in_step) {
        refuse(outcome, status_t::refused, 0, "not in step: " + line_of(answer, "reason"));
    } else if (is_unconfirmed) {
        refuse(outcome, status_t::refused, 0, "the store does not confirm the document: " + line_of(store, "reason"));
    } else if (answer.contains("refused_reason")) {
        refuse(outcome, status_t::refused, 0, "the document was refused: " + line_of(answer, "refused_reason"));
    }
    return outcome;
}
