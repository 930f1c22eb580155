/* Helpers of tests with other processes: waiting for a condition, running programs, reading files, and connecting. */
#ifndef TESTS_SUPPORT_EVENTUALLY_H
#define TESTS_SUPPORT_EVENTUALLY_H

#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

/** Waits until the condition holds. Returns false after 60 seconds, which is enough for a slow machine. */
template <typename condition_t>
bool eventually(condition_t condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        poll(nullptr, 0, 5);
    }
    return true;
}

/** What a program has ended with: its exit status, -1 for a signal, and its output. */
struct ran_t {
    int status;
    std::string output;
};

/** Reads the output of a program that popen has started, and waits for its end. */
inline ran_t end_of(FILE *program) {
    ran_t ran{-1, ""};
    if (program == nullptr) return ran;
    char room[65536];
    for (size_t size = 0; (size = fread(room, 1, sizeof room, program)) > 0;) {
        ran.output.append(room, size);
    }
    const int status = pclose(program);
    ran.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ran;
}

/** Runs a command of the shell, with its standard error in its output. */
inline ran_t run_command(const std::string &command) {
    return end_of(popen((command + " 2>&1").c_str(), "re"));
}

inline std::string text_of(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path).rdbuf();
    return text.str();
}

/** Connects a stream socket and returns it, or -1 when nothing listens at the address. */
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

/** Sends a text and returns everything received until the other side closes. Then closes `fd`. Returns an empty text
 * when `fd` is -1, sending fails, or the other side neither says more nor closes for 60 seconds. */
inline std::string converse(int fd, const std::string &text) {
    std::string answer;
    if (fd < 0) return answer;
    const timeval patience = {60, 0};
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    char room[65536];
    ssize_t size = send(fd, text.data(), text.size(), MSG_NOSIGNAL);
    while (size >= 0 && (size = read(fd, room, sizeof room)) > 0) {
        answer.append(room, static_cast<size_t>(size));
    }
    if (size < 0 && errno == EAGAIN) answer.clear();
    close(fd);
    return answer;
}

#endif
