/* Sends the offer of a client to a server in another process, valid or not: any bytes with any descriptors. */
#ifndef TESTS_SUPPORT_HAND_OVER_H
#define TESTS_SUPPORT_HAND_OVER_H

#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

#include "host/messaging/shm/bell.h"
#include "host/messaging/shm/segment.h"
#include "host/messaging/shm/socket.h"

inline constexpr uint32_t greeting = 0x46575834;
using handles_t = std::vector<descriptor_t>;

/** Sends bytes and descriptors as one message; returns whether that succeeded. */
inline bool hand_over(const descriptor_t &socket, const std::string &bytes, const handles_t &handles) {
    std::vector<int> numbers;
    for (const descriptor_t &handle : handles) {
        numbers.push_back(handle.get());
    }
    iovec body{const_cast<char *>(bytes.data()), bytes.size()};
    std::vector<uint64_t> control(CMSG_SPACE(numbers.size() * sizeof(int)) / sizeof(uint64_t));
    msghdr message{};
    message.msg_iov = &body;
    message.msg_iovlen = 1;
    if (!numbers.empty()) {
        message.msg_control = control.data();
        message.msg_controllen = control.size() * sizeof(uint64_t);
        cmsghdr *header = CMSG_FIRSTHDR(&message);
        *header = {CMSG_LEN(numbers.size() * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        memcpy(CMSG_DATA(header), numbers.data(), numbers.size() * sizeof(int));
    }
    return sendmsg(socket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT) == static_cast<ssize_t>(bytes.size());
}

inline std::string word(uint32_t value) {
    return {reinterpret_cast<const char *>(&value), sizeof(value)};
}

/** The descriptors of a valid offer: a segment, the client's bell and the server's bell. */
inline handles_t sound_handles() {
    handles_t handles;
    handles.push_back(shm_segment_make());
    handles.push_back(shm_bell_make());
    handles.push_back(shm_bell_make());
    return handles;
}

inline int pipe_without_reader() {
    int ends[2] = {-1, -1};
    if (pipe(ends) == 0) close(ends[0]);
    return ends[1];
}

#endif
