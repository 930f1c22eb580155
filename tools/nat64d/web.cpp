/*
 * Implements web.h with libmicrohttpd. Its epoll descriptor is watched by the loop, and its time-outs are timers of the
 * loop. Requests for /metrics are suspended until the page is made.
 */
#include "tools/nat64d/web.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <utility>
#include <vector>

#include "records/value.h"

namespace {

constexpr size_t most_visits = 32;
constexpr unsigned connection_limit = 2 * most_visits; /* including connections that are being served or are ending */
constexpr uint64_t deadline_ms = 5000;
constexpr uint64_t rest_ms = 100;

union address_t {
    sockaddr any;
    sockaddr_in v4;
    sockaddr_in6 v6;
};

/** Parses a loopback address and a port. False if the text is not one. */
bool read_address(const std::string &text, address_t &address) {
    fwx_nat64_addr_t place;
    uint16_t port = 0;
    if (!parse_address_port(text, place, port)) return false;
    if (place.family != FWX_NAT64_FAMILY_IPV4) {
        address.v6 = {};
        address.v6.sin6_family = AF_INET6;
        address.v6.sin6_port = htons(port);
        std::memcpy(&address.v6.sin6_addr, place.addr, sizeof address.v6.sin6_addr);
        return IN6_IS_ADDR_LOOPBACK(&address.v6.sin6_addr);
    }
    uint32_t word = 0;
    std::memcpy(&word, place.addr, sizeof word);
    address.v4 = {};
    address.v4.sin_family = AF_INET;
    address.v4.sin_port = htons(port);
    address.v4.sin_addr.s_addr = htonl(word);
    return word >> 24 == IN_LOOPBACKNET;
}

MHD_Result answer(MHD_Connection *connection, const web_t::page_t &page) {
    MHD_Response *response = MHD_create_response_from_buffer(page.text.size(), const_cast<char *>(page.text.data()),
                                                             /* copies the text */ MHD_RESPMEM_MUST_COPY);
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
    MHD_run(daemon_); /* because it must not be stopped while connections are suspended */
    fwx_host_timer_cancel(loop_, late_timer_);
    if (timer_ != 0) fwx_host_timer_cancel(loop_, timer_);
    fwx_host_timer_cancel(loop_, rest_timer_);
    if (is_watched_) fwx_host_loop_unwatch(loop_, fd());
    MHD_stop_daemon(daemon_);
}

std::string web_t::listen(const std::string &text) {
    address_t address{};
    if (!read_address(text, address)) return text + ": must be a loopback address and a port, 127.0.0.1:9464";
    const unsigned family = address.any.sa_family == AF_INET6 ? unsigned{MHD_USE_IPv6} : 0U;
    daemon_ = MHD_start_daemon(MHD_USE_EPOLL | MHD_ALLOW_SUSPEND_RESUME | family, 0, nullptr, nullptr, handle, this,
                               MHD_OPTION_SOCK_ADDR, &address.any, MHD_OPTION_NOTIFY_COMPLETED, completed, this,
                               MHD_OPTION_NOTIFY_CONNECTION, connected, this, MHD_OPTION_CONNECTION_LIMIT,
                               connection_limit, MHD_OPTION_END);
    if (daemon_ == nullptr) return text + ": cannot listen there: " + std::strerror(errno);
    watch();
    return is_watched_ ? "" : text + ": no descriptors left";
}

uint16_t web_t::port() const {
    return daemon_ == nullptr ? uint16_t{0} : MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_BIND_PORT)->port;
}

void web_t::metrics_made(const std::string &text) {
    for (request_t *request : std::exchange(waiting_, {})) {
        request->page = {MHD_HTTP_OK, text};
        visit_t &visit = visit_of(request->connection);
        visit.is_suspended = false;
        visit.since_ms = fwx_host_clock_ms();
        MHD_resume_connection(request->connection);
    }
    plan_run(0);
}

int web_t::fd() const {
    return MHD_get_daemon_info(daemon_, MHD_DAEMON_INFO_EPOLL_FD)->epoll_fd;
}

void web_t::watch() {
    const auto wake = [](void *self) { static_cast<web_t *>(self)->run_for_event(); };
    is_watched_ = fwx_host_loop_watch(loop_, fd(), wake, this) == 0;
}

/* Without a free descriptor a new client stays in the queue and would wake the loop again and again. So after a run
 * without any connection, the watch pauses. */
void web_t::run_for_event() {
    has_new_visit_ = false;
    const bool had_visits = !visits_.empty();
    run();
    const bool must_rest = !had_visits && !has_new_visit_;
    if (must_rest) rest();
}

