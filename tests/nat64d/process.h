/* nat64d as a process, with clients for its control socket and its web pages. */
#ifndef TESTS_NAT64D_PROCESS_H
#define TESTS_NAT64D_PROCESS_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "net/json.h"
#include "tests/support/eventually.h"
#include "tools/daemon_socket.h"

/** Replaces a file as editors do. */
inline void replace_file(const std::string &path, const std::string &text) {
    std::ofstream(path + ".new") << text;
    std::filesystem::rename(path + ".new", path);
}

/** `nat64d alpha --config FOLDER/document`, with its log in FOLDER/log. It works in the folder of its log. */
class daemon_process_t {
public:
    explicit daemon_process_t(const std::string &folder) : daemon_process_t(folder, folder + "/log") {}
    daemon_process_t(const std::string &folder, const std::string &log_path)
        : daemon_process_t({"alpha", "--config", folder + "/document"}, log_path) {}
    /** Starts nat64d with these arguments, the server's name first, and with metrics at any port. */
    daemon_process_t(std::vector<std::string> words, std::string log_path)
        : name_(words.front()), log_path_(std::move(log_path)) {
        words.insert(words.begin(), NAT64D_PATH);
        const bool says_where = std::find(words.begin(), words.end(), "--listen") != words.end();
        if (!says_where) words.insert(words.end(), {"--listen", "127.0.0.1:0"});
        pid_ = fork();
        if (pid_ != 0) return;
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int log = open(log_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        dup2(log, STDERR_FILENO);
        if (chdir(std::filesystem::path(log_path_).parent_path().c_str()) != 0) _exit(127);
        std::vector<char *> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string &word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        execv(NAT64D_PATH, arguments.data());
        _exit(127);
    }
    ~daemon_process_t() { end(SIGKILL); }
    daemon_process_t(const daemon_process_t &) = delete;
    daemon_process_t &operator=(const daemon_process_t &) = delete;

    pid_t pid() const { return pid_; }
    bool is_asleep() const {
        const std::string state = text_of("/proc/" + std::to_string(pid_) + "/stat");
        return state.find(") S ") != std::string::npos;
    }
    void signal(int number) const { kill(pid_, number); }
    /** The number of its open descriptors. */
    long descriptors() const {
        std::error_code failed;
        const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid_) + "/fd", failed);
        return std::distance(entries, std::filesystem::directory_iterator());
    }
    /** Sends a signal, unless `number` is 0, and waits for the end; after 60 seconds kills it. Returns the exit status,
     * or -1 if a signal killed it. */
    int end(int number) {
        if (pid_ <= 0) return -1;
        int status = 0;
        if (number != 0) kill(pid_, number);
        if (!eventually([&] { return waitpid(pid_, &status, WNOHANG) != 0; })) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    std::string log() const { return text_of(log_path_); }
    const std::string &name() const { return name_; }

    /** Connects to its control socket; -1: it is not there. */
    static int visit(const std::string &name) {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        daemon_socket_path(name).copy(address.sun_path, sizeof address.sun_path - 1);
        return connected(AF_UNIX, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    }
    /** Sends a word to the control socket. Returns the answer, or null if there is none. */
    static json_t ask(const std::string &word, const std::string &name = "alpha") {
        return json_t::parse(converse(visit(name), word + '\n'));
    }
    static bool is(const std::string &member, const json_t &value) {
        const json_t status = ask("status");
        return status[member] == value;
    }
    /** The port of its web pages; 0 if it does not listen yet. */
    uint16_t port() const {
        constexpr std::string_view mark = "event=listening port=";
        const std::string text = log();
        const size_t at = text.find(mark);
        return at == std::string::npos ? 0 : static_cast<uint16_t>(std::stoi(text.substr(at + mark.size())));
    }
    /** Fetches a web page, with its header. */
    std::string get(const std::string &page) const {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port());
        const int fd = connected(AF_INET, reinterpret_cast<const sockaddr *>(&address), sizeof address);
        return converse(fd, "GET " + page + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    }

private:
    std::string name_;
    std::string log_path_;
    pid_t pid_ = -1;
};

#endif
