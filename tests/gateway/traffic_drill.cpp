/* Packets through the gateway at length: many clients, packets of every size, long transfers while it is disturbed. */
#include <atomic>
#include <set>
#include <thread>

#include "gateway_fixture.h"
#include "tests/nat64d/process.h"

namespace {

using drill = gateway_fixture_t;

TEST_F(drill, two_hundred_clients_at_once_are_answered_and_counted) {
    constexpr size_t client_count = 200;
    serve_with_pool();
    const socket_t listener = at_server(SOCK_STREAM, 7);
    listen(listener.fd(), client_count);
    const clock_type::time_point begin = clock_type::now();
    std::vector<socket_t> callers;
    std::vector<socket_t> called;
    for (size_t i = 0; i < client_count; ++i) {
        callers.push_back(from_client(SOCK_STREAM));
        static_cast<void>(callers.back().connects(to_server(7), 0));
    }
    for (size_t i = 0; i < client_count; ++i) {
        called.push_back(listener.accepted());
    }
    for (size_t i = 0; i < client_count; ++i) {
        ASSERT_TRUE(callers[i].send("client " + std::to_string(i)));
    }
    for (const socket_t &each : called) {
        ASSERT_TRUE(each.send(each.receive() + "!"));
    }
    for (size_t i = 0; i < client_count; ++i) {
        EXPECT_EQ(callers[i].receive(), "client " + std::to_string(i) + "!");
    }
    const double took_s = seconds_since(begin);
    EXPECT_EQ(ask("stats pools").second["data"][0]["sessions"], client_count);
    EXPECT_EQ(listed_sessions(), client_count);
    std::printf("%zu clients at once were answered in %.2f s\n", client_count, took_s);
}

TEST_F(drill, udp_of_every_size_passes_both_ways_and_errors_come_back) {
    serve_with_pool();
    const socket_t at = at_server(SOCK_DGRAM, 7);
    const int never = IP_PMTUDISC_DONT; /* else the first answer that is too long is lost, and its sender told */
    setsockopt(at.fd(), IPPROTO_IP, IP_MTU_DISCOVER, &never, sizeof never);
    const socket_t from = from_client(SOCK_DGRAM);
    size_t passed = 0;
    for (const size_t edge : {1U, 1232U, 1252U, 1452U, 1472U, 2900U, 2944U, 4344U, 7998U}) { /* of packets, fragments */
        for (size_t size = edge; size < edge + 3; ++size) {
            EXPECT_TRUE(converse(from, at, to_server(7), std::string(size, 'u'))) << size;
            ++passed;
        }
    }
    const socket_t refused = from_client(SOCK_DGRAM);
    ASSERT_TRUE(refused.connects(to_server(9)));
    ASSERT_TRUE(refused.send("nobody is there"));
    pollfd failed = {refused.fd(), POLLIN, 0};
    ASSERT_EQ(poll(&failed, 1, socket_t::patience_ms), 1);
    char byte = 0;
    EXPECT_EQ(recv(refused.fd(), &byte, 1, 0), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    std::printf("%zu sizes of UDP up to 8000 bytes and back; a closed port is told\n", passed);
}

/** Sends from one end of a connection to the other; the position of a byte tells what it must be. */
bool transfer(int from, int to, size_t size) {
    constexpr size_t round = 251;
    std::string pattern;
    while (pattern.size() < size_t{64} * round * round) {
        pattern += static_cast<char>(pattern.size() % round);
    }
    const timeval patience = {60, 0};
    for (const int fd : {from, to}) {
        fcntl(fd, F_SETFL, 0);
        setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience);
    }
    std::thread sender([&] {
        for (size_t sent = 0; sent < size;) {
            const size_t at = sent % round;
            const size_t length = std::min(size - sent, pattern.size() - at);
            const ssize_t taken = send(from, pattern.data() + at, length, MSG_NOSIGNAL);
            if (taken <= 0) break;
            sent += static_cast<size_t>(taken);
        }
        shutdown(from, SHUT_WR);
    });
    std::vector<char> room(size_t{1} << 20);
    size_t received = 0;
    bool is_same = true;
    while (is_same) {
        const ssize_t got = recv(to, room.data(), room.size(), 0);
        if (got <= 0) break;
        is_same = std::memcmp(room.data(), pattern.data() + received % round, static_cast<size_t>(got)) == 0;
        received += static_cast<size_t>(got);
    }
    shutdown(to, SHUT_RDWR);
    sender.join();
    return is_same && received == size;
}

TEST_F(drill, tcp_finds_a_smaller_path_mtu_both_ways) {
    serve_with_pool();
    const socket_t errors = icmp_socket(ICMP6_PACKET_TOO_BIG);
    const socket_t listener = web_server();
    constexpr size_t size = 1 << 20;
    for (const uint32_t mtu : {1400U, 1340U, 1280U}) {
        must(middle, "ip link set out0 mtu " + std::to_string(mtu) + " && ip link set in0 mtu " + std::to_string(mtu));
        const connection_t tcp = connection(listener);
        EXPECT_TRUE(transfer(tcp.caller.fd(), tcp.called.fd(), size)) << mtu;
        const connection_t back = connection(listener);
        EXPECT_TRUE(transfer(back.called.fd(), back.caller.fd(), size)) << mtu;
        icmp6_hdr told{};
        for (std::string error = "?"; !error.empty(); error = errors.receive(socket_t::never_ms)) {
            if (error.size() >= sizeof told) std::memcpy(&told, error.data(), sizeof told);
        }
        EXPECT_EQ(ntohl(told.icmp6_mtu), mtu + 20) << "packet too big";
        std::printf("MTU %u: 1 MiB each way, a client was told %u\n", mtu, ntohl(told.icmp6_mtu));
    }
}

TEST_F(drill, a_walk_of_thousands_of_sessions_has_each_once_while_others_come_and_go) {
    constexpr uint16_t stable_count = 20000;
    serve_with_pool();
    const socket_t stable = from_client(SOCK_DGRAM, 4000);
    const socket_t others = from_client(SOCK_DGRAM, 4001);
    ASSERT_TRUE(eventually([&] { /* queues may be too short for all at once */
                                 for (uint16_t port = 1; port <= stable_count; ++port) {
                                     stable.send("x", to_server(port));
                                 }
                                 return listed_sessions() == stable_count;
    }));
    std::atomic<bool> is_over = false;
    std::thread changing([&] {
        for (uint16_t port = 1; !is_over; port = static_cast<uint16_t>(port % 10000 + 1)) {
            others.send("x", to_server(port));
            if (port % 100 == 0) middle.run("conntrack -D -f ipv6 -p udp --sport 4001 --dport " + std::to_string(port));
        }
    });
    const auto begin = clock_type::now();
    const json_t walked = sessions("--count 100");
    const double took_s = seconds_since(begin);
    is_over = true;
    changing.join();
    std::map<std::string, size_t> times;
    std::set<int> ports;
    for (const json_t &session : walked) {
        if (session["src_port"] == 4000) ports.insert(session["dst_port"].get<int>());
        EXPECT_EQ(++times[session["id"].dump()], 1U);
    }
    EXPECT_EQ(ports.size(), stable_count);
    std::printf("%zu sessions in %.2f s, %zu of them came meanwhile\n", walked.size(), took_s,
                walked.size() - ports.size());
    const auto clearing = clock_type::now();
    configure({"sessions clear --port 4000"});
    std::printf("%.2f s: a clear of %zu\n", seconds_since(clearing), ports.size());
    EXPECT_EQ(sessions("--port 4000").size(), 0U);
}

TEST_F(drill, a_transfer_is_as_fast_as_without_the_gateway_process) {
    constexpr size_t size = 100'000'000;
    serve_with_pool();
    const socket_t listener = web_server();
    std::vector<double> rates[2]; /* in Mbit/s, without and with it */
    for (int run = 0; run < 5; ++run) {
        for (const bool has_gateway : {false, true}) {
            gateway.end(SIGKILL); /* the translator and the kernel's tables stay */
            ASSERT_TRUE(!has_gateway || serve()) << log();
            const connection_t tcp = connection(listener);
            const auto begin = clock_type::now();
            ASSERT_TRUE(transfer(tcp.caller.fd(), tcp.called.fd(), size));
            rates[has_gateway].push_back(static_cast<double>(size) * 8e-6 / seconds_since(begin));
        }
    }
    for (std::vector<double> &each : rates) {
        std::sort(each.begin(), each.end());
    }
    std::printf("medians of five: %.0f Mbit/s without the gateway process, %.0f with it\n", rates[0][2], rates[1][2]);
    EXPECT_GE(rates[1][2], 0.95 * rates[0][2]);
}

class disturbed_drill : public drill {
protected:
    /** Calls `act` while changes are made that concern no flow, the gateway is killed and started again, and a nat64d
     * is killed. Returns how many seconds `act` took, which must be longer than all of that. */
    double disturbed(const std::function<void()> &act) {
        const auto begin = clock_type::now();
        double took_s = 0;
        std::thread acting([&] {
            act();
            took_s = seconds_since(begin);
        });
        disturb();
        const double disturbed_s = seconds_since(begin);
        acting.join();
        EXPECT_LT(disturbed_s, took_s) << "all of it happened meanwhile";
        std::printf("disturbed for the first %.1f of %.1f s: ", disturbed_s, took_s);
        return took_s;
    }

private:
    void disturb() {
        {
            commander_t commander;
            change_unrelated(commander, 100);
        }
        gateway.end(SIGKILL);
        ASSERT_TRUE(serve()) << log();
        const std::string document = directory.path() + "/document";
        replace_file(document,
                     "prefix add --prefix 2001:db8:64::/96 --kind stateful\n"
                     "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.8\n"
                     "smapping add --id 901 --addr1 2001:db8:9::9 --addr2 203.0.113.78\n");
        daemon_process_t daemon({"edge", "--config", document, "--state", directory.path() + "/daemon"},
                                directory.path() + "/daemon.log");
        ASSERT_TRUE(eventually([] { return daemon_process_t::ask("status", "edge")["in_step"] == true; }))
            << daemon.log();
    } /* kills the nat64d */
};

TEST_F(disturbed_drill, a_transfer_of_500_mb_completes) {
    constexpr size_t size = 500'000'000;
    serve_with_pool();
    const connection_t tcp = connection(web_server());
    bool is_complete = false;
    const double took_s = disturbed([&] { is_complete = transfer(tcp.caller.fd(), tcp.called.fd(), size); });
    EXPECT_TRUE(is_complete);
    std::printf("%zu MB, %.0f Mbit/s\n", size / 1'000'000, static_cast<double>(size) * 8e-6 / took_s);
}

TEST_F(disturbed_drill, a_ping_every_10_ms_loses_nothing) {
    serve_with_pool();
    ASSERT_NE(ping(server_behind_prefix, 8), 0U);
    const std::string count = "1000";
    ran_t pinged{-1, ""};
    disturbed([&] { pinged = client.run("ping -q -i 0.01 -c " + count + " " + server_behind_prefix); });
    EXPECT_EQ(pinged.status, 0) << pinged.output;
    EXPECT_NE(pinged.output.find(count + " received, 0% packet loss"), std::string::npos) << pinged.output;
    std::printf("no ping of %s was lost\n", count.c_str());
}

}  // namespace
