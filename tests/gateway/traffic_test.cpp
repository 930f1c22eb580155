/* Packets through the gateway, and what its clients see of them. */
#include <net/if.h>

#include <cmath>
#include <set>
#include <sstream>

#include "gateway_fixture.h"

namespace {

using traffic_test = gateway_fixture_t;

TEST_F(traffic_test, ping_and_udp_pass_with_answers_of_8000_bytes) {
    serve_with_pool();
    EXPECT_EQ(ping(server_behind_prefix, 56), 64U);

    const socket_t at = at_server(SOCK_DGRAM, 7);
    const socket_t from = from_client(SOCK_DGRAM);
    end_t seen;
    EXPECT_TRUE(converse(from, at, to_server(7), std::string(7999, 'u'), &seen));
    EXPECT_EQ(seen.host().substr(0, 8), "192.0.2.");
    EXPECT_GE(seen.port(), 1024);
}

TEST_F(traffic_test, nothing_passes_without_a_prefix_or_without_a_pool) {
    ASSERT_TRUE(serve()) << log();
    configure({"pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.8"});
    const socket_t at = at_server(SOCK_DGRAM, 7);
    EXPECT_FALSE(passes(at)) << "no prefix";
    EXPECT_FALSE(passes(at, "fd6e:6174:3634::c633:6402")) << "the translator's own prefix";
    configure({"prefix add --prefix 64:ff9b::/96 --kind stateful"});
    EXPECT_FALSE(passes(at, "64:ff9b::c633:6402")) << "a documentation address behind the well-known prefix";
    configure({"prefix add --prefix 2001:db8:64::/96 --kind stateful", "pool del --id 1"});
    EXPECT_FALSE(passes(at)) << "no pool";
}

TEST_F(traffic_test, once_an_interface_is_on_only_those_that_are_on_translate) {
    serve_with_pool();
    must(middle, "ip link add gone0 type veth peer name gone1");
    const auto handle = [this](const char *name) {
        return " --ifh " + std::to_string(middle.inside([name] { return if_nametoindex(name); }));
    };
    const socket_t at = at_server(SOCK_DGRAM, 7);
    const std::string in0 = handle("in0");
    const std::string gone0 = handle("gone0");
    configure({"interface set" + gone0});
    EXPECT_FALSE(passes(at));
    EXPECT_FALSE(passes(at, "fd6e:6174:3634::c633:6402"));
    configure({"nvi enable" + in0});
    EXPECT_TRUE(passes(at));
    EXPECT_EQ(ask("stats interfaces").second["data"].size(), 2U);

    must(middle, "ip link delete gone0");
    gateway.end(SIGKILL);
    ASSERT_TRUE(serve()) << log();
    EXPECT_TRUE(passes(at));
    configure({"interface set" + gone0 + " --enable 0"});
    EXPECT_EQ(ask("interface set" + gone0).second["code"], 0x6006) << "it is gone";
    const std::string out0 = handle("out0");
    configure({"nvi enable" + out0, "interface set" + in0 + " --enable 0"});
    EXPECT_FALSE(passes(at));
    configure({"interface set" + out0 + " --enable 0"});
    EXPECT_TRUE(passes(at)) << "as without any interface";
}

TEST_F(traffic_test, a_static_mapping_is_reached_from_both_sides) {
    ASSERT_TRUE(serve()) << log();
    configure({"prefix add --prefix 2001:db8:64::/96 --kind stateful",
               "smapping add --id 7 --addr1 2001:db8:1::2 --addr2 192.0.2.80"});
    const socket_t inside = from_client(SOCK_DGRAM, 53);
    const socket_t outside = at_server(SOCK_DGRAM, 5353);
    end_t seen;
    EXPECT_TRUE(converse(outside, inside, {"192.0.2.80", 53}, "from outside", &seen));
    EXPECT_EQ(seen.host(), server_behind_prefix);
    EXPECT_TRUE(converse(from_client(SOCK_DGRAM, 54), outside, to_server(5353), "from inside", &seen));
    EXPECT_EQ(seen.host(), "192.0.2.80");
    EXPECT_EQ(seen.port(), 54);

    std::set<int> ports;
    for (const json_t &session : sessions()) {
        const bool is_from_outside = session["src_port"] == 53;
        EXPECT_EQ(session["bytes_in"], 40 + 8 + 12);
        EXPECT_EQ(session["bytes_out"], 40 + 8 + (is_from_outside ? 13 : 11));
        EXPECT_EQ(session["mapping_id"], 7);
        EXPECT_EQ(session["src"], client_address);
        EXPECT_EQ(session["pool_addr"], "192.0.2.80");
        EXPECT_EQ(session["dst"], server_address);
        ports.insert(session["src_port"].get<int>());
    }
    EXPECT_EQ(ports, (std::set<int>{53, 54}));
    EXPECT_EQ(ask("stats mappings").second["data"][0]["sessions"], 2);

    configure({"smapping del --id 7"});
    EXPECT_EQ(sessions().size(), 0U) << "sessions end with their mapping";
}

TEST_F(traffic_test, a_dynamic_mapping_gives_its_sources_a_pool_of_their_own) {
    const std::string sources = "20010db80001000000000000000000038000000000000000"; /* 2001:db8:1::3/128 */
    serve_with_pool();
    configure({"pool add --id 2 --param 1 --start 203.0.113.9 --end 203.0.113.9",
               "dmapping add --id 3 --type address-and-port-dependent --ext-arg 2 --ext " + sources});
    const socket_t at = at_server(SOCK_DGRAM, 7);
    end_t seen;
    EXPECT_TRUE(converse(from_client(SOCK_DGRAM, 0, "2001:db8:1::3"), at, to_server(7), "hello", &seen));
    EXPECT_EQ(seen.host(), "203.0.113.9");
    EXPECT_TRUE(converse(from_client(SOCK_DGRAM), at, to_server(7), "hello", &seen));
    EXPECT_EQ(seen.host().substr(0, 8), "192.0.2.");
    EXPECT_EQ(ask("stats mappings").second["data"][0]["sessions"], 1);
    EXPECT_EQ(ask("stats pools").second["data"][1]["sessions"], 1);
    EXPECT_EQ(ask("pool del --id 2").second["code"], 0x600e) << "a mapping uses it";
}

/** Of each session protocol, source and its port, pool port and destination port, as conntrack lists them. */
std::multiset<std::string> listed_by_conntrack(const std::string &list) {
    std::multiset<std::string> found;
    std::istringstream lines(list);
    for (std::string line; std::getline(lines, line);) {
        char protocol[8], source[INET6_ADDRSTRLEN], source_port[8], port[8];
        const int read = std::sscanf(line.c_str(), "%7s %*[^=]=%45s dst=%*s sport=%7s dport=%7s", protocol, source,
                                     source_port, port);
        if (read != 4) continue;
        const int pool_port = std::stoi(line.substr(line.rfind("dport=") + 6)); /* where the answers go */
        found.insert(std::string(protocol) + " " + source + " " + source_port + " " + std::to_string(pool_port) + " " +
                     port);
    }
    return found;
}

TEST_F(traffic_test, a_walk_is_what_conntrack_lists) {
    serve_with_pool();
    std::vector<socket_t> open;
    for (uint16_t port = 1; port <= 20; ++port) {
        const socket_t at = at_server(SOCK_DGRAM, port);
        open.push_back(from_client(SOCK_DGRAM));
        ASSERT_TRUE(converse(open.back(), at, to_server(port)));
    }
    EXPECT_EQ(ask("stats pools").second["data"][0]["sessions"], 20);
    const socket_t listener = web_server();
    open.push_back(from_client(SOCK_STREAM));
    ASSERT_TRUE(open.back().connects(to_server(80)));
    EXPECT_EQ(ask("stats pools").second["data"][0]["sessions"], 21) << "counted anew";

    std::multiset<std::string> walked;
    for (const json_t &session : sessions("--count 7")) {
        walked.insert(session["protocol_name"].get<std::string>() + " " + session["src"].get<std::string>() + " " +
                      std::to_string(session["src_port"].get<int>()) + " " +
                      std::to_string(session["pool_port"].get<int>()) + " " +
                      std::to_string(session["dst_port"].get<int>()));
    }
    EXPECT_EQ(walked.size(), 21U);
    EXPECT_EQ(walked, listed_by_conntrack(tracked()));
    EXPECT_EQ(ask("stats pools").second["data"][0]["sessions"], 21);
    configure({"range add --id 1 --start 192.0.2.2 --end 192.0.2.2"});
    EXPECT_EQ(ask("stats pools").second["data"][0]["sessions"], 21) << "the range is within the pool";
    EXPECT_EQ(sessions("--protocol tcp")[0]["state_name"], "established");
    EXPECT_EQ(sessions("--port 5").size(), 1U);
}

TEST_F(traffic_test, a_clear_ends_exactly_the_sessions_of_its_filter) {
    serve_with_pool();
    std::vector<socket_t> open;
    for (uint16_t port = 1; port <= 5; ++port) {
        open.push_back(at_server(SOCK_DGRAM, port));
        for (int i = 0; i < 16; ++i) {
            send_from_new_port(open, i % 2 == 0 ? "2001:db8:1::2" : "2001:db8:1::3", port);
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
    const struct {
        std::string filter;
        json_t values; /* of the sessions that it ends */
        json_t port = nullptr;
    } filters[] = {
        {"--protocol icmp", {{"protocol_name", "icmpv6"}}},
        {"--port " + one["pool_port"].dump(), json_t::object(), one["pool_port"]},
        {"--port 3 --protocol tcp", {{"protocol_name", "tcp"}}, 3},
        {"--src 2001:db8:1::3 --port 4", {{"src", "2001:db8:1::3"}}, 4},
        {"--pool-address " + one["pool_addr"].get<std::string>() + " --port 2", {{"pool_addr", one["pool_addr"]}}, 2},
        {"--dst 198.51.100.9", {{"dst", "198.51.100.9"}}},
        {"--src 2001:db8:1::3", {{"src", "2001:db8:1::3"}}},
        {"--dst 198.51.100.2", {{"dst", "198.51.100.2"}}},
    };
    for (const auto &[filter, values, port] : filters) {
        std::set<std::string> kept;
        std::set<std::string> found;
        for (const json_t &session : before) {
            bool is_match = port.is_null() || session["src_port"] == port || session["pool_port"] == port ||
                            session["dst_port"] == port;
            for (const auto &[name, value] : values.items()) {
                is_match = is_match && session[name] == value;
            }
            if (!is_match) kept.insert(session["id"].dump());
        }
        configure({"sessions clear " + filter});
        before = sessions();
        for (const json_t &session : before) {
            found.insert(session["id"].dump());
        }
        EXPECT_EQ(found, kept) << filter;
        EXPECT_EQ(listed_sessions(), kept.size()) << filter;
    }
}

TEST_F(traffic_test, a_full_pool_refuses_flows_and_counts_them) {
    serve_with_pool("--param 16 --start 192.0.2.1 --end 192.0.2.1");
    const socket_t at = at_server(SOCK_DGRAM, 7);
    std::vector<socket_t> open;
    for (int i = 0; i < 20; ++i) {
        send_from_new_port(open);
    }
    size_t failed = 4;
    cpu_set_t all, one;
    sched_getaffinity(0, sizeof all, &all);
    for (size_t processor = 0; processor < CPU_SETSIZE; ++processor) { /* each has a count of its own */
        if (!CPU_ISSET(processor, &all)) continue;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        sched_setaffinity(0, sizeof one, &one);
        send_from_new_port(open);
        ++failed;
    }
    sched_setaffinity(0, sizeof all, &all);
    EXPECT_TRUE(eventually([failed] { return system("failed_sessions") == failed; })) << system("failed_sessions");
    EXPECT_EQ(sessions().size(), 16U);
    std::set<int> ports;
    end_t seen;
    for (int i = 0; i < 16; ++i) {
        EXPECT_EQ(at.receive(socket_t::patience_ms, &seen), "hello");
        ports.insert(seen.port());
    }
    EXPECT_EQ(ports.size(), 16U);
    EXPECT_EQ(*ports.begin(), 1024);
    EXPECT_EQ(*ports.rbegin(), 1039);
    EXPECT_EQ(at.receive(socket_t::never_ms), "");
}

TEST_F(traffic_test, each_timeout_is_the_one_that_was_set) {
    serve_with_pool();
    configure({"timeout set --type udp --value 50", "timeout set --type udp-min --value 90",
               "timeout set --type tcp-trans --value 130", "timeout set --type tcp-est --value 1000",
               "timeout set --type tcp-in-syn --value 33", "timeout set --type icmp --value 41",
               "smapping add --id 7 --addr1 2001:db8:1::77 --addr2 192.0.2.80"});
    const socket_t at = at_server(SOCK_DGRAM, 7);
    const auto begin = clock_type::now();
    /* To within two seconds, and what the test itself took. */
    const auto least = [begin](int seconds) { return seconds - 2 - static_cast<int>(std::ceil(seconds_since(begin))); };
    const socket_t udp = from_client(SOCK_DGRAM);
    ASSERT_TRUE(converse(udp, at, to_server(7)));
    const socket_t listener = web_server();
    const connection_t tcp = connection(listener);
    {
        const socket_t closed = from_client(SOCK_STREAM, 4000);
        ASSERT_TRUE(closed.connects(to_server(80)));
        {
            const socket_t other = listener.accepted();
            shutdown(closed.fd(), SHUT_WR);
            EXPECT_EQ(other.receive(), "");
        }
        EXPECT_EQ(closed.receive(), ""); /* a socket that is closed before the other end's FIN may reset it */
    }
    const socket_t opening = from_client(SOCK_STREAM);
    static_cast<void>(opening.connects({"2001:db8:64::c633:644d", 81}, 0)); /* 198.51.100.77, which nobody has */
    const socket_t from_outside = at_server(SOCK_STREAM, 0);
    static_cast<void>(from_outside.connects({"192.0.2.80", 82}, 0));
    ASSERT_NE(ping(server_behind_prefix, 8), 0U);
    const struct {
        const char *protocol, *part;
        int seconds;
    } expected[] = {{"udp ", "dport=7 ", 90},   {"tcp ", "ESTABLISHED", 1000}, {"tcp ", "TIME_WAIT", 130},
                    {"tcp ", "dport=81 ", 130}, {"tcp ", "dport=82 ", 33},     {"icmpv6 ", "", 41}};
    for (const auto &[protocol, part, seconds] : expected) {
        int remaining = -1;
        std::istringstream lines(tracked());
        for (std::string line; std::getline(lines, line);) {
            const bool is_it = line.rfind(protocol, 0) == 0 && line.find(part) != std::string::npos;
            if (is_it) std::sscanf(line.c_str(), "%*s %*d %d", &remaining);
        }
        EXPECT_LE(remaining, seconds) << protocol << part;
        EXPECT_GE(remaining, least(seconds)) << protocol << part << "\n" << tracked();
    }
    const json_t shown = sessions("--port 7 --protocol udp");
    ASSERT_EQ(shown.size(), 1U);
    EXPECT_LE(shown[0]["remaining_s"].get<int>(), 90);
    EXPECT_GE(shown[0]["remaining_s"].get<int>(), least(90));
}

TEST_F(traffic_test, a_session_limit_stays_exact_over_unrelated_changes_and_a_restart) {
    constexpr size_t limit = 20;
    serve_with_pool();
    configure({"limit add --type sessions --value " + std::to_string(limit)});
    const socket_t at = at_server(SOCK_DGRAM, 7);
    std::vector<socket_t> open;
    const auto passed_of = [&](size_t count) {
        for (size_t i = 0; i < count; ++i) {
            send_from_new_port(open);
        }
        size_t passed = 0;
        while (!at.receive(socket_t::never_ms).empty()) {
            ++passed;
        }
        return passed;
    };
    EXPECT_EQ(passed_of(limit / 2), limit / 2);
    {
        commander_t commander;
        for (size_t i = 0; i < 50; i += 10) {
            change_unrelated(commander, 8);
            commander.carry_out("timeout set --type udp --value " + std::to_string(300 + i));
            commander.carry_out("timeout set --type tcp-est --value " + std::to_string(7000 + i));
        }
    }
    EXPECT_EQ(passed_of(limit), limit / 2);
    EXPECT_EQ(listed_sessions(), limit);
    gateway.end(SIGKILL);
    ASSERT_TRUE(serve()) << log();
    EXPECT_EQ(passed_of(1), 0U);
    EXPECT_EQ(ask("stats limits").second["data"][0]["in_use"], limit);
    configure({"limit del --type sessions"});
    EXPECT_EQ(passed_of(1), 1U);
}

TEST_F(traffic_test, flows_survive_changes_and_a_killed_gateway) {
    serve_with_pool();
    const socket_t listener = web_server();
    const connection_t tcp = connection(listener);
    const auto goes_on = [&] {
        const std::string block(20000, 'b');
        std::string got;
        if (!tcp.caller.send(block) || !tcp.called.send("on") || tcp.caller.receive() != "on") return false;
        for (std::string part = "?"; got.size() < block.size() && !part.empty(); got += part) {
            part = tcp.called.receive();
        }
        return got == block;
    };
    EXPECT_TRUE(goes_on());
    const json_t before = sessions();
    ASSERT_EQ(before.size(), 1U);
    configure(
        {"pool add --id 2 --param 1 --start 203.0.113.1 --end 203.0.113.9", "timeout set --type tcp-est --value 5000"});
    EXPECT_TRUE(goes_on());

    gateway.end(SIGKILL);
    EXPECT_TRUE(goes_on()) << "without a gateway";
    /* What was changed meanwhile by others is corrected. */
    must(middle,
         "nft add chain ip6 fwx_nat64_edge pool_77 && nft flush chain ip6 fwx_nat64_edge others"
         " && nft 'add element ip6 fwx_nat64_edge inbound { 2001:db8:7::7 : 2001:db8:7::7 }'"
         " && nft 'add element ip6 fwx_nat64_edge outbound { 2001:db8:7::7 : 2001:db8:7::7 }'"
         " && nft 'add element ip6 fwx_nat64_edge sources { 2001:db8:7::7 : drop }'"
         " && ip route add 192.0.2.200 dev fwx_nat64 && ip route del 192.0.2.8 dev fwx_nat64"
         " && ip route add 192.0.2.8 dev fwx_nat64 table 77"
         " && seq 200 | sed 's/.*/route add 203.0.114.& dev fwx_nat64/' | ip -batch -"
         " && ip route del fd6e:6174:3634::/96 dev fwx_nat64");
    ASSERT_TRUE(serve()) << log();
    EXPECT_TRUE(goes_on());
    EXPECT_EQ(sessions()[0]["id"], before[0]["id"]);
    EXPECT_EQ(table().find("pool_77"), std::string::npos);
    EXPECT_EQ(table().find("2001:db8:7::7"), std::string::npos);
    EXPECT_NE(table().find("0 : goto pool_1"), std::string::npos);
    const std::string routes = middle.run("ip route").output;
    EXPECT_EQ(routes.find("192.0.2.200"), std::string::npos);
    EXPECT_EQ(routes.find("203.0.114."), std::string::npos);
    EXPECT_NE(routes.find("192.0.2.8 dev"), std::string::npos);
    EXPECT_NE(ping(server_behind_prefix, 8), 0U) << "new flows pass, too";

    configure({"pool del --id 1"});
    EXPECT_EQ(sessions().size(), 0U) << "sessions end with their pool";
}

TEST_F(traffic_test, packets_pass_again_after_the_translator_its_device_or_the_table_was_lost) {
    serve_with_pool();
    const pid_t translator = std::stoi(text_of(state("edge") + "/translator.pid"));
    EXPECT_EQ(getsid(translator), translator) << "what ends the gateway's session does not end it";
    for (const std::string &loss :
         {"kill -KILL $(cat " + state("edge") + "/translator.pid)", std::string("ip link delete fwx_nat64"),
          std::string("ip link delete fwx_nat64 && ip tuntap add fwx_nat64 mode tun"),
          std::string("ip link set fwx_nat64 down"), std::string("ip route flush dev fwx_nat64"),
          std::string("nft flush ruleset"), std::string("nft flush ruleset && nft add table ip6 fwx_nat64_edge"),
          std::string("ip link set fwx_nat64 down && ip link set fwx_nat64 up")}) {
        must(middle, loss);
        EXPECT_TRUE(eventually([this] { return ping(server_behind_prefix, 8, socket_t::never_ms) != 0; }))
            << loss << ": " << log();
    }
    EXPECT_NE(log().find("the translator has died, and is started again"), std::string::npos);
    EXPECT_NE(log().find("device fwx_nat64 has lost its routes, and gets them again"), std::string::npos);
    EXPECT_NE(log().find("another program has deleted or replaced the nftables table"), std::string::npos);
    must(middle, "sysctl -q net.ipv6.conf.all.forwarding=0");
    EXPECT_TRUE(
        eventually([this] { return log().find("the kernel does not forward packets: set") != std::string::npos; }));
    must(middle, "sysctl -q net.ipv6.conf.all.forwarding=1");

    must(middle,
         "nft delete table ip6 fwx_nat64_edge && nft add table ip6 fwx_nat64_edge"
         " && nft 'add map ip6 fwx_nat64_edge inbound { type ipv4_addr : ipv4_addr; }'"
         " && ip link delete fwx_nat64");
    EXPECT_TRUE(eventually([this] { return log().find("nftables: ") != std::string::npos; })) << log();
    must(middle, "nft delete table ip6 fwx_nat64_edge");
    EXPECT_TRUE(eventually([this] { return ping(server_behind_prefix, 8, socket_t::never_ms) != 0; }))
        << "it is tried again: " << log();
}

TEST_F(traffic_test, a_flow_that_began_while_the_table_was_away_begins_anew) {
    serve_with_pool();
    must(middle, "ip -6 route add 2001:db8:64::/96 dev out0");
    const socket_t at = at_server(SOCK_DGRAM, 7);
    for (const bool is_dead : {false, true}) {
        const socket_t from = from_client(SOCK_DGRAM);
        if (is_dead) gateway.end(SIGKILL);
        if (!is_dead) gateway.signal(SIGSTOP);
        must(
            middle,
            "nft 'flush ruleset; add table ip6 other; add chain ip6 other any { type filter hook forward priority 0; };"
            " add rule ip6 other any ct state new accept'");
        ASSERT_TRUE(from.send("hello", to_server(7)));
        ASSERT_TRUE(eventually([this] { return tracked().find("dst=2001:db8:64::") != std::string::npos; }));
        if (!is_dead) gateway.signal(SIGCONT);
        EXPECT_TRUE(!is_dead || serve()) << log();
        EXPECT_TRUE(eventually([&] { return converse(from, at, to_server(7), "hello", nullptr, socket_t::never_ms); }))
            << log() << tracked();
    }
}

}  // namespace
