/* Network namespaces of a test's own: an IPv6 client, the gateway and an IPv4 server. They end with the process. */
#ifndef TESTS_GATEWAY_NETWORK_H
#define TESTS_GATEWAY_NETWORK_H

#include <arpa/inet.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "tests/support/eventually.h"

class namespace_t {
public:
    namespace_t() {
        const int home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        if (unshare(CLONE_NEWNET) == 0) fd_ = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        setns(home, CLONE_NEWNET);
        close(home);
    }
    ~namespace_t() { close(fd_); }
    namespace_t(const namespace_t &) = delete;
    namespace_t &operator=(const namespace_t &) = delete;

    bool is_made() const { return fd_ >= 0; }
    void enter() const { setns(fd_, CLONE_NEWNET); }
    /** A path for `ip link set DEVICE netns PATH`. */
    std::string path() const { return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(fd_); }
    /** Calls `act` inside; what it opens stays inside. */
    template <typename act_t>
    auto inside(act_t act) const {
        const int home = open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
        enter();
        auto result = act();
        setns(home, CLONE_NEWNET);
        close(home);
        return result;
    }
    ran_t run(const std::string &command) const {
        return inside([&command] { return run_command(command); });
    }

private:
    int fd_ = -1;
};

struct end_t {
    sockaddr_storage address{};
    socklen_t size = 0;

    end_t() = default;
    end_t(const std::string &text, uint16_t port) {
        auto *ipv6 = reinterpret_cast<sockaddr_in6 *>(&address);
        auto *ipv4 = reinterpret_cast<sockaddr_in *>(&address);
        const bool is_ipv6 = inet_pton(AF_INET6, text.c_str(), &ipv6->sin6_addr) == 1;
        if (!is_ipv6) inet_pton(AF_INET, text.c_str(), &ipv4->sin_addr);
        address.ss_family = is_ipv6 ? AF_INET6 : AF_INET;
        (is_ipv6 ? ipv6->sin6_port : ipv4->sin_port) = htons(port);
        size = is_ipv6 ? sizeof *ipv6 : sizeof *ipv4;
    }
    sockaddr *get() { return reinterpret_cast<sockaddr *>(&address); }
    std::string host() const {
        char text[INET6_ADDRSTRLEN] = "";
        const auto *ipv6 = reinterpret_cast<const sockaddr_in6 *>(&address);
        const auto *ipv4 = reinterpret_cast<const sockaddr_in *>(&address);
        const bool is_ipv6 = address.ss_family == AF_INET6;
        return inet_ntop(address.ss_family, is_ipv6 ? static_cast<const void *>(&ipv6->sin6_addr) : &ipv4->sin_addr,
                         text, sizeof text);
    }
    uint16_t port() const { return ntohs(reinterpret_cast<const sockaddr_in *>(&address)->sin_port); }
};

/** A socket; what it waits for comes within ten seconds, or `never_ms` where nothing is to come. */
class socket_t {
public:
    static constexpr int patience_ms = 10000;
    static constexpr int never_ms = 300;

    socket_t(const namespace_t &place, int type, const end_t &own, int protocol = 0)
        : fd_(place.inside([&] {
              end_t bound = own;
              const int fd = socket(own.address.ss_family, type | SOCK_CLOEXEC, protocol);
              const int is_chosen = own.port() != 0; /* else two UDP sockets could get the same free port */
              setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &is_chosen, sizeof is_chosen);
              return bind(fd, bound.get(), bound.size) == 0 ? fd : -1;
          })) {}
    explicit socket_t(int fd) : fd_(fd) {}
    socket_t(socket_t &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    ~socket_t() {
        if (fd_ >= 0) close(fd_);
    }
    socket_t &operator=(socket_t &&) = delete;

    int fd() const { return fd_; }
    bool connects(end_t to, int wait_ms = patience_ms) const {
        fcntl(fd_, F_SETFL, O_NONBLOCK);
        static_cast<void>(connect(fd_, to.get(), to.size)); /* is waited for below */
        pollfd writable = {fd_, POLLOUT, 0};
        int error = 0;
        socklen_t size = sizeof error;
        const bool is_over = poll(&writable, 1, wait_ms) == 1;
        return is_over && getsockopt(fd_, SOL_SOCKET, SO_ERROR, &error, &size) == 0 && error == 0;
    }
    socket_t accepted() const {
        return socket_t(is_readable(patience_ms) ? accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC) : -1);
    }
    bool send(const std::string &text, end_t to = {}) const {
        const ssize_t size =
            sendto(fd_, text.data(), text.size(), MSG_NOSIGNAL, to.size == 0 ? nullptr : to.get(), to.size);
        return size == static_cast<ssize_t>(text.size());
    }
    /** The next message, or what of a stream is there; empty when nothing comes. */
    std::string receive(int wait_ms = patience_ms, end_t *from = nullptr) const {
        char room[65536];
        end_t peer;
        peer.size = sizeof peer.address;
        const ssize_t size = is_readable(wait_ms) ? recvfrom(fd_, room, sizeof room, 0, peer.get(), &peer.size) : -1;
        if (from != nullptr) *from = peer;
        return size > 0 ? std::string(room, static_cast<size_t>(size)) : "";
    }

private:
    bool is_readable(int wait_ms) const {
        pollfd readable = {fd_, POLLIN, 0};
        return poll(&readable, 1, wait_ms) == 1;
    }

    int fd_;
};

#endif
