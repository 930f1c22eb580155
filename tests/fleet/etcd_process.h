/* Starts a real etcd for a test, as a process with its data in a temporary folder. */
#ifndef TESTS_FLEET_ETCD_PROCESS_H
#define TESTS_FLEET_ETCD_PROCESS_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/eventually.h"

inline sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

/** A TCP port that is free at the moment. */
inline uint16_t free_port() {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    static_cast<void>(bind(fd, reinterpret_cast<const sockaddr *>(&address), size));
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
    close(fd);
    return ntohs(address.sin_port);
}

/** True if a process listens there. */
inline bool answers_at(const sockaddr_in &address) {
    const int fd = connected(AF_INET, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    if (fd >= 0) close(fd);
    return fd >= 0;
}

class etcd_process_t {
public:
    /**
     * @param more      options, in addition to those with addresses and paths
     * @param scheme    https if these options require it
     * @param peer_port port for the other members of its cluster, which may start later; 0: any
     * @param host      its IPv4 address
     * @param enter     called in its process before it starts
     */
    explicit etcd_process_t(
        std::vector<std::string> more = {}, std::string scheme = "http", uint16_t peer_port = 0,
        std::string host = "127.0.0.1", std::function<void()> enter = [] {})
        : more_(std::move(more)), scheme_(std::move(scheme)), host_(std::move(host)), enter_(std::move(enter)) {
        char name[] = "/tmp/etcd.XXXXXX";
        folder_ = mkdtemp(name);
        for (int tries = 0; tries < 5 && !is_up_; ++tries) { /* another process may have taken the ports meanwhile */
            port_ = free_port();
            peer_port_ = peer_port == 0 ? free_port() : peer_port;
            lose_data();
            start();
        }
    }
    ~etcd_process_t() {
        end(SIGKILL);
        std::error_code ignored;
        std::filesystem::remove_all(folder_, ignored);
    }
    etcd_process_t(const etcd_process_t &) = delete;
    etcd_process_t &operator=(const etcd_process_t &) = delete;

    /** Starts it with its previous data at the same port. False if it does not start to listen. */
    bool start() {
        pid_ = fork();
        if (pid_ == 0) run();
        bool has_ended = false;
        is_up_ = eventually([&] {
                     has_ended = waitpid(pid_, nullptr, WNOHANG) == pid_;
                     return has_ended || answers_at(address());
                 }) &&
                 !has_ended;
        if (has_ended) pid_ = -1;
        return is_up_;
    }
    void signal(int number) const { kill(pid_, number); }
    void lose_data() const { std::filesystem::remove_all(folder_ + "/data"); }
    void end(int number) {
        if (pid_ <= 0) return;
        kill(pid_, number);
        waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

    /** Runs a command of etcdctl. False if it fails. */
    bool control(const std::string &words) const {
        const std::string line = ETCDCTL_PATH " --endpoints " + scheme_ + "://" + place() + ' ' + words;
        return std::system((line + " >>" + folder_ + "/log 2>&1").c_str()) == 0;
    }

    bool is_up() const { return is_up_; }
    pid_t pid() const { return pid_; }
    const std::string &folder() const { return folder_; }
    std::string place() const { return host_ + ':' + std::to_string(port_); }
    std::string url(const std::string &prefix) const { return "etcd://" + place() + '/' + prefix; }
    std::string log() const { return text_of(folder_ + "/log"); }
    /** The answer to a GET, with its headers. */
    std::string get(const std::string &page) const {
        const sockaddr_in at = address();
        const int fd = connected(AF_INET, reinterpret_cast<const sockaddr *>(&at), sizeof at);
        return converse(fd, "GET " + page + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
    }

private:
    sockaddr_in address() const {
        sockaddr_in address = loopback(port_);
        inet_pton(AF_INET, host_.c_str(), &address.sin_addr);
        return address;
    }
    [[noreturn]] void run() const {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        enter_();
        const int log = open((folder_ + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        const std::string peer = "http://" + host_ + ':' + std::to_string(peer_port_);
        std::vector<std::string> words = {ETCD_PATH, "--data-dir", folder_ + "/data", "--logger", "zap"};
        for (const std::string &word :
             {std::string("--listen-client-urls"), scheme_ + "://" + place(), std::string("--advertise-client-urls"),
              scheme_ + "://" + place(), std::string("--listen-peer-urls"), peer,
              std::string("--initial-advertise-peer-urls"), peer, std::string("--initial-cluster"), "default=" + peer,
              std::string("--unsafe-no-fsync")}) {
            words.push_back(word);
        }
        words.insert(words.end(), more_.begin(), more_.end());
        std::vector<char *> arguments;
        arguments.reserve(words.size() + 1);
        for (std::string &word : words) {
            arguments.push_back(word.data());
        }
        arguments.push_back(nullptr);
        execv(ETCD_PATH, arguments.data());
        _exit(127);
    }

    std::vector<std::string> more_;
    std::string scheme_;
    std::string host_;
    std::function<void()> enter_;
    std::string folder_;
    uint16_t port_ = 0;
    uint16_t peer_port_ = 0;
    pid_t pid_ = -1;
    bool is_up_ = false;
};

/** A cluster of several members. */
class etcd_cluster_t {
public:
    struct place_t {
        std::string host = "127.0.0.1";
        std::function<void()> enter = [] {};
    };

    /** `more` are options of each member, whose process runs at one of `places`. */
    explicit etcd_cluster_t(const std::vector<place_t> &places, const std::vector<std::string> &more = {}) {
        std::vector<uint16_t> ports;
        std::string all;
        for (size_t i = 0; i < places.size(); ++i) {
            ports.push_back(free_port());
            if (i != 0) all += ',';
            all.append(name(i)).append("=http://").append(places[i].host).append(":").append(std::to_string(ports[i]));
        }
        for (size_t i = 0; i < places.size(); ++i) {
            std::vector<std::string> words = {"--name", name(i), "--initial-cluster", all};
            words.insert(words.end(), more.begin(), more.end());
            members_.push_back(
                std::make_unique<etcd_process_t>(std::move(words), "http", ports[i], places[i].host, places[i].enter));
        }
    }

    size_t size() const { return members_.size(); }
    etcd_process_t &operator[](size_t i) const { return *members_[i]; }
    std::vector<std::string> places() const {
        std::vector<std::string> places;
        for (const auto &member : members_) {
            places.push_back(member->place());
        }
        return places;
    }

private:
    static std::string name(size_t i) { return std::string("m").append(std::to_string(i)); }

    std::vector<std::unique_ptr<etcd_process_t>> members_;
};

#endif
