/* Starts a real etcd for a test, as a process with its data in a temporary folder. */
#ifndef TESTS_FLEET_ETCD_PROCESS_H
#define TESTS_FLEET_ETCD_PROCESS_H

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>

#include "tests/nat64d/program.h"
#include "tests/support/child.h"
#include "tests/support/eventually.h"

/** Binds a socket to a TCP port that is free at the moment. Returns the port. */
inline uint16_t bind_to_free_port(int fd) {
    sockaddr_in address = loopback(0);
    socklen_t size = sizeof address;
    static_cast<void>(bind(fd, reinterpret_cast<const sockaddr *>(&address), size));
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size);
    return ntohs(address.sin_port);
}

inline uint16_t free_port() {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const uint16_t port = bind_to_free_port(fd);
    close(fd);
    return port;
}

/** The address of a port at which no process listens. */
inline std::string nowhere() {
    return "127.0.0.1:" + std::to_string(free_port());
}

/** True if a process listens there. */
inline bool answers_at(const sockaddr_in &address) {
    const int fd = connected(AF_INET, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    if (fd >= 0) close(fd);
    return fd >= 0;
}

class etcd_process_t : public child_t {
public:
    /**
     * @param more      options, in addition to those with addresses and paths
     * @param peer_port port for the other members of its cluster, which may start later; 0: any
     * @param host      its IPv4 address
     * @param enter     called in its process before it starts
     */
    explicit etcd_process_t(
        std::vector<std::string> more = {}, uint16_t peer_port = 0, std::string host = "127.0.0.1",
        std::function<void()> enter = [] {})
        : more_(std::move(more)), host_(std::move(host)), enter_(std::move(enter)) {
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

    /** Starts it with its previous data at the same port. False if it does not start to listen. */
    bool start() {
        child_t::start([this](int) { run(); });
        bool is_over = false;
        is_up_ = eventually([&] { return (is_over = has_ended()) || answers_at(address()); }) && !is_over;
        return is_up_;
    }
    void lose_data() const { std::filesystem::remove_all(folder_ + "/data"); }

    /** Runs a command of etcdctl. False if it fails. */
    bool control(const std::string &words) const {
        return std::system((etcdctl() + words + " >>" + folder_ + "/log 2>&1").c_str()) == 0;
    }
    bool put(const std::string &key, const std::string &value) const {
        return control("put " + key + " '" + value + "'");
    }
    /** Compacts the history up to the last revision. */
    bool compact() const {
        return control("compaction --physical $(" + etcdctl() +
                       "endpoint status -w json | grep -o '\"revision\":[0-9]*' | cut -d: -f2)");
    }

    bool is_up() const { return is_up_; }
    std::string place() const { return host_ + ':' + std::to_string(port_); }
    std::string url(const std::string &prefix) const { return "etcd://" + place() + '/' + prefix; }
    std::string log() const { return text_of(folder_ + "/log"); }
    std::string get(const std::string &page) const { return web_page(address(), page); }

private:
    sockaddr_in address() const {
        sockaddr_in address = loopback(port_);
        inet_pton(AF_INET, host_.c_str(), &address.sin_addr);
        return address;
    }
    std::string etcdctl() const { return "ETCDCTL_API=3 " ETCDCTL_PATH " --endpoints " + place() + ' '; }
    [[noreturn]] void run() const {
        enter_();
        const int log = open((folder_ + "/log").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        const std::string clients = "http://" + place();
        const std::string peers = "http://" + host_ + ':' + std::to_string(peer_port_);
        std::istringstream options(ETCD_PATH " --logger zap --unsafe-no-fsync --data-dir " + folder_ + "/data" +
                                   " --listen-client-urls " + clients + " --advertise-client-urls " + clients +
                                   " --listen-peer-urls " + peers + " --initial-advertise-peer-urls " + peers +
                                   " --initial-cluster default=" + peers);
        std::vector<std::string> words(std::istream_iterator<std::string>(options), {});
        words.insert(words.end(), more_.begin(), more_.end());
        become(std::move(words));
    }

    std::vector<std::string> more_;
    std::string host_;
    std::function<void()> enter_;
    std::string folder_;
    uint16_t port_ = 0;
    uint16_t peer_port_ = 0;
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
                std::make_unique<etcd_process_t>(std::move(words), ports[i], places[i].host, places[i].enter));
        }
    }

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
