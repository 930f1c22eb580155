/* A server that sends prepared answers, regardless of the requests. */
#ifndef TESTS_FLEET_SCRIPTED_SERVER_H
#define TESTS_FLEET_SCRIPTED_SERVER_H

#include <string>
#include <vector>

#include "tests/fleet/etcd_process.h"
#include "tests/support/child.h"

/** Each connection gets the next list of answers, one for each request, and is then closed, except for the last one.
 * With `is_side_by_side`, connections are served concurrently and all stay open. */
class scripted_server_t {
public:
    using answers_t = std::vector<std::string>;

    explicit scripted_server_t(const std::vector<answers_t> &connections, bool is_side_by_side = false) {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = loopback(0);
        socklen_t size = sizeof address;
        static_cast<void>(bind(listener, reinterpret_cast<const sockaddr *>(&address), size));
        listen(listener, 8);
        getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
        port_ = ntohs(address.sin_port);
        child_.start([&](int ready) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (write(ready, "", 1) != 1) return;
            for (const answers_t &answers : connections) {
                const int fd = accept(listener, nullptr, nullptr);
                const bool is_others_work = is_side_by_side && fork() != 0;
                if (!is_others_work) serve(fd, answers, is_side_by_side || &answers == &connections.back());
                close(fd);
                if (is_side_by_side && !is_others_work) return;
            }
            while (is_side_by_side && wait(nullptr) > 0) {
            }
        });
        close(listener);
    }

    std::string place() const { return "127.0.0.1:" + std::to_string(port_); }

    /** A complete HTTP answer. */
    static std::string answer(int status, const std::string &body) {
        return "HTTP/1.1 " + std::to_string(status) + " x\r\nContent-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + body;
    }

private:
    static void serve(int fd, const answers_t &answers, bool stays) {
        for (const std::string &text : answers) {
            take_request(fd);
            for (size_t sent = 0; sent < text.size();) {
                const ssize_t size = send(fd, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
                if (size <= 0) break;
                sent += static_cast<size_t>(size);
            }
        }
        char room[4096];
        while (stays && read(fd, room, sizeof room) > 0) {
        }
    }
    /** Reads the headers and the body of a request. */
    static void take_request(int fd) {
        std::string asked;
        char room[65536];
        const auto is_whole = [&] {
            const size_t head = asked.find("\r\n\r\n");
            const size_t length = asked.find("Content-Length: ");
            if (head == std::string::npos || length == std::string::npos) return head != std::string::npos;
            return asked.size() >= head + 4 + std::stoul(asked.substr(length + 16));
        };
        while (!is_whole()) {
            const ssize_t size = read(fd, room, sizeof room);
            if (size <= 0) break;
            asked.append(room, static_cast<size_t>(size));
        }
    }

    uint16_t port_ = 0;
    child_t child_;
};

#endif
