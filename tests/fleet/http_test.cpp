/* Requests on a slow connection, which the test simulates: with each step it lets some bytes through and advances the
 * clock by a second. The test also stands in for a name server that does not answer, and for the part of OpenSSL that
 * reads the certificates of authorities. */
#include "net/http.h"

#include <dlfcn.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <openssl/x509_vfy.h>

#include <future>
#include <string_view>

#include "tests/fleet/store_fixture.h"

namespace {

using fault_t = http_reply_t::fault_t;

std::promise<void> is_asked, may_answer; /* for the address of silent.test */
std::vector<std::string> trusted;        /* files and folders of authorities */

}  // namespace

extern "C" int X509_STORE_load_file(X509_STORE *, const char *file) {
    trusted.emplace_back(file);
    return 1;
}

extern "C" int X509_STORE_load_path(X509_STORE *, const char *folder) {
    trusted.emplace_back(folder);
    return 1;
}

extern "C" int getaddrinfo(const char *name, const char *service, const addrinfo *hints, addrinfo **found) {
    if (name != nullptr && std::string_view(name) == "silent.test") {
        is_asked.set_value();
        may_answer.get_future().wait();
        return EAI_AGAIN;
    }
    static const auto real = reinterpret_cast<decltype(&getaddrinfo)>(dlsym(RTLD_NEXT, "getaddrinfo"));
    return real(name, service, hints, found);
}

