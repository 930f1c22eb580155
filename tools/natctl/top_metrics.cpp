#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>

#include "fwx_host/loop.h"
#include "tools/natctl/metrics_reader.h"
#include "tools/natctl/top_source.h"
#include "tools/pal/time_text.h"
#include "wire/names.h"

namespace {

constexpr size_t most_bytes = size_t{64} << 20; /* of a page */

uint64_t whole(double value) {
    const bool is_whole = value >= 0 && value < 9e18;
    return is_whole ? static_cast<uint64_t>(value) : 0;
}

uint32_t number_of(const std::string &text) {
    return static_cast<uint32_t>(std::strtoul(text.c_str(), nullptr, 10));
}

/** The least bound of a histogram below which such a share is; its buckets count what is below them. */
double bound_of(const std::map<double, uint64_t> &buckets, uint64_t count, double share) {
    for (const auto &[bound, below] : buckets) {
        if (static_cast<double>(below) >= share * static_cast<double>(count)) return bound;
    }
    return std::numeric_limits<double>::infinity();
}

/** What the metrics of a nat64d say. */
class metrics_look_t {
public:
    top_look_t take(const std::vector<metric_t> &metrics) {
        for (const metric_t &metric : metrics) {
            add(metric);
        }
        for (const char *name : top_totals) {
            const auto total = totals_.find(name);
            if (total != totals_.end()) look_.totals.emplace_back(*total);
        }
        for (const auto &[id, pool] : pools_) {
            look_.pools.push_back(pool);
        }
        for (auto &[type, limit] : limits_) {
            look_.limits.push_back(limit);
        }
        const auto all = buckets_.find(std::numeric_limits<double>::infinity());
        const uint64_t count = all == buckets_.end() ? 0 : all->second;
        look_.times = top_times_t{count, bound_of(buckets_, count, 0.5), bound_of(buckets_, count, 0.99)};
        if (!is_server_up_) look_.problem = "the server does not answer its nat64d";
        return std::move(look_);
    }

private:
    void add(const metric_t &metric) {
        constexpr std::string_view prefix = "nat64_";
        if (metric.name.compare(0, prefix.size(), prefix) != 0) return;
        const std::string name = metric.name.substr(prefix.size());
        const uint64_t value = whole(metric.value);
        if (name == "server_up") is_server_up_ = value != 0;
        if (name == "document_in_step") look_.is_in_step = value != 0;
        totals_[name == "mappings" ? metric.label("kind") + "_mappings" : name] = value;
        if (name == "limit") limit_of(metric).value = value;
        if (name == "limit_used") limit_of(metric).in_use = value;
        if (name == "pool_addresses") pool_of(metric).addresses = value;
        if (name == "pool_sessions") pool_of(metric).sessions = value;
        if (name == "mapping_sessions") {
            look_.mappings.push_back({number_of(metric.label("mapping")), metric.label("kind"), value});
        }
        if (name == "series_left_out" && metric.label("of") == "pools") look_.has_more_pools = value != 0;
        if (name == "series_left_out" && metric.label("of") == "mappings") look_.has_more_mappings = value != 0;
        if (name == "commands_total") look_.commands.push_back({metric.label("kind"), metric.label("result"), value});
        if (name == "command_duration_seconds_bucket") {
            const std::string bound = metric.label("le");
            buckets_[bound == "+Inf" ? std::numeric_limits<double>::infinity() : std::strtod(bound.c_str(), nullptr)] =
                value;
        }
    }

    top_pool_t &pool_of(const metric_t &metric) {
        const uint32_t id = number_of(metric.label("pool"));
        return pools_.emplace(id, top_pool_t{id, 0, 0}).first->second;
    }
    top_limit_t &limit_of(const metric_t &metric) {
        const std::string type = metric.label("type");
        const char *name = wire_limit_names.name_of(number_of(type));
        return limits_.emplace(type, top_limit_t{name == nullptr ? type : name, 0, 0}).first->second;
    }

    top_look_t look_;
    std::map<std::string, uint64_t> totals_; /* and others, by their names */
    std::map<uint32_t, top_pool_t> pools_;
    std::map<std::string, top_limit_t> limits_;
    std::map<double, uint64_t> buckets_; /* how many were within the bound */
    bool is_server_up_ = true;
};

class metrics_source_t : public top_source_t {
public:
    metrics_source_t(std::string address, uint32_t timeout_ms)
        : address_(std::move(address)), timeout_ms_(timeout_ms) {}
    ~metrics_source_t() override { disconnect(); }

    void begin() override {
        look_.reset();
        answer_.clear();
        is_sent_ = false;
        deadline_ms_ = fwx_host_clock_ms() + timeout_ms_;
        connect_to_daemon();
    }

