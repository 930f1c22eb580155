/* The control socket's server. A client sends one word on a line and gets one line as the answer. Then the connection
 * ends. */
#ifndef TOOLS_NAT64D_CONTROL_H
#define TOOLS_NAT64D_CONTROL_H

#include <functional>
#include <map>
#include <memory>
#include <string>

#include "fwx_host/user_socket.h"
#include "net/descriptor.h"

class control_t {
public:
    /** Sends the answer, at any time, once, while the control_t lives. */
    using reply_fn_t = std::function<void(const std::string &line)>;
    using asked_fn_t = std::function<void(const std::string &word, reply_fn_t reply)>;

    control_t(fwx_host_loop_t *loop, asked_fn_t asked) : loop_(loop), asked_(std::move(asked)) {}
    ~control_t();
    control_t(const control_t &) = delete;
    control_t &operator=(const control_t &) = delete;

    /** Listens as the nat64d of that server. Returns an error text, empty on success. Call it once. */
    std::string listen(const std::string &server);

private:
    struct client_t {
        std::unique_ptr<watched_descriptor_t> descriptor;
        std::string line;
        bool has_asked = false;
    };

    void add_client(int fd);
    bool make_room();
    void receive(uint64_t id);
    void answer(uint64_t id, const std::string &line);

    fwx_host_loop_t *loop_;
    asked_fn_t asked_;
    fwx_host_user_listener_t *listener_ = nullptr;
    std::map<uint64_t, client_t> clients_; /* the oldest first */
    uint64_t last_id_ = 0;
};

#endif