namespace {

class slow_connection_test : public etcd_test {
protected:
    slow_connection_test() {
        const int small = 16384; /* small socket buffers, so that unread bytes stay with the sender */
        setsockopt(listener_, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
        request_.url = "http://127.0.0.1:" + std::to_string(bind_to_free_port(listener_));
        EXPECT_EQ(listen(listener_, 1), 0);
        request_.most_bytes = 8U << 20;
        fwx_host_clock_turn(0);
    }
    ~slow_connection_test() override {
        close(peer_);
        close(listener_);
    }

    void begin() {
        start();
        accept();
    }
    void start() {
        reply_.emplace(post());
        reply_->start();
    }
    void accept() {
        ASSERT_TRUE(turn_until([&] {
            peer_ = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
            return peer_ >= 0;
        }));
    }
    /** Advances the clock by a second and returns true if the request is over. */
    bool is_over() {
        fwx_host_clock_turn(1000);
        fwx_host_loop_run_until_idle(loop_);
        return reply_->done();
    }
    /** Returns the seconds after which the request is over; 20 if it is not. `act` is called each second. */
    template <typename act_t>
    int seconds_until_over(act_t act) {
        int seconds = 0;
        while (seconds < 20 && !is_over()) {
            ++seconds;
            act();
        }
        EXPECT_TRUE(reply_->done());
        return seconds;
    }
    /** Reads the request slowly, so many times 128 KiB, one each second. */
    void take_slowly(int times) {
        for (int i = 0; i < times; ++i) {
            ASSERT_FALSE(is_over()) << i << reply_->get().reason;
            take(128U << 10);
        }
    }
    /** Reads that many bytes of the request. */
    void take(size_t count) const {
        std::string room(count, '\0');
        EXPECT_TRUE(eventually([&] {
            fwx_host_loop_run_until_idle(loop_);
            const ssize_t size = read(peer_, room.data(), count);
            count -= size > 0 ? static_cast<size_t>(size) : 0;
            return count == 0;
        }));
    }
    void give(const std::string &text) const {
        EXPECT_EQ(send(peer_, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
    }

    http_request_t request_; /* with a timeout of 5 s */
    int peer_ = -1;
    std::optional<nat64::task<http_reply_t>> reply_;
    std::unique_ptr<http_t> http_ = std::make_unique<http_t>(loop_, http_tls_t{});

private:
    nat64::task<http_reply_t> post() {
        http_t::post_t sent = http_->post(request_);
        co_return co_await sent;
    }

    const int listener_ = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
};

TEST_F(slow_connection_test, a_long_body_may_take_longer_than_the_deadline_and_as_long_again_if_it_is_sent_again) {
    begin();
    give("HTTP/1.1 200 x\r\nContent-Length: 0\r\n\r\n");
    ASSERT_TRUE(ends(*reply_));
    request_.body.assign(3U << 20, 'x');
    request_.is_repeatable = true;
    start(); /* on the same connection, which then ends */
    take_slowly(16);
    close(peer_);
    accept();
    take_slowly(24);
    give("HTTP/1.1 200 x\r\nContent-Length: 20480\r\n\r\n");
    for (int i = 0; i < 10; ++i) {
        EXPECT_FALSE(is_over());
        give(std::string(2048, 'y'));
    }
    EXPECT_TRUE(is_over());
    const http_reply_t whole = reply_->get();
    EXPECT_EQ(whole.status, 200);
    EXPECT_EQ(whole.body.size(), 20480U);
}

TEST_F(slow_connection_test, a_peer_that_takes_nothing_more_or_trickles_is_given_up) {
    request_.body.assign(8U << 20, 'x');
    begin();
    take_slowly(10);
    EXPECT_LE(seconds_until_over([] {}), 7);
    const http_reply_t deaf = reply_->get();
    EXPECT_EQ(deaf.fault, fault_t::lost);
    EXPECT_EQ(deaf.reason, "no progress within 5000 ms");
    close(peer_);

    request_.body = "x";
    begin();
    give("HTTP/1.1 200 x\r\nContent-Length: 20480\r\n\r\n");
    EXPECT_LE(seconds_until_over([this] { give("y"); }), 5);
    EXPECT_EQ(reply_->get().fault, fault_t::lost);
}

TEST_F(slow_connection_test, lines_that_were_read_do_not_count_towards_the_bound_of_a_stream) {
    request_.most_bytes = 1000;
    http_t::stream_t stream(*http_, request_);
    const auto next = [&stream]() -> nat64::task<std::optional<std::string>> { co_return co_await stream.next(); };
    const auto expect_next = [&](nat64::task<std::optional<std::string>> &task,
                                 const std::optional<std::string> &expected) {
        ASSERT_TRUE(ends(task));
        EXPECT_EQ(task.get(), expected) << stream.reply().reason;
    };
    auto first = next();
    first.start();
    accept();
    give("HTTP/1.1 200 x\r\n\r\n" + std::string(300, 'a') + "\n" + std::string(500, 'b'));
    expect_next(first, std::string(300, 'a'));
    auto second = next();
    second.start();
    give(std::string(400, 'b') + "\n");
    expect_next(second, std::string(900, 'b'));
    EXPECT_LE(stream.reply().body.size(), 1000U) << "nor are they kept";
    auto third = next();
    third.start();
    give(std::string(1001, 'c'));
    expect_next(third, std::nullopt);
    EXPECT_EQ(stream.reply().fault, fault_t::too_long);
}

TEST_F(slow_connection_test, a_request_that_is_given_up_does_not_wait_for_the_name_server) {
    request_.url = "http://silent.test";
    alarm(60); /* ends a test that waits */
    start();
    const std::future<void> asked = is_asked.get_future();
    ASSERT_TRUE(turn_until([&] { return asked.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }));
    seconds_until_over([] {});
    may_answer.set_value();
    alarm(0);
}

TEST_F(slow_connection_test, a_dead_connection_is_noticed_within_half_a_minute) {
    begin();
    sockaddr_in peer{};
    sockaddr_in own{};
    socklen_t size = sizeof peer;
    ASSERT_EQ(getpeername(peer_, reinterpret_cast<sockaddr *>(&peer), &size), 0);
    int fd = 0; /* the client's */
    do {
        ASSERT_LT(++fd, 1024);
        size = sizeof own;
    } while (getsockname(fd, reinterpret_cast<sockaddr *>(&own), &size) != 0 || own.sin_port != peer.sin_port);
    const auto option = [fd](int level, int name) {
        int value = 0;
        socklen_t bytes = sizeof value;
        EXPECT_EQ(getsockopt(fd, level, name, &value, &bytes), 0);
        return value;
    };
    EXPECT_EQ(option(SOL_SOCKET, SO_KEEPALIVE), 1);
    EXPECT_LE(option(IPPROTO_TCP, TCP_KEEPIDLE) + option(IPPROTO_TCP, TCP_KEEPINTVL) * option(IPPROTO_TCP, TCP_KEEPCNT),
              30);
}

TEST_F(slow_connection_test, no_authority_but_the_one_that_is_named_is_trusted) {
    http_ = std::make_unique<http_t>(loop_, http_tls_t{"ca.pem", "", ""});
    request_.url.replace(0, 4, "https");
    begin();
    take(1);
    EXPECT_EQ(trusted, std::vector<std::string>{"ca.pem"});
}

TEST_F(slow_connection_test, a_reply_may_end_a_request_that_has_its_reply_too_and_the_client) {
    for (const bool ends_client : {false, true}) {
        http_ = std::make_unique<http_t>(loop_, http_tls_t{});
        std::optional<nat64::task<>> requests[2];
        int peers[2];
        int replies = 0;
        const auto post = [&](size_t i) -> nat64::task<> {
            http_t::post_t sent = http_->post(request_);
            co_await sent;
            ++replies;
            requests[1 - i].reset();
            if (ends_client) http_.reset();
        };
        for (size_t i = 0; i < 2; ++i) {
            requests[i].emplace(post(i));
            requests[i]->start();
            accept();
            peers[i] = peer_;
            take(1);
        }
        for (const int peer : peers) {
            peer_ = peer;
            give("HTTP/1.1 200 x\r\nContent-Length: 0\r\n\r\n");
        }
        EXPECT_TRUE(turn_until([&] { return replies != 0; }));
        fwx_host_loop_run_until_idle(loop_);
        EXPECT_EQ(replies, 1);
        for (const int peer : peers) {
            close(peer);
        }
        peer_ = -1;
    }
}

}  // namespace
