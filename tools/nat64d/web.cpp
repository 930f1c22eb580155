#include "tools/nat64d/web.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <utility>
#include <vector>

namespace {

constexpr unsigned connection_limit = 32;
constexpr unsigned connection_timeout_s = 30;

union address_t {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

/** Whether the text is a loopback address and a port. */
bool read_address(const std::string &text, address_t &address) {
    const size_t colon = text.rfind(':');
    if (colon == std::string::npos) return false;
    uint16_t port = 0;
    const char *const end = text.data() + text.size();
    const auto [rest, failed] = std::from_chars(text.data() + colon + 1, end, port);
    if (failed != std::errc() || rest != end) return false;
    const bool is_v6 = colon >= 2 && text[0] == '[' && text[colon - 1] == ']';
    if (is_v6) {
        address.v6 = {};
        address.v6.sin6_family = AF_INET6;
        address.v6.sin6_port = htons(port);
        return inet_pton(AF_INET6, text.substr(1, colon - 2).c_str(), &address.v6.sin6_addr) == 1 &&
               IN6_IS_ADDR_LOOPBACK(&address.v6.sin6_addr);
    }
    address.v4 = {};
    address.v4.sin_family = AF_INET;
    address.v4.sin_port = htons(port);
    return inet_pton(AF_INET, text.substr(0, colon).c_str(), &address.v4.sin_addr) == 1 &&
           ntohl(address.v4.sin_addr.s_addr) >> 24 == IN_LOOPBACKNET;
}

MHD_Result answer(MHD_Connection *connection, const web_t::page_t &page) {
    MHD_Response *response = MHD_create_response_from_buffer(page.text.size(), const_cast<char *>(page.text.data()),
                                                             /* it is copied */ MHD_RESPMEM_MUST_COPY);
    if (response == nullptr) return MHD_NO;
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, "text/plain; version=0.0.4; charset=utf-8");
    const MHD_Result result = MHD_queue_response(connection, page.status, response);
    MHD_destroy_response(response);
    return result;
}

}  // namespace

web_t::~web_t() {
    if (daemon_ == nullptr) return;
    metrics_made("");
    MHD_run(daemon_); /* it stops with nobody suspended */
    if (timer_ != 0) fwx_host_timer_cancel(loop_, timer_);
    if (is_watched_) fwx_host_loop_unwatch(loop_, MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd);
    MHD_stop_daemon(daemon_);
}

std::string web_t::listen(const std::string &text) {
    address_t address{};
    if (!read_address(text, address)) return text + ": must be a loopback address and a port, 127.0.0.1:9464";
    const unsigned family = address.any.sa_family == AF_INET6 ? unsigned{MHD_USE_IPv6} : 0U;
    daemon_ = MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | family, 0, nullptr, nullptr, handle, this,
                               MHD_OPTION_SOCK_ADDR, &address.any, MHD_OPTION_NOTIFY_COMPLETED, completed, this,
                               MHD_OPTION_CONNECTION_LIMIT, connection_limit, MHD_OPTION_CONNECTION_TIMEOUT,
                               connection_timeout_s, MHD_OPTION_END);
    if (daemon_ == nullptr) return text + ": cannot listen there: " + std::strerror(errno);
    const int fd = MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
    const auto wake = [](void *self) { static_cast<web_t *>(self)->run(); };
    is_watched_ = fwx_host_loop_watch(loop_, fd, wake, this) == 0;
    return is_watched_ ? "" : text + ": no descriptors left";
}

uint16_t web_t::port() const {
    return daemon_ == nullptr ? uint16_t{0} : MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
}

void web_t::metrics_made(const std::string &text) {
    for (request_t *request : std::exchange(waiting_, {})) {
        request->page = {MHD_HTTP_OK, text};
        MHD_resume_connection(request->connection);
    }
    plan_run(0);
}

void web_t::run() {
    MHD_run(daemon_);
    MHD_UNSIGNED_LONG_LONG delay_ms = 0;
    if (MHD_get_timeout(daemon_, &delay_ms) == MHD_YES) plan_run(delay_ms);
}

void web_t::plan_run(uint64_t delay_ms) {
    if (timer_ != 0) fwx_host_timer_cancel(loop_, timer_);
    const auto wake = [](void *self) {
        static_cast<web_t *>(self)->timer_ = 0;
        static_cast<web_t *>(self)->run();
    };
    timer_ = fwx_host_timer_add(loop_, delay_ms, wake, this);
}

MHD_Result web_t::handle(void *arg, MHD_Connection *connection, const char *url, const char *method, const char *,
                         const char *, size_t *body_size, void **place) {
    auto &self = *static_cast<web_t *>(arg);
    if (*place == nullptr) {
        *place = new request_t{connection, {}};
        return MHD_YES;
    }
    auto &request = *static_cast<request_t *>(*place);
    if (*body_size != 0) { /* nobody wants it */
        *body_size = 0;
        return MHD_YES;
    }
    if (request.page.status == 0) request.page = self.page_of(url, method);
    return request.page.status == 0 ? self.wait_for_metrics(request) : answer(connection, request.page);
}

web_t::page_t web_t::page_of(const std::string &url, const std::string &method) const {
    const bool is_read = method == MHD_HTTP_METHOD_GET || method == MHD_HTTP_METHOD_HEAD;
    if (!is_read) return {MHD_HTTP_METHOD_NOT_ALLOWED, "only GET and HEAD\n"};
    if (url == "/healthz") return health_();
    if (url == "/metrics") return {};
    return {MHD_HTTP_NOT_FOUND, "there are /metrics and /healthz\n"};
}

/** Who comes while the page is made gets the same one. */
MHD_Result web_t::wait_for_metrics(request_t &request) {
    MHD_suspend_connection(request.connection);
    waiting_.push_back(&request);
    if (waiting_.size() == 1) make_metrics_();
    return MHD_YES;
}

void web_t::completed(void *arg, MHD_Connection *, void **place, MHD_RequestTerminationCode) {
    auto *request = static_cast<request_t *>(*place); /* null: it ended before it was handled */
    std::erase(static_cast<web_t *>(arg)->waiting_, request);
    delete request;
    *place = nullptr;
}
