/* nat64d as a process, with clients for its control socket and its web pages. */
#ifndef TESTS_NAT64D_PROCESS_H
#define TESTS_NAT64D_PROCESS_H

#include <fcntl.h>

#include <algorithm>
#include <filesystem>

#include "net/json.h"
#include "tests/nat64d/program.h"
#include "tests/support/child.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/eventually.h"
#include "tools/daemon_socket.h"

/** Replaces a file as editors do. */
inline void replace_file(const std::string &path, const std::string &text) {
    std::ofstream(path + ".new") << text;
    std::filesystem::rename(path + ".new", path);
}

/** `nat64d alpha --config FOLDER/document`, with its log in FOLDER/log. It works in the folder of its log. */
class daemon_process_t : public child_t {
public:
    explicit daemon_process_t(const std::string &folder) : daemon_process_t(folder, folder + "/log") {}
    daemon_process_t(const std::string &folder, const std::string &log_path)
        : daemon_process_t({"alpha", "--config", folder + "/document"}, log_path) {}
    /** Starts nat64d with these arguments, the server's name first, and with metrics at any port. */
    daemon_process_t(std::vector<std::string> words, std::string log_path) : log_path_(std::move(log_path)) {
        words.insert(words.begin(), NAT64D_PATH);
        const bool says_where = std::find(words.begin(), words.end(), "--listen") != words.end();
        if (!says_where) words.insert(words.end(), {"--listen", "127.0.0.1:0"});
        start([&](int) {
            const int log = open(log_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
            dup2(log, STDERR_FILENO);
            if (chdir(std::filesystem::path(log_path_).parent_path().c_str()) == 0) become(words);
        });
    }
    ~daemon_process_t() { end(SIGKILL); }

    bool is_asleep() const {
        const std::string state = text_of("/proc/" + std::to_string(pid()) + "/stat");
        return state.find(") S ") != std::string::npos;
    }
    /** The number of its open descriptors. */
    size_t descriptors() const { return open_descriptors(std::to_string(pid())); }
    /** Sends a signal, unless `number` is 0, and waits for the end; after 60 seconds kills it. Returns the exit status,
     * or -1 if a signal killed it. */
    int end(int number) {
        if (pid() <= 0) return -1;
        signal(number);
        const bool has_ended = eventually([this] {
            siginfo_t ended{};
            return waitid(P_PID, static_cast<id_t>(pid()), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
                   ended.si_pid != 0;
        });
        return child_t::end(has_ended ? 0 : SIGKILL);
    }
    std::string log() const { return text_of(log_path_); }

    /** Connects to its control socket; -1: it is not there. */
    static int visit(const std::string &name) {
        const sockaddr_un address = unix_address(daemon_socket_path(name));
        return connected(AF_UNIX, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    /** Sends a word to the control socket. Returns the answer, or null if there is none. */
    static json_t ask(const std::string &word, const std::string &name = "alpha") {
        return json_t::parse(converse(visit(name), word + '\n'));
    }
    static json_t status(const std::string &name = "alpha") { return ask("status", name); }
    static bool is(const std::string &member, const json_t &value) { return status().at(member) == value; }
    /** The port of its web pages; 0 if it does not listen yet. */
    uint16_t port() const {
        constexpr std::string_view mark = "event=listening port=";
        const std::string text = log();
        const size_t at = text.find(mark);
        return at == std::string::npos ? 0 : static_cast<uint16_t>(std::stoi(text.substr(at + mark.size())));
    }
    /** Fetches a web page, with its header. */
    std::string get(const std::string &page) const { return web_page(loopback(port()), page); }

private:
    std::string log_path_;
};

#endif
