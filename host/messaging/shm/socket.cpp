/*
 * The messages on the socket. A client's offer is a word with the protocol version and three descriptors. A received
 * offer may contain other descriptors, which are all closed by the closer. A server that turns a client away sends a
 * result code before it closes the socket.
 */
#include "host/messaging/shm/socket.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "fwx_host/errors.h"
#include "host/loop/closer.h"
#include "host/messaging/shm/segment.h"

namespace {

constexpr uint32_t greeting = 0x46575830 + shm_version;
constexpr uint32_t any_version = 0xffffff00;
constexpr size_t most_descriptors = 253; /* the kernel's limit for one message */

/** Room for a control message with the largest number of descriptors. */
union control_t {
    cmsghdr header;
    char bytes[CMSG_SPACE(most_descriptors * sizeof(int))];
};

/** Makes a message header that points to a word and to room for descriptors. */
msghdr framed(iovec &word, control_t &control) {
    msghdr message{};
    message.msg_iov = &word;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes;
    message.msg_controllen = sizeof(control.bytes);
    return message;
}

}  // namespace

bool shm_handles_send(const descriptor_t &socket, const shm_handles_t &handles) {
    uint32_t word = greeting;
    iovec body{&word, sizeof(word)};
    control_t control{};
    msghdr message = framed(body, control);
    const int numbers[] = {handles[0].get(), handles[1].get(), handles[2].get()};
    message.msg_controllen = CMSG_SPACE(sizeof(numbers));
    cmsghdr *header = CMSG_FIRSTHDR(&message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(numbers));
    memcpy(CMSG_DATA(header), numbers, sizeof(numbers));
    return sendmsg(socket.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT) == sizeof(word);
}

uint32_t shm_handles_receive(const descriptor_t &socket, shm_handles_t *handles) {
    uint32_t word = 0;
    iovec body{&word, sizeof(word)};
    control_t control{};
    msghdr message = framed(body, control);
    const ssize_t got = recvmsg(socket.get(), &message, MSG_CMSG_CLOEXEC | MSG_DONTWAIT);
    if (got < 0) return errno == EAGAIN ? EAGAIN : FWX_HOST_ERR_BAD_ARG;
    size_t count = 0;
    for (cmsghdr *header = CMSG_FIRSTHDR(&message); header != nullptr; header = CMSG_NXTHDR(&message, header)) {
        if (header->cmsg_level != SOL_SOCKET || header->cmsg_type != SCM_RIGHTS) continue;
        const size_t of_header = (header->cmsg_len - CMSG_LEN(0)) / sizeof(int);
        for (size_t i = 0; i < of_header; ++i, ++count) {
            int number = -1;
            memcpy(&number, CMSG_DATA(header) + i * sizeof(number), sizeof(number));
            descriptor_t received(number);
            if (count < handles->size()) {
                (*handles)[count] = std::move(received);
            } else {
                closer_take(std::move(received));
            }
        }
    }
    const bool is_whole = got == sizeof(word) && (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) == 0;
    if (is_whole && word == greeting && count == handles->size()) return 0;
    for (descriptor_t &handle : *handles) {
        closer_take(std::move(handle));
    }
    const bool is_other_version = is_whole && word != greeting && (word & any_version) == (greeting & any_version);
    return is_other_version ? FWX_HOST_ERR_VERSION : FWX_HOST_ERR_BAD_ARG;
}

void shm_turn_away(descriptor_t socket, uint32_t code) {
    send(socket.get(), &code, sizeof(code), MSG_NOSIGNAL | MSG_DONTWAIT);
    user_socket_close(std::move(socket));
}

uint32_t shm_why_closed(const descriptor_t &socket) {
    uint32_t code = 0;
    ssize_t got = -1;
    /* The first call may report a pending socket error instead of the message. MSG_PEEK leaves descriptors that came
     * with a message in the socket. */
    for (int tries = 0; tries < 2 && got < 0; ++tries) {
        got = recv(socket.get(), &code, sizeof(code), MSG_PEEK | MSG_DONTWAIT);
    }
    const bool is_told = got == sizeof(code) && (code == FWX_HOST_ERR_VERSION || code == FWX_HOST_ERR_BUSY);
    return is_told ? code : FWX_HOST_ERR_CHANNEL_DOWN;
}
