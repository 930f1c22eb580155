/*
 * Connects libcurl's multi interface to the host's loop: curl's sockets are in one epoll descriptor, and curl's timer
 * is a timer of the loop. Coroutines are resumed only after curl has returned, because they may destroy requests and
 * even the client.
 */
#include "net/http.h"

#include <linux/sockios.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr int events_at_once = 32;
/* curl reads a socket up to 100 times before the loop turns, so this limits how many lines a peer can send meanwhile.
 */
constexpr long stream_read_bytes = 4096;
constexpr int64_t least_moved_bytes = 1024; /* fewer bytes count as silence */
constexpr uint64_t checks_per_timeout = 4;
constexpr long keepalive_idle_s = 10;
constexpr long keepalive_interval_s = 5;

void prepare_curl() {
    static const CURLcode result = curl_global_init(CURL_GLOBAL_DEFAULT);
    static_cast<void>(result); /* if it fails, creating a handle fails too, which is reported */
}

/** The epoll events for curl's CURL_POLL_ value of a socket. */
uint32_t events_of(int what) {
    const bool reads = what == CURL_POLL_IN || what == CURL_POLL_INOUT;
    const bool writes = what == CURL_POLL_OUT || what == CURL_POLL_INOUT;
    return (reads ? unsigned{EPOLLIN} : 0U) | (writes ? unsigned{EPOLLOUT} : 0U);
}

int selected_by(uint32_t events) {
    return ((events & EPOLLIN) != 0 ? CURL_CSELECT_IN : 0) | ((events & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0) |
           ((events & (EPOLLERR | EPOLLHUP)) != 0 ? CURL_CSELECT_ERR : 0);
}

/** Sets the number of TCP keep-alive probes after which the connection fails; they are keepalive_interval_s apart. */
int limit_keepalive_probes(void *, curl_socket_t socket, curlsocktype) {
    const int probes = 3;
    setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof probes);
    return CURL_SOCKOPT_OK;
}

}  // namespace

http_t::http_t(fwx_host_loop_t *loop, http_tls_t tls)
    : loop_(loop),
      tls_(std::move(tls)),
      multi_((prepare_curl(), curl_multi_init())),
      sockets_(loop, epoll_create1(EPOLL_CLOEXEC), [this] { serve_sockets(); }) {
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, socket_changed);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, timer_changed);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
}

http_t::~http_t() {
    *is_gone_ = true;
    while (!transfers_.empty()) {
        transfers_.back()->leave();
    }
    curl_multi_cleanup(multi_);
    if (timer_ != 0) fwx_host_timer_cancel(loop_, timer_);
}

int http_t::socket_changed(CURL *easy, curl_socket_t socket, int what, void *self, void *known) {
    auto &http = *static_cast<http_t *>(self);
    void *transfer = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
    if (transfer != nullptr) static_cast<transfer_t *>(transfer)->socket_ = what == CURL_POLL_REMOVE ? -1 : socket;
    const int epoll = http.sockets_.fd();
    if (what == CURL_POLL_REMOVE) {
        epoll_ctl(epoll, EPOLL_CTL_DEL, socket, nullptr);
        return 0;
    }
    epoll_event event{};
    event.events = events_of(what);
    event.data.fd = socket;
    const int first = known == nullptr ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    const int second = known == nullptr ? EPOLL_CTL_MOD : EPOLL_CTL_ADD; /* the descriptor was closed and reused */
    const bool is_watched =
        epoll_ctl(epoll, first, socket, &event) == 0 || epoll_ctl(epoll, second, socket, &event) == 0;
    curl_multi_assign(http.multi_, socket, self);
    return is_watched ? 0 : -1;
}