void web_t::rest() {
    const auto look = [](void *arg) {
        auto &self = *static_cast<web_t *>(arg);
        self.rest_timer_ = 0;
        self.watch();
        if (!self.is_watched_) self.rest();
    };
    rest_timer_ = fwx_host_timer_add(loop_, rest_ms, look, this);
    const bool must_unwatch = rest_timer_ != 0 && is_watched_;
    if (!must_unwatch) return;
    fwx_host_loop_unwatch(loop_, fd());
    is_watched_ = false;
}

void web_t::run() {
    has_room_ = false;
    MHD_run(daemon_);
    MHD_UNSIGNED_LONG_LONG delay_ms = 0;
    if (has_room_) { /* there is room for a client again; it needs another run to be accepted */
        plan_run(0);
    } else if (MHD_get_timeout(daemon_, &delay_ms) == MHD_YES) {
        plan_run(delay_ms);
    }
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
    if (*body_size != 0) { /* the body is ignored */
        *body_size = 0;
        return MHD_YES;
    }
    visit_t &visit = visit_of(connection);
    if (!visit.is_served) visit.since_ms = fwx_host_clock_ms();
    visit.is_served = true;
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

/** Clients that ask while the page is being made get the same page. */
MHD_Result web_t::wait_for_metrics(request_t &request) {
    MHD_suspend_connection(request.connection);
    visit_of(request.connection).is_suspended = true;
    waiting_.push_back(&request);
    if (waiting_.size() == 1) make_metrics_();
    return MHD_YES;
}

void web_t::connected(void *self, MHD_Connection *connection, void **place, MHD_ConnectionNotificationCode what) {
    auto &web = *static_cast<web_t *>(self);
    if (what == MHD_CONNECTION_NOTIFY_STARTED) return web.let_in(connection, place);
    web.visits_.remove_if([place](const visit_t &visit) { return &visit == *place; });
    web.has_room_ = true;
}

web_t::visit_t &web_t::visit_of(MHD_Connection *connection) {
    return *static_cast<visit_t *>(
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_SOCKET_CONTEXT)->socket_context);
}

void web_t::let_in(MHD_Connection *connection, void **place) {
    char address[INET6_ADDRSTRLEN] = "";
    const auto *from = reinterpret_cast<const address_t *>(
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS)->client_addr);
    if (from->any.sa_family == AF_INET6) {
        inet_ntop(AF_INET6, &from->v6.sin6_addr, address, sizeof address);
    } else {
        inet_ntop(AF_INET, &from->v4.sin_addr, address, sizeof address);
    }
    if (visits_.size() >= most_visits) make_room();
    const int fd = MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CONNECTION_FD)->connect_fd;
    has_new_visit_ = true;
    visits_.push_back({fd, address, fwx_host_clock_ms()});
    *place = &visits_.back();
    if (late_timer_ == 0) end_late();
}

/** Closes a silent connection, if there is one. Skips those that are already closed and those being served. */
void web_t::make_room() {
    const auto is_silent = [](const visit_t &visit) { return visit.fd >= 0 && !visit.is_served; };
    std::map<std::string, size_t> count;
    for (const visit_t &visit : visits_) {
        if (is_silent(visit)) ++count[visit.address];
    }
    visit_t *most = nullptr;
    for (visit_t &visit : visits_) {
        if (!is_silent(visit)) continue;
        if (most == nullptr || count[visit.address] > count[most->address]) most = &visit;
    }
    if (most != nullptr) shutdown(std::exchange(most->fd, -1), SHUT_RDWR);
}

/** Closes connections whose deadline has expired, and schedules the next check. */
void web_t::end_late() {
    const uint64_t now = fwx_host_clock_ms();
    uint64_t next_ms = deadline_ms;
    for (visit_t &visit : visits_) {
        if (visit.is_suspended || visit.fd < 0) continue;
        const uint64_t age_ms = now - visit.since_ms;
        if (age_ms >= deadline_ms) {
            shutdown(std::exchange(visit.fd, -1), SHUT_RDWR);
        } else {
            next_ms = std::min(next_ms, deadline_ms - age_ms);
        }
    }
    const auto look = [](void *self) {
        static_cast<web_t *>(self)->late_timer_ = 0;
        static_cast<web_t *>(self)->end_late();
    };
    if (!visits_.empty()) late_timer_ = fwx_host_timer_add(loop_, next_ms, look, this);
}

void web_t::completed(void *arg, MHD_Connection *connection, void **place, MHD_RequestTerminationCode) {
    auto *request = static_cast<request_t *>(*place); /* null: the connection ended before the request was handled */
    std::erase(static_cast<web_t *>(arg)->waiting_, request);
    visit_t &visit = visit_of(connection);
    visit.is_served = false;
    visit.since_ms = fwx_host_clock_ms();
    delete request;
    *place = nullptr;
}
