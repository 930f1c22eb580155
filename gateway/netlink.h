/* Requests to the kernel over netlink, on top of libmnl: attributes, a request with its header, and a socket. */
#ifndef GATEWAY_NETLINK_H
#define GATEWAY_NETLINK_H

#include <libmnl/libmnl.h>

#include <cerrno>
#include <memory>
#include <utility>

using attribute_fn_t = int (*)(const nlattr *, void *);

/** Calls `see` with each attribute after the header of a message. */
template <typename see_t>
void each_attribute(const nlmsghdr *message, size_t header_size, see_t see) {
    const attribute_fn_t call = [](const nlattr *attribute, void *arg) {
        (*static_cast<see_t *>(arg))(attribute);
        return static_cast<int>(MNL_CB_OK);
    };
    mnl_attr_parse(message, static_cast<unsigned>(header_size), call, &see);
}
/** Calls `see` with each attribute nested in an attribute. */
template <typename see_t>
void each_attribute(const nlattr *nest, see_t see) {
    const attribute_fn_t call = [](const nlattr *attribute, void *arg) {
        (*static_cast<see_t *>(arg))(attribute);
        return static_cast<int>(MNL_CB_OK);
    };
    mnl_attr_parse_nested(nest, call, &see);
}

/** A request: fill in its header and attributes, then send it with netlink_t. */
template <typename header_t>
class netlink_request_t {
public:
    netlink_request_t(uint16_t type, uint16_t flags) : message_(mnl_nlmsg_put_header(buffer_)) {
        message_->nlmsg_type = type;
        message_->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
        head_ = static_cast<header_t *>(mnl_nlmsg_put_extra_header(message_, sizeof(header_t)));
    }
    nlmsghdr *message() { return message_; }
    header_t *operator->() { return head_; }

private:
    alignas(nlmsghdr) char buffer_[512]{};
    nlmsghdr *message_;
    header_t *head_;
};

class netlink_t {
public:
    explicit netlink_t(int bus) : socket_(mnl_socket_open2(bus, SOCK_CLOEXEC), mnl_socket_close) {
        if (socket_ && mnl_socket_bind(socket_.get(), 0, MNL_SOCKET_AUTOPID) != 0) socket_.reset();
    }
    /** Sends a request that asks for an acknowledgement or a dump, and calls `see` with each message of the answer.
     * Returns 0 or an errno value. */
    template <typename see_t>
    int ask(nlmsghdr *message, see_t see) {
        if (!socket_) return EMFILE;
        message->nlmsg_seq = ++sequence_;
        if (mnl_socket_sendto(socket_.get(), message, message->nlmsg_len) < 0) return errno;
        int failed = 0;
        alignas(nlmsghdr) char buffer[32768];
        for (;;) {
            auto left = static_cast<int>(mnl_socket_recvfrom(socket_.get(), buffer, sizeof buffer));
            if (left < 0) return errno;
            auto *answer = reinterpret_cast<const nlmsghdr *>(buffer);
            for (; mnl_nlmsg_ok(answer, left); answer = mnl_nlmsg_next(answer, &left)) {
                if (answer->nlmsg_seq != sequence_) continue; /* the rest of an answer that could not be received */
                if ((answer->nlmsg_flags & NLM_F_DUMP_INTR) != 0) failed = EINTR;
                const bool is_end = answer->nlmsg_type == NLMSG_DONE || answer->nlmsg_type == NLMSG_ERROR;
                if (is_end) {
                    const int error = *static_cast<const int *>(mnl_nlmsg_get_payload(answer));
                    return error != 0 ? -error : failed;
                }
                see(answer);
            }
        }
    }
    int ask(nlmsghdr *message) {
        return ask(message, [](const nlmsghdr *) {});
    }

private:
    std::unique_ptr<mnl_socket, int (*)(mnl_socket *)> socket_;
    uint32_t sequence_ = 0;
};

#endif