int http_t::timer_changed(CURLM *, long timeout_ms, void *self) {
    auto &http = *static_cast<http_t *>(self);
    if (http.timer_ != 0) fwx_host_timer_cancel(http.loop_, std::exchange(http.timer_, 0));
    if (timeout_ms < 0) return 0;
    const auto rang = [](void *arg) { static_cast<http_t *>(arg)->serve_timer(); };
    http.timer_ = fwx_host_timer_add(http.loop_, static_cast<uint64_t>(timeout_ms), rang, self);
    return http.timer_ == 0 ? -1 : 0;
}

void http_t::serve_timer() {
    timer_ = 0;
    int running = 0;
    curl_multi_socket_action(multi_, CURL_SOCKET_TIMEOUT, 0, &running);
    take_finished();
    resume_ready();
}

void http_t::serve_sockets() {
    epoll_event events[events_at_once];
    const int count = epoll_wait(sockets_.fd(), events, events_at_once, 0);
    for (int i = 0; i < count; ++i) {
        int running = 0;
        curl_multi_socket_action(multi_, events[i].data.fd, selected_by(events[i].events), &running);
    }
    take_finished();
    resume_ready();
}

void http_t::take_finished() {
    int left = 0;
    while (const CURLMsg *message = curl_multi_info_read(multi_, &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURLcode result = message->data.result; /* copied, because `finish` frees the message with its handle */
        void *transfer = nullptr;
        curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &transfer);
        static_cast<transfer_t *>(transfer)->finish(result);
    }
}

void http_t::make_ready(transfer_t &transfer) {
    const bool is_known = std::find(ready_.begin(), ready_.end(), &transfer) != ready_.end();
    if (!is_known) ready_.push_back(&transfer);
}

/** A resumed coroutine may destroy any request, and this client too. */
void http_t::resume_ready() {
    const std::shared_ptr<const bool> is_gone = is_gone_;
    while (!*is_gone && !ready_.empty()) {
        transfer_t &transfer = *ready_.front();
        ready_.pop_front();
        if (transfer.waiting_) std::exchange(transfer.waiting_, nullptr).resume();
    }
}

http_t::transfer_t::transfer_t(http_t *client, http_request_t request, bool is_stream)
    : client_(client), request_(std::move(request)), is_stream_(is_stream) {}

bool http_t::transfer_t::begin() {
    easy_ = curl_easy_init();
    const bool is_begun = easy_ != nullptr && client_->sockets_.is_watched() && set_options() &&
                          curl_multi_add_handle(client_->multi_, easy_) == CURLM_OK;
    if (is_begun) {
        client_->transfers_.push_back(this);
        is_listed_ = true;
        start_timer();
        return true;
    }
    reply_.fault = http_reply_t::fault_t::unsent;
    reply_.reason = "no memory or descriptors left, or TLS cannot be set up";
    is_over_ = true;
    return false;
}

void http_t::transfer_t::start_timer() {
    silence_limit_ms_ = request_.timeout_ms;
    moved_at_ms_ = fwx_host_clock_ms();
    set_timer(silence_limit_ms_ / checks_per_timeout);
}

void http_t::transfer_t::set_timer(uint64_t delay_ms) {
    const auto rang = [](void *self) { static_cast<transfer_t *>(self)->check_silence(); };
    stop_timer();
    timer_ = fwx_host_timer_add(client_->loop_, delay_ms, rang, this);
}

/** Bytes that the peer has acknowledged or sent. Bytes in the kernel's send buffer do not count: the buffer takes
 * megabytes at once, for which a slow connection needs half a minute. */
int64_t http_t::transfer_t::moved_bytes() const {
    int held = 0;
    if (socket_ >= 0 && ioctl(socket_, SIOCOUTQ, &held) != 0) held = 0;
    return static_cast<int64_t>(sent_ + received_) - held;
}

