/* What tests beside other processes do: wait, read what these write, and connect to them. */
#ifndef TESTS_SUPPORT_EVENTUALLY_H
#define TESTS_SUPPORT_EVENTUALLY_H

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>

/** Tries until it holds, for as long as even a slow machine may take. */
template <typename condition_t>
bool eventually(condition_t condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        poll(nullptr, 0, 5);
    }
    return true;
}

inline std::string text_of(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/** A socket; -1 when nobody listens there. */
inline int connected(int domain, const sockaddr *address, socklen_t size) {
    const int fd = socket(domain, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, address, size) == 0) return fd;
    close(fd);
    return -1;
}

/** Whether the other side has ended a connection from which nothing is read otherwise. */
inline bool is_hung_up(int fd) {
    char byte = 0;
    const ssize_t got = recv(fd, &byte, 1, MSG_DONTWAIT);
    return got == 0 || (got < 0 && errno != EAGAIN);
}

/** Sends a text and gives all that comes until the other side ends; empty when nobody is there. */
inline std::string converse(int fd, const std::string &text) {
    std::string answer;
    if (fd < 0 || send(fd, text.data(), text.size(), MSG_NOSIGNAL) < 0) return answer;
    char room[65536];
    for (ssize_t size = 0; (size = read(fd, room, sizeof room)) > 0;) {
        answer.append(room, static_cast<size_t>(size));
    }
    close(fd);
    return answer;
}

#endif