    wait_t wait() const override {
        const uint64_t now = fwx_host_clock_ms();
        const int left = fd_ < 0 ? -1 : static_cast<int>(deadline_ms_ > now ? deadline_ms_ - now : 0);
        return {fd_, static_cast<short>(is_sent_ ? POLLIN : POLLOUT), left};
    }

    void process() override {
        if (fd_ < 0) return;
        if (!is_sent_) {
            ask();
        } else {
            take_answer();
        }
        const bool is_late = fd_ >= 0 && fwx_host_clock_ms() >= deadline_ms_;
        if (is_late) fail("no answer within " + std::to_string(timeout_ms_) + " ms");
    }

    std::optional<top_look_t> take() override {
        std::optional<top_look_t> look = std::move(look_);
        look_.reset();
        if (look) look->source = "metrics of " + address_;
        return look;
    }

private:
    void connect_to_daemon() {
        const size_t colon = address_.rfind(':');
        std::string host = address_.substr(0, colon);
        const bool is_bracketed = host.size() > 1 && host.front() == '[' && host.back() == ']';
        if (is_bracketed) host = host.substr(1, host.size() - 2);
        addrinfo hints{};
        hints.ai_socktype = SOCK_STREAM;
        addrinfo *found = nullptr;
        const int code = getaddrinfo(host.c_str(), address_.substr(colon + 1).c_str(), &hints, &found);
        if (code != 0) return fail(gai_strerror(code));
        fd_ = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        const bool is_under_way =
            fd_ >= 0 && (connect(fd_, found->ai_addr, found->ai_addrlen) == 0 || errno == EINPROGRESS);
        freeaddrinfo(found);
        if (!is_under_way) fail(std::strerror(errno));
    }

    void ask() {
        pollfd connecting = {fd_, POLLOUT, 0};
        if (poll(&connecting, 1, 0) != 1) return;
        int code = 0;
        socklen_t size = sizeof code;
        getsockopt(fd_, SOL_SOCKET, SO_ERROR, &code, &size);
        const std::string request = "GET /metrics HTTP/1.0\r\nHost: " + address_ + "\r\n\r\n";
        const bool is_sent = code == 0 && send(fd_, request.data(), request.size(), MSG_NOSIGNAL) ==
                                              static_cast<ssize_t>(request.size());
        if (!is_sent) return fail(std::strerror(code != 0 ? code : errno));
        is_sent_ = true;
    }

    void take_answer() {
        char room[65536];
        const ssize_t size = read(fd_, room, sizeof room);
        const bool is_early = size < 0 && (errno == EAGAIN || errno == EINTR);
        if (is_early) return;
        if (size < 0) return fail(std::strerror(errno));
        answer_.append(room, static_cast<size_t>(size));
        if (answer_.size() > most_bytes) return fail("longer than " + std::to_string(most_bytes >> 20) + " MiB");
        if (size != 0) return;
        disconnect();
        read_answer();
    }

    void read_answer() {
        const size_t head = answer_.find("\r\n\r\n");
        const std::string status = answer_.substr(0, answer_.find("\r\n"));
        const bool is_page =
            status.compare(0, 7, "HTTP/1.") == 0 && status.compare(8, 4, " 200") == 0 && head != std::string::npos;
        if (!is_page) return fail("no metrics: " + (status.empty() ? "an empty answer" : status.substr(0, 60)));
        std::vector<metric_t> metrics;
        const std::string error = read_metrics(std::string_view(answer_).substr(head + 4), metrics);
        const bool is_daemon = std::any_of(metrics.begin(), metrics.end(),
                                           [](const metric_t &metric) { return metric.name == "nat64_server_up"; });
        if (!error.empty() || !is_daemon) return fail(error.empty() ? "no metrics of a nat64d" : error);
        look_ = metrics_look_t().take(metrics);
        look_->time = time_text();
        sort_by_use(*look_);
    }

    void disconnect() {
        if (fd_ >= 0) close(fd_);
        fd_ = -1;
    }

    void fail(const std::string &problem) {
        disconnect();
        look_.emplace();
        look_->problem = problem;
    }

    std::string address_;
    uint32_t timeout_ms_;
    int fd_ = -1;
    bool is_sent_ = false;
    uint64_t deadline_ms_ = 0;
    std::string answer_;
    std::optional<top_look_t> look_;
};

}  // namespace

std::unique_ptr<top_source_t> top_metrics(const std::string &address, uint32_t timeout_ms) {
    return std::make_unique<metrics_source_t>(address, timeout_ms);
}