void http_t::transfer_t::check_silence() {
    timer_ = 0;
    const uint64_t now_ms = fwx_host_clock_ms();
    const int64_t moved = moved_bytes();
    if (moved - moved_ >= least_moved_bytes) {
        moved_ = moved;
        moved_at_ms_ = now_ms;
    }
    const uint64_t silence_ms = now_ms - moved_at_ms_;
    if (silence_ms < silence_limit_ms_) {
        return set_timer(std::min(silence_limit_ms_ / checks_per_timeout + 1, silence_limit_ms_ - silence_ms));
    }
    http_t &client = *client_;
    set_fault("no progress within " + std::to_string(silence_limit_ms_) + " ms");
    is_over_ = true;
    end_transfer();
    client.make_ready(*this);
    client.resume_ready();
}

/** Sets the fault of a request without a complete reply. */
void http_t::transfer_t::set_fault(std::string reason) {
    const bool has_body = !request_.body.empty();
    reply_.fault = has_body && sent_ == 0 ? http_reply_t::fault_t::unsent : http_reply_t::fault_t::lost;
    reply_.reason = std::move(reason);
}

void http_t::transfer_t::stop_timer() {
    if (timer_ != 0) fwx_host_timer_cancel(client_->loop_, std::exchange(timer_, 0));
}

void http_t::transfer_t::end_transfer() {
    stop_timer();
    const bool is_under_way = easy_ != nullptr && is_listed_;
    if (is_under_way) curl_multi_remove_handle(client_->multi_, easy_);
    curl_easy_cleanup(std::exchange(easy_, nullptr));
    curl_slist_free_all(std::exchange(headers_, nullptr));
}

void http_t::transfer_t::leave() {
    end_transfer();
    if (!std::exchange(is_listed_, false)) return;
    std::erase(client_->transfers_, this);
    std::erase(client_->ready_, this);
}

bool http_t::transfer_t::set_options() {
    bool is_good = true;
    const auto set = [&](CURLoption option, auto value) {
        is_good = is_good && curl_easy_setopt(easy_, option, value) == CURLE_OK;
    };
    const auto add_header = [&](const char *line) {
        curl_slist *longer = curl_slist_append(headers_, line);
        is_good = is_good && longer != nullptr;
        if (longer != nullptr) headers_ = longer;
    };
    add_header("Content-Type: application/json");
    add_header("Expect:"); /* no `Expect: 100-continue`, which costs a round trip before a long body */
    for (const std::string &line : request_.headers) {
        add_header(line.c_str());
    }
    set(CURLOPT_PRIVATE, static_cast<void *>(this));
    set(CURLOPT_ERRORBUFFER, error_);
    set(CURLOPT_URL, request_.url.c_str());
    set(CURLOPT_HTTPHEADER, headers_);
    set(CURLOPT_PROTOCOLS_STR, "http,https");
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_PROXY, ""); /* ignore proxies from the environment too */
    set(CURLOPT_NOSIGNAL, 1L);
    set(CURLOPT_QUICK_EXIT, 1L); /* end_transfer() does not wait for the thread that resolves the host name */
    if (is_stream_) set(CURLOPT_BUFFERSIZE, stream_read_bytes);
    set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(CURLOPT_POST, 1L);
    set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
    set(CURLOPT_READFUNCTION, give_body);
    set(CURLOPT_READDATA, static_cast<void *>(this));
    set(CURLOPT_SEEKFUNCTION, rewind_body);
    set(CURLOPT_SEEKDATA, static_cast<void *>(this));
    set(CURLOPT_WRITEFUNCTION, take_body);
    set(CURLOPT_WRITEDATA, static_cast<void *>(this));
    set(CURLOPT_TCP_KEEPALIVE, 1L);
    set(CURLOPT_TCP_KEEPIDLE, keepalive_idle_s);
    set(CURLOPT_TCP_KEEPINTVL, keepalive_interval_s);
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request_.timeout_ms));
    set(CURLOPT_SOCKOPTFUNCTION, limit_keepalive_probes);
    set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    const http_tls_t &tls = client_->tls_;
    if (!tls.authority.empty()) {
        set(CURLOPT_CAINFO, tls.authority.c_str());
        set(CURLOPT_CAPATH, static_cast<const char *>(nullptr));
    }
    if (!tls.certificate.empty()) set(CURLOPT_SSLCERT, tls.certificate.c_str());
    if (!tls.key.empty()) set(CURLOPT_SSLKEY, tls.key.c_str());
    return is_good;
}

