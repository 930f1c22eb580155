/* Packets through the gateway at length: many clients, packets of every size, long transfers while it is disturbed. */
#include <atomic>
#include <functional>
#include <set>
#include <sstream>
#include <thread>

#include "drill.h"
#include "tests/nat64d/process.h"

namespace {

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
    const socket_t errors(client, SOCK_RAW, {client_address, 0}, IPPROTO_ICMPV6);
    icmp6_filter filter;
    ICMP6_FILTER_SETBLOCKALL(&filter);
    ICMP6_FILTER_SETPASS(ICMP6_PACKET_TOO_BIG, &filter);
    setsockopt(errors.fd(), IPPROTO_ICMPV6, ICMP6_FILTER, &filter, sizeof filter);
    const socket_t listener = at_server(SOCK_STREAM, 80);
    listen(listener.fd(), 1);
    constexpr size_t size = 1 << 20;
    for (const uint32_t mtu : {1400U, 1340U, 1280U}) {
        must(middle, "ip link set out0 mtu " + std::to_string(mtu) + " && ip link set in0 mtu " + std::to_string(mtu));
        const socket_t caller = from_client(SOCK_STREAM);
        ASSERT_TRUE(caller.connects(to_server(80)));
        const socket_t called = listener.accepted();
        EXPECT_TRUE(transfer(caller.fd(), called.fd(), size)) << mtu;
        const socket_t second = from_client(SOCK_STREAM);
        ASSERT_TRUE(second.connects(to_server(80)));
        EXPECT_TRUE(transfer(listener.accepted().fd(), second.fd(), size)) << mtu;
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
    const auto send_to_all = [](const socket_t &from, uint16_t count) {
        for (uint16_t port = 1; port <= count; ++port) {
            from.send("x", to_server(port));
        }
    };
    ASSERT_TRUE(eventually([&] { /* queues may be too short for all at once */
                                 send_to_all(stable, stable_count);
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

/** Changes that concern no flow, a kill with a new gateway, and a nat64d that is killed. */
class disturbed_drill : public drill {
protected:
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
        daemon.end(SIGKILL);
    }
};

TEST_F(disturbed_drill, a_transfer_of_500_mb_completes) {
    constexpr size_t size = 500'000'000;
    serve_with_pool();
    const socket_t listener = at_server(SOCK_STREAM, 80);
    listen(listener.fd(), 1);
    const socket_t caller = from_client(SOCK_STREAM);
    ASSERT_TRUE(caller.connects(to_server(80)));
    const socket_t called = listener.accepted();
    const auto begin = clock_type::now();
    std::atomic<bool> is_complete = false;
    double took_s = 0;
    std::thread transferring([&] {
        is_complete = transfer(caller.fd(), called.fd(), size);
        took_s = seconds_since(begin);
    });
    disturb();
    const double disturbed_s = seconds_since(begin);
    transferring.join();
    EXPECT_TRUE(is_complete);
    EXPECT_LT(disturbed_s, took_s) << "all of it happened meanwhile";
    std::printf("%zu MB in %.1f s, %.0f Mbit/s, disturbed for the first %.1f s\n", size / 1'000'000, took_s,
                static_cast<double>(size) * 8e-6 / took_s, disturbed_s);
}

TEST_F(disturbed_drill, a_ping_every_10_ms_loses_nothing) {
    serve_with_pool();
    ASSERT_NE(ping(server_behind_prefix, 8), 0U);
    constexpr int count = 1000;
    ran_t pinged{-1, ""};
    const auto begin = clock_type::now();
    double took_s = 0;
    std::thread pinging([&] {
        pinged = client.run("ping -q -i 0.01 -c " + std::to_string(count) + " " + server_behind_prefix);
        took_s = seconds_since(begin);
    });
    disturb();
    const double disturbed_s = seconds_since(begin);
    pinging.join();
    EXPECT_EQ(pinged.status, 0) << pinged.output;
    const std::string all_came = std::to_string(count) + " received, 0% packet loss";
    EXPECT_NE(pinged.output.find(all_came), std::string::npos) << pinged.output;
    EXPECT_LT(disturbed_s, took_s) << "all of it happened meanwhile";
    std::printf("%d pings in %.1f s, disturbed for the first %.1f s: none lost\n", count, took_s, disturbed_s);
}

TEST_F(drill, each_timeout_is_the_one_that_was_set) {
    serve_with_pool();
    configure({"timeout set --type udp --value 50", "timeout set --type udp-min --value 90",
               "timeout set --type tcp-trans --value 130", "timeout set --type tcp-est --value 1000",
               "timeout set --type tcp-in-syn --value 33", "timeout set --type icmp --value 41",
               "smapping add --id 7 --addr1 2001:db8:1::77 --addr2 192.0.2.80"});
    const socket_t at = at_server(SOCK_DGRAM, 7);
    const socket_t udp = from_client(SOCK_DGRAM);
    ASSERT_TRUE(converse(udp, at, to_server(7)));
    const socket_t listener = at_server(SOCK_STREAM, 80);
    listen(listener.fd(), 2);
    const socket_t open = from_client(SOCK_STREAM);
    ASSERT_TRUE(open.connects(to_server(80)));
    const socket_t accepted = listener.accepted();
    {
        const socket_t closed = from_client(SOCK_STREAM, 4000);
        ASSERT_TRUE(closed.connects(to_server(80)));
        const socket_t other = listener.accepted();
        shutdown(closed.fd(), SHUT_WR);
        EXPECT_EQ(other.receive(), "");
    }
    const socket_t opening = from_client(SOCK_STREAM);
    static_cast<void>(opening.connects({"2001:db8:64::c633:644d", 81}, 0)); /* 198.51.100.77, which nobody has */
    const socket_t from_outside = at_server(SOCK_STREAM, 0);
    static_cast<void>(from_outside.connects({"192.0.2.80", 82}, 0));
    ASSERT_NE(ping(server_behind_prefix, 8), 0U);
    const struct {
        const char *begin, *part;
        int seconds;
    } expected[] = {{"udp ", "dport=7 ", 90},   {"tcp ", "ESTABLISHED", 1000}, {"tcp ", "TIME_WAIT", 130},
                    {"tcp ", "dport=81 ", 130}, {"tcp ", "dport=82 ", 33},     {"icmpv6 ", "", 41}};
    for (const auto &[begin, part, seconds] : expected) {
        int remaining = -1;
        std::istringstream lines(tracked());
        for (std::string line; std::getline(lines, line);) {
            const bool is_it = line.rfind(begin, 0) == 0 && line.find(part) != std::string::npos;
            if (is_it) std::sscanf(line.c_str(), "%*s %*d %d", &remaining);
        }
        EXPECT_LE(remaining, seconds) << begin << part;
        EXPECT_GE(remaining, seconds - 2) << begin << part << "\n" << tracked();
        std::printf("%s%s: %d of %d s remain\n", begin, part, remaining, seconds);
    }
}

TEST_F(drill, a_session_limit_is_exact_over_unrelated_changes) {
    constexpr size_t limit = 20;
    serve_with_pool();
    configure({"limit add --type sessions --value " + std::to_string(limit)});
    const socket_t at = at_server(SOCK_DGRAM, 7);
    std::vector<socket_t> open;
    const auto passed_of = [&](size_t count) {
        for (size_t i = 0; i < count; ++i) {
            open.push_back(from_client(SOCK_DGRAM));
            open.back().send("hello", to_server(7));
        }
        size_t passed = 0;
        while (!at.receive(socket_t::never_ms).empty()) {
            ++passed;
        }
        return passed;
    };
    EXPECT_EQ(passed_of(limit / 2), limit / 2);
    commander_t commander;
    for (size_t i = 0; i < 50; i += 10) {
        change_unrelated(commander, 8);
        commander.carry_out("timeout set --type udp --value " + std::to_string(300 + i));
        commander.carry_out("timeout set --type tcp-est --value " + std::to_string(7000 + i));
    }
    EXPECT_EQ(passed_of(limit), limit / 2);
    EXPECT_EQ(listed_sessions(), limit);
    std::printf("%zu sessions of %zu after 50 changes\n", listed_sessions(), limit);
}

TEST_F(drill, a_clear_ends_exactly_the_sessions_of_its_filter) {
    serve_with_pool();
    std::vector<socket_t> open;
    for (uint16_t port = 1; port <= 5; ++port) {
        open.push_back(at_server(SOCK_DGRAM, port));
        for (int i = 0; i < 16; ++i) {
            open.push_back(from_client(SOCK_DGRAM, 0, i % 2 == 0 ? "2001:db8:1::2" : "2001:db8:1::3"));
            ASSERT_TRUE(open.back().send("hello", to_server(port)));
        }
    }
    const socket_t listener = at_server(SOCK_STREAM, 3);
    listen(listener.fd(), 16);
    for (int i = 0; i < 8; ++i) {
        open.push_back(from_client(SOCK_STREAM));
        ASSERT_TRUE(open.back().connects(to_server(3)));
    }
    ASSERT_NE(ping(server_behind_prefix, 8), 0U);
    json_t before = sessions();
    ASSERT_EQ(before.size(), 5U * 16 + 8 + 1);
    const auto is_udp = [](const json_t &session) { return session["protocol_name"] == "udp"; };
    const json_t one = *std::find_if(before.begin(), before.end(), is_udp);
    const auto has_port = [](const json_t &session, const json_t &port) {
        return session["src_port"] == port || session["pool_port"] == port || session["dst_port"] == port;
    };
    using match_t = std::function<bool(const json_t &)>;
    const std::pair<std::string, match_t> filters[] = {
        {"--protocol icmp", [](const json_t &session) { return session["protocol_name"] == "icmpv6"; }},
        {"--port " + one["pool_port"].dump(),
         [&](const json_t &session) { return has_port(session, one["pool_port"]); }},
        {"--port 3 --protocol tcp",
         [&](const json_t &session) { return has_port(session, 3) && session["protocol_name"] == "tcp"; }},
        {"--src 2001:db8:1::3 --port 4",
         [&](const json_t &session) { return session["src"] == "2001:db8:1::3" && has_port(session, 4); }},
        {"--pool-address " + one["pool_addr"].get<std::string>() + " --port 2",
         [&](const json_t &session) { return session["pool_addr"] == one["pool_addr"] && has_port(session, 2); }},
        {"--dst 198.51.100.9", [](const json_t &) { return false; }},
        {"--src 2001:db8:1::3", [](const json_t &session) { return session["src"] == "2001:db8:1::3"; }},
        {"--dst 198.51.100.2", [](const json_t &) { return true; }},
    };
    for (const auto &[filter, is_match] : filters) {
        std::set<std::string> kept;
        std::set<std::string> found;
        for (const json_t &session : before) {
            if (!is_match(session)) kept.insert(session["id"].dump());
        }
        configure({"sessions clear " + filter});
        const json_t after = sessions();
        for (const json_t &session : after) {
            found.insert(session["id"].dump());
        }
        EXPECT_EQ(found, kept) << filter;
        EXPECT_EQ(listed_sessions(), kept.size()) << filter;
        std::printf("sessions clear %s: %zu of %zu\n", filter.c_str(), before.size() - found.size(), before.size());
        before = after;
    }
}

}  // namespace
