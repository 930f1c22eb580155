/* Programs as processes: starting them, connecting to them, and reading their web pages. */
#ifndef TESTS_NAT64D_PROGRAM_H
#define TESTS_NAT64D_PROGRAM_H

#include <arpa/inet.h>
#include <sys/prctl.h>
#include <sys/un.h>

#include <csignal>
#include <vector>

#include "tests/support/eventually.h"

inline sockaddr_in loopback(uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

inline sockaddr_un unix_address(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    return address;
}

/** Replaces this process by a program that ends with its parent. The first word is the path of the program. */
[[noreturn]] inline void become(std::vector<std::string> words) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    std::vector<char *> arguments;
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    execv(arguments.front(), arguments.data());
    _exit(127);
}

/** Fetches a web page, with its header. */
inline std::string web_page(const sockaddr_in &address, const std::string &page) {
    const int fd = connected(AF_INET, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    return converse(fd, "GET " + page + " HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
}

/** The value of a metric on a page; `name` includes the labels. */
inline std::string value_of(const std::string &metrics, const std::string &name) {
    const size_t at = metrics.find('\n' + name + ' ');
    const size_t begin = at + name.size() + 2;
    return at == std::string::npos ? "none" : metrics.substr(begin, metrics.find('\n', begin) - begin);
}

#endif
