/* nat64d's web pages with clients that are slow, many, or both. */

#include "tools/nat64d/web.h"
#include "fwx_host/adapter.hpp"
#include "tests/nat64d/daemon_fixture.h"
#include "tests/tools/server_process.h"

namespace {

class web_test : public daemon_fixture_t {
protected:
    ~web_test() override {
        for (const int fd : clients_) {
            close(fd);
        }
    }

    /** Connects from an address of the loopback network, and sends a text. */
    int connect_from(const char *from, uint16_t port, const std::string &text) {
        sockaddr_in address = loopback(0);
        inet_pton(AF_INET, from, &address.sin_addr);
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        clients_.push_back(fd);
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        address = loopback(port);
        EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        EXPECT_EQ(send(fd, text.data(), text.size(), MSG_NOSIGNAL), static_cast<ssize_t>(text.size()));
        return fd;
    }

private:
    std::vector<int> clients_;
};

TEST_F(web_test, pages_are_served_beside_any_number_of_slow_clients_and_those_of_other_addresses_stay) {
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(eventually([&] { return daemon.port() != 0; })) << daemon.log();
    const int other = connect_from("127.0.0.2", daemon.port(), "GET /healthz HTTP/1.1\r\nHost:");
    for (int i = 0; i < 100; ++i) {
        connect_from("127.0.0.1", daemon.port(), i % 2 == 0 ? "" : "GET /metrics HTTP/1.1\r\nX-Slow: ");
        if (i % 10 != 9) continue;
        EXPECT_NE(daemon.get("/healthz").find("HTTP/1.1 503"), std::string::npos) << i;
        EXPECT_NE(daemon.get("/metrics").find("nat64_server_up 0"), std::string::npos) << i;
    }
    EXPECT_FALSE(is_hung_up(other));
    const std::string rest = " x\r\nConnection: close\r\n\r\n";
    send(other, rest.data(), rest.size(), MSG_NOSIGNAL);
    char answer[64] = "";
    EXPECT_GT(recv(other, answer, sizeof answer - 1, 0), 0);
    EXPECT_EQ(std::string(answer).rfind("HTTP/1.1 503", 0), 0U) << answer;
}

TEST_F(web_test, only_an_address_of_the_loopback_network_is_listened_at) {
    std::vector<std::string> words = {"alpha", "--config", folder() + "/document", "--listen", ""};
    for (const char *place :
         {"0.0.0.0:0", "[::]:0", "192.0.2.1:9464", "128.0.0.1:9464", "[2001:db8::1]:9464", "[::2]:0"}) {
        words.back() = place;
        daemon_process_t refused(words, folder() + "/log");
        ASSERT_EQ(refused.end(0), 2) << place;
        EXPECT_NE(refused.log().find("must be a loopback address and a port"), std::string::npos) << refused.log();
    }
    words.back() = "[::1]:0";
    const daemon_process_t daemon(words, folder() + "/log");
    EXPECT_TRUE(eventually([&] { return daemon.port() != 0; })) << daemon.log();
}

TEST_F(web_test, at_the_last_descriptor_clients_wait_and_are_served_when_there_are_some) {
#ifdef ADDRESS_SANITIZER
    GTEST_SKIP() << "UBSan needs a descriptor to check a virtual call, and takes its lack for a fault";
#endif
    const daemon_process_t daemon(folder());
    ASSERT_TRUE(eventually([&] { return daemon.port() != 0; })) << daemon.log();
    const std::string descriptors = "/proc/" + std::to_string(daemon.pid()) + "/fd/";
    rlim_t lowest = 0;
    while (std::filesystem::is_symlink(descriptors + std::to_string(lowest))) {
        ++lowest;
    }
    const rlimit enough = {1024, 4096};
    for (const rlim_t count : {rlim_t{3}, lowest + 1}) { /* no descriptor left, and one left */
        const rlimit few = {count, 4096};
        ASSERT_EQ(prlimit(daemon.pid(), RLIMIT_NOFILE, &few, nullptr), 0);
        const int first = connect_from("127.0.0.1", daemon.port(), "GET /healthz HTTP/1.0\r\n\r\n");
        connect_from("127.0.0.1", daemon.port(), "GET /healthz HTTP/1.0\r\n\r\n");
        if (count == 3) {
            int in_a_row = 0;
            EXPECT_TRUE(eventually([&] { return (in_a_row = daemon.is_asleep() ? in_a_row + 1 : 0) == 10; }))
                << daemon.log();
            prlimit(daemon.pid(), RLIMIT_NOFILE, &enough, nullptr);
        }
        char byte = 0;
        EXPECT_EQ(recv(first, &byte, 1, 0), 1);
        ASSERT_EQ(prlimit(daemon.pid(), RLIMIT_NOFILE, &enough, nullptr), 0);
        EXPECT_NE(daemon.get("/healthz").find("HTTP/1.1 503"), std::string::npos);
        EXPECT_NE(daemon.get("/metrics").find("nat64_server_up 0"), std::string::npos);
    }
}

TEST_F(web_test, a_client_that_sends_a_byte_now_and_then_or_does_not_take_its_answer_is_ended_at_its_deadline) {
    const fwx::host::loop loop;
    const std::string page(size_t{16} << 20, 'x'); /* more than the sockets hold */
    bool is_asked = false;
    web_t web(
        loop.get(), [&] { is_asked = true; }, [] { return web_t::page_t{}; });
    ASSERT_EQ(web.listen("127.0.0.1:0"), "");
    fwx_host_clock_turn(0);
    for (const char *when : {"at first", "after all have gone"}) {
        SCOPED_TRACE(when);
        const auto ask = [&](const std::string &text) { return connect_from("127.0.0.1", web.port(), text); };
        const int drip = ask("GET /metrics HTTP/1.1\r\nX-Slow: ");
        const int body = ask("POST /metrics HTTP/1.1\r\nContent-Length: 99999\r\n\r\n");
        const int deaf = ask("GET /metrics HTTP/1.0\r\n\r\n");
        const auto turn_until = [&](uint64_t step_ms, auto condition) {
            return eventually([&] {
                fwx_host_clock_turn(step_ms);
                fwx_host_loop_run_once(loop.get(), 5);
                return condition();
            });
        };
        ASSERT_TRUE(turn_until(0, [&] { return std::exchange(is_asked, false); }));
        web.metrics_made(page);
        EXPECT_TRUE(turn_until(100, [&] {
            send(drip, "x", 1, MSG_NOSIGNAL);
            send(body, "x", 1, MSG_NOSIGNAL);
            return is_hung_up(drip) && is_hung_up(body);
        }));
        size_t taken = 0;
        std::string room(size_t{1} << 20, '\0');
        EXPECT_TRUE(turn_until(100, [&] {
            const ssize_t got = recv(deaf, room.data(), room.size(), MSG_DONTWAIT);
            taken += static_cast<size_t>(std::max<ssize_t>(got, 0));
            return got == 0 || (got < 0 && errno != EAGAIN);
        }));
        EXPECT_LT(taken, page.size());
        EXPECT_TRUE(turn_until(5000, [&] { return fwx_host_loop_next_timeout_ms(loop.get()) < 0; }))
            << "nothing is left";
    }
}

TEST_F(web_test, a_client_that_leaves_while_the_metrics_are_made_is_forgotten_and_only_reading_is_allowed) {
    const server_process_t server;
    daemon_process_t daemon(folder());
    ASSERT_TRUE(eventually([] { return daemon_process_t::is("in_step", true); })) << daemon.log();
    server.signal(SIGSTOP);
    close(connect_from("127.0.0.1", daemon.port(), "GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n"));
    const int stays = connect_from("127.0.0.1", daemon.port(), "GET /metrics HTTP/1.0\r\n\r\n");
    EXPECT_NE(daemon.get("/healthz").find("HTTP/1.1 "), std::string::npos);
    server.signal(SIGCONT);
    EXPECT_NE(converse(stays, "").find("nat64_server_up"), std::string::npos);
    const int writes = connect_from("127.0.0.1", daemon.port(), "DELETE /healthz HTTP/1.0\r\n\r\n");
    EXPECT_NE(converse(writes, "").find("only GET and HEAD"), std::string::npos);
    EXPECT_EQ(daemon.end(SIGTERM), 0);
}

}  // namespace