size_t http_t::transfer_t::give_body(char *room, size_t size, size_t count, void *self) {
    auto &transfer = *static_cast<transfer_t *>(self);
    const size_t given = std::min(size * count, transfer.request_.body.size() - transfer.sent_);
    transfer.request_.body.copy(room, given, transfer.sent_);
    transfer.sent_ += given;
    return given;
}

/** curl sends a request again if a reused connection turns out to be closed. The server may have carried out the
 * request already, so this is only allowed if the request is repeatable or nothing of its body was sent. */
int http_t::transfer_t::rewind_body(void *self, curl_off_t offset, int origin) {
    auto &transfer = *static_cast<transfer_t *>(self);
    const bool may_begin_anew = transfer.request_.is_repeatable || transfer.sent_ == 0;
    if (offset != 0 || origin != SEEK_SET || !may_begin_anew) return CURL_SEEKFUNC_FAIL;
    transfer.moved_ -= static_cast<int64_t>(std::exchange(transfer.sent_, 0)); /* these bytes will move again */
    return CURL_SEEKFUNC_OK;
}

size_t http_t::transfer_t::take_body(char *data, size_t size, size_t count, void *self) {
    auto &transfer = *static_cast<transfer_t *>(self);
    const size_t bytes = size * count;
    if (transfer.reply_.body.size() - transfer.taken_ + bytes > transfer.request_.most_bytes) {
        transfer.reply_.fault = http_reply_t::fault_t::too_long;
        return 0;
    }
    curl_easy_getinfo(transfer.easy_, CURLINFO_RESPONSE_CODE, &transfer.reply_.status);
    transfer.reply_.body.append(data, bytes);
    transfer.received_ += bytes;
    const bool has_line =
        transfer.is_stream_ && transfer.reply_.status == success && std::memchr(data, '\n', bytes) != nullptr;
    if (!has_line) return bytes;
    transfer.silence_limit_ms_ = transfer.request_.silence_ms;
    transfer.moved_ = transfer.moved_bytes();
    transfer.moved_at_ms_ = fwx_host_clock_ms();
    transfer.stop_timer();
    if (transfer.silence_limit_ms_ != 0) transfer.set_timer(transfer.silence_limit_ms_);
    transfer.client_->make_ready(transfer);
    return bytes;
}

void http_t::transfer_t::finish(CURLcode result) {
    using fault_t = http_reply_t::fault_t;
    curl_easy_getinfo(easy_, CURLINFO_RESPONSE_CODE, &reply_.status);
    is_over_ = true;
    if (reply_.fault == fault_t::too_long) {
        reply_.reason = "the answer is longer than " + std::to_string(request_.most_bytes) + " bytes";
    } else if (result != CURLE_OK) {
        set_fault(error_[0] != '\0' ? error_ : curl_easy_strerror(result));
    }
    end_transfer();
    client_->make_ready(*this);
}

bool http_t::stream_t::has_next() {
    if (!std::exchange(is_begun_, true)) begin();
    return is_over() || (reply_.status == success && reply_.body.find('\n', taken_) != std::string::npos);
}

std::optional<std::string> http_t::stream_t::take_line() {
    const bool has_lines = reply_.status == success;
    const size_t end = has_lines ? reply_.body.find('\n', taken_) : std::string::npos;
    if (end == std::string::npos) return std::nullopt;
    std::string line = reply_.body.substr(taken_, end - taken_);
    taken_ = end + 1;
    if (taken_ > reply_.body.size() / 2) reply_.body.erase(0, std::exchange(taken_, 0));
    return line;
}
