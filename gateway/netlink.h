/* Requests to the kernel over netlink, on top of libmnl: attributes, a request with its header, and a socket. */
#ifndef GATEWAY_NETLINK_H
#define GATEWAY_NETLINK_H

#include <libmnl/libmnl.h>

#include <cerrno>
#include <memory>
#include <utility>

/** Returns the attribute of `type` in the bytes up to `end`, or nullptr. */
inline const nlattr *find_attribute(const void *begin, const char *end, uint16_t type) {
    const auto *attribute = static_cast<const nlattr *>(begin);
    for (; mnl_attr_ok(attribute, static_cast<int>(end - reinterpret_cast<const char *>(attribute)));
         attribute = mnl_attr_next(attribute)) {
        if (mnl_attr_get_type(attribute) == type) return attribute;
    }
    return nullptr;
}
/** The same behind the header of a message. */
inline const nlattr *find_attribute(const nlmsghdr *message, size_t header_size, uint16_t type) {
    return find_attribute(mnl_nlmsg_get_payload_offset(message, header_size),
                          static_cast<const char *>(mnl_nlmsg_get_payload_tail(message)), type);
}
/** The same in an attribute, which may be nullptr. */
inline const nlattr *find_attribute(const nlattr *nest, uint16_t type) {
    if (nest == nullptr) return nullptr;
    const auto *payload = static_cast<const char *>(mnl_attr_get_payload(nest));
    return find_attribute(payload, payload + mnl_attr_get_payload_len(nest), type);
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
    static void ignore(const nlmsghdr *) {}
    /** Sends a request that asks for an acknowledgement or a dump, and calls `see` with each message of the answer.
     * Returns 0 or an errno value. */
    template <typename see_t = decltype(&ignore)>
    int ask(nlmsghdr *message, see_t see = &ignore) {
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

private:
    std::unique_ptr<mnl_socket, int (*)(mnl_socket *)> socket_;
    uint32_t sequence_ = 0;
};

#endif
