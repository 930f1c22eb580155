/* A server that sends prepared answers, regardless of the requests. */
#ifndef TESTS_FLEET_SCRIPTED_SERVER_H
#define TESTS_FLEET_SCRIPTED_SERVER_H

#include "net/json.h"
#include "tests/fleet/store_fixture.h"

/** A complete HTTP answer. */
inline std::string answer(int status, const std::string &body) {
    return "HTTP/1.1 " + std::to_string(status) + " x\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           body;
}
inline std::string ok(const std::string &body) {
    return answer(200, body);
}
/** The answer of an etcd that fails. */
inline std::string failure(int status, int code, const std::string &message) {
    return answer(status, json_t{{"code", code}, {"message", message}}.dump());
}

/** Each connection gets the next list of answers, one for each request, and is then closed, except for the last one.
 * With `is_side_by_side`, connections are served concurrently and all stay open. */
class scripted_server_t {
public:
    using answers_t = std::vector<std::string>;

    explicit scripted_server_t(const std::vector<answers_t> &connections, bool is_side_by_side = false) {
        const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        port_ = bind_to_free_port(listener);
        listen(listener, 8);
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

/** Such a server and a client of it. The client's user is the store's, if it has one. */
struct scripted_store_t {
    scripted_store_t(fwx_host_loop_t *loop, const std::vector<scripted_server_t::answers_t> &connections,
                     const etcd_options_t &options = {}, store_t store = {})
        : server(connections), etcd(loop, with_endpoint(std::move(store)), options) {}

    /** The text of an error of the client. */
    std::string error(const std::string &fault) const { return "http://" + server.place() + ": " + fault; }

    const scripted_server_t server;
    etcd_t etcd;

private:
    store_t with_endpoint(store_t store) const {
        store.endpoints = store_at({server.place()}).endpoints;
        return store;
    }
};

#endif
